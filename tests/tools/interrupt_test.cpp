// Signals at many moments of each subcommand: it ends at once, and what is left is the old file or a whole new one.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <random>

#include "tools/hair_bytes.h"
#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

bool is_whole(const TestFolder& folder, const std::string& name) {
  const std::string bytes = folder.read(name);
  if (name.ends_with(".json")) return nlohmann::json::accept(bytes);
  if (name.ends_with(".exr")) return !read_exr(folder.get_path() / name).values.empty();
  if (name.ends_with(".png")) return !read_png(folder.get_path() / name).rgb.empty();
  if (name.ends_with(".html")) return bytes.starts_with("<!DOCTYPE html>") && bytes.ends_with("</html>\n");
  return HairBytes().read(bytes);
}

/// The messages without the camera of a picture, which is told once the picture is written.
std::string leave_out_camera(const std::string& messages) {
  return messages.starts_with("--camera ") ? messages.substr(messages.find('\n') + 1) : messages;
}

struct Call {
  std::vector<std::string> arguments;
  std::vector<std::string> outputs;
};

}  // namespace

TEST(VqgasInterrupt, a_signal_ends_it_at_once_and_leaves_no_part_of_a_file) {
  const std::vector<Call> calls = {
      {{"info", "demo:fur", "demo:wind", "--json", "out.json"}, {"out.json"}},
      {{"info", "cubes.obj", "--json", "out.json"}, {"out.json"}},
      {{"render", "demo:knot", "-o", "out.exr", "-o", "out.png", "--size", "1600x1200", "--layers", "beauty,depth"},
       {"out.exr", "out.png", "out.depth.png"}},
      {{"render", "demo:knot", "-o", "out.exr", "--size", "4000x3000", "--layers", "depth,normal"}, {"out.exr"}},
      {{"groom", "demo:knot", "-o", "out.hair", "--strands", "3000000"}, {"out.hair"}},
      {{"select", "demo:mills", "-o", "out.png", "--json", "out.json"}, {"out.json", "out.png"}},
      {{"uv", "demo:terrain", "-o", "out.png", "--size", "4096", "--json", "out.json"}, {"out.json", "out.png"}},
      {{"select", "demo:galaxy", "--mode", "points", "--json", "out.json"}, {"out.json"}},
      {{"scatter", "demo:knot", "--on", "demo:terrain", "--count", "3000000", "-o", "out.json"}, {"out.json"}},
      {{"report", "demo:fur", "--with", "demo:terrain", "-o", "out.html"}, {"out.html"}},
      {{"trace", "demo:knot", "--json", "out.json"}, {"out.json"}}};
  std::string cubes;  // that take the importer some tenths of a second
  for (int cube = 0; cube < 25000; ++cube) cubes += make_cube_obj(1.0, 8 * cube + 1);
  std::mt19937 random(3);
  const int signals[] = {SIGINT, SIGTERM, SIGHUP};
  for (const Call& call : calls) {
    std::vector<double> stop_seconds;
    for (int round = 0; round < 4; ++round) {
      const int signal = signals[round % 3], times = 1 + round % 2;
      const int milliseconds = static_cast<int>(random() % 150) + 200 * round;
      SCOPED_TRACE(testing::PrintToString(call.arguments) + " after " + std::to_string(milliseconds) + " ms");
      const TestFolder folder;
      if (call.arguments[1] == "cubes.obj") folder.write("cubes.obj", cubes);
      for (const std::string& name : call.outputs) folder.write(name, "old");
      const std::vector<std::string> before = folder.list();
      const ProgramResult result = interrupt_vqgas(folder.get_path(), call.arguments, signal, milliseconds, times);
      if (result.exit_code != 0) stop_seconds.push_back(result.stop_seconds);
      EXPECT_TRUE(result.exit_code == 128 + signal || result.exit_code == 0) << result.exit_code;
      EXPECT_EQ(leave_out_camera(result.err), result.exit_code == 0 ? "" : "vqgas: interrupted\n");
      EXPECT_EQ(folder.list(), before) << "nothing unfinished remains";
      for (const std::string& name : call.outputs)
        EXPECT_TRUE((result.exit_code != 0 && folder.read(name) == "old") || is_whole(folder, name)) << name;
    }
    ASSERT_FALSE(stop_seconds.empty()) << call.arguments[0];
    std::ranges::sort(stop_seconds);
    if (!VQGAS_IS_SANITIZED) {  // the median: other programs may delay one
      EXPECT_LT(stop_seconds[stop_seconds.size() / 2], 0.1) << testing::PrintToString(call.arguments);
    }
  }
}
