// tools/vqgas/commands/option_groups.h
//
// The options of the subcommands: those that several have stand here, those of one stand in NAME_options.cpp.
#pragma once
#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "tools/vqgas/commands/command_line.h"

/// What the command line may ask for. The functions own its options.
struct Subcommand {
  CLI::App* command;
  std::function<void()> complete;  ///< checks and converts parsed options; throws UsageError; or empty
  std::function<void()> run;       ///< throws as run_command_line()
};

/// Values of options of the view that are still to be read.
struct ViewTexts {
  std::string camera, size;
};

// Each in a file of its own.
Subcommand add_info(CLI::App& app);
Subcommand add_report(CLI::App& app);
Subcommand add_render(CLI::App& app);
Subcommand add_trace(CLI::App& app);
Subcommand add_beam(CLI::App& app);
Subcommand add_select(CLI::App& app);
Subcommand add_groom(CLI::App& app);
Subcommand add_scatter(CLI::App& app);
Subcommand add_uv(CLI::App& app);
Subcommand add_compare(CLI::App& app);

// Checks of values.
CLI::Validator is_finite_number();
CLI::Validator is_positive_number();
CLI::Validator is_number_within(double low, double high);
CLI::Validator is_whole_within(u64 low, u64 high);
CLI::Validator is_view();

/// What FILE may be.
std::string get_file_help();

/// --threads, --quiet, --json
void add_common_options(CLI::App& command, CommonOptions& options, const std::string& json_help);
/// --structure, --linear, --aligned-only
void add_shape_options(CLI::App& command, ShapeSettings& shapes);
/// --displace, --bound, --rate
/// @param what  is displaced, for the help text
void add_displacement_options(CLI::App& command, DisplaceOptions& displace, const std::string& what);
/// The same for all meshes, and --cache
void add_displace_options(CLI::App& command, DisplaceOptions& displace);
/// --view, --camera, --up, --size
void add_view_options(CLI::App& command, ViewOptions& options, ViewTexts& texts);
/// Reads the texts. Throws UsageError.
void complete_view(const CLI::App& command, const ViewTexts& texts, ViewOptions& options);
/// --fps
void add_fps_option(CLI::App& command, double& frames_per_second);
/// --frame
void add_frame_option(CLI::App& command, double& frame);
/// --bundle, --fps
void add_scene_options(CLI::App& command, SceneOptions& options);
/// --format
void add_format_option(CLI::App& command, AnswerFormat& format);
