// tools/vqgas/commands/manual_walk.h
//
// What manual pages and completion know of an option.
#pragma once
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

struct OptionEntry {
  std::vector<std::string> names;  ///< with their dashes; none for a positional argument
  std::string value;               ///< what follows; empty for a flag
  std::string description, default_value;
  std::vector<std::string> choices;     ///< the values there are; empty: any
  std::vector<std::string> extensions;  ///< of files, with their dots; empty: no file, or any
  bool is_file = false, is_required = false, is_repeatable = false;
};

struct CommandEntry {
  std::string name, description, notes, examples;
  std::vector<OptionEntry> options;  ///< positional arguments first
};

CommandEntry walk_command(const CLI::App& command);
/// Without the help that each command has.
std::vector<CommandEntry> walk_commands(const CLI::App& app);

// Completion scripts.
std::string print_bash_completion(const std::vector<CommandEntry>& commands);
std::string print_zsh_completion(const std::vector<CommandEntry>& commands);
std::string print_fish_completion(const std::vector<CommandEntry>& commands);
