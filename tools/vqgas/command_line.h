// tools/vqgas/command_line.h
//
// What the user asked for.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "tools/vqgas/camera.h"
#include "tools/vqgas/picture.h"

struct CommonOptions {
  uint threads = 0;  ///< 0: as many as the machine runs at once
  bool quiet = false;
  std::string json;  ///< file for the report, "-" for standard output, empty for none
};

struct InfoOptions : CommonOptions {
  std::vector<std::string> files;
};

struct Shutter {
  double open = 0.0, close = 0.0;
};

struct RenderOptions : CommonOptions {
  std::vector<std::string> files;
  std::vector<std::string> outputs;
  std::string view = "three-quarter";
  std::optional<Camera> camera;
  uint width = 960, height = 540;
  uint samples = 16;
  std::vector<Layer> layers = {Layer::beauty};
  std::optional<Shutter> shutter;
  bool has_floor = false;
};

struct TraceOptions : CommonOptions {
  std::string file;
  std::vector<std::string> rays;
  bool all = false;
  bool as_json = false;
};

/// Reads the command line and runs what it asks for.
/// @return the program's exit code: 0; 2 for a command line that makes no sense
/// Throws InputError for input that cannot be used.
int run_command_line(int argc, char** argv);

// The subcommands, each in a file of its own.
void run_info(const InfoOptions& options);
void run_render(const RenderOptions& options);
void run_trace(const TraceOptions& options);
