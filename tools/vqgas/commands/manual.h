// tools/vqgas/commands/manual.h
//
// Manual pages, and completion for bash, zsh and fish, all made from the options of the subcommands.
#pragma once
#include <CLI/CLI.hpp>
#include <string>

/// Writes vqgas.1 and vqgas-SUBCOMMAND.1, and vqgas.bash, _vqgas (zsh) and vqgas.fish, into a folder that exists.
/// Throws InputError, Interrupted.
void write_manual(const CLI::App& app, const std::string& folder);
