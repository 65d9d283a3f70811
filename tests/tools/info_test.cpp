// tests/tools/info_test.cpp
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/run_program.h"

namespace {

/// A strip of `count` separate triangles.
std::string make_triangles_obj(int count) {
  std::string obj;
  for (int k = 0; k < count; ++k) {
    const std::string x = std::to_string(2 * k), next = std::to_string(2 * k + 1);
    obj += "v " + x + " 0 0\nv " + next + " 0 0\nv " + x + " 1 0\nf -3 -2 -1\n";
  }
  return obj;
}

}  // namespace

TEST(VqgasInfo, numbers_agree_with_the_file_and_with_each_other) {
  const TestFolder folder;
  folder.write("triangles.obj", make_triangles_obj(300) + "v nan 0 0\nf 1 2 901\n");
  const ProgramResult result = run_vqgas(folder.get_path(), {"info", "triangles.obj", "demo:knot", "--json", "-"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.count_error_lines(), 1u) << "the dropped polygon is told once: " << result.err;
  const auto report = nlohmann::json::parse(result.out);
  ASSERT_EQ(report.size(), 2u);

  const auto& file = report[0];
  EXPECT_EQ(file["file"], "triangles.obj");
  EXPECT_EQ(file["primitives"]["in_file"], 301);
  EXPECT_EQ(file["primitives"]["kept"], 300);
  EXPECT_EQ(file["primitives"]["dropped"], 1);
  EXPECT_EQ(file["box"]["max"][0], 599.0);
  EXPECT_EQ(report[1]["primitives"]["dropped"], 0);
  for (const auto& scene : report) {
    const double kept = scene["primitives"]["kept"];
    EXPECT_EQ(scene["leaves"].get<double>(), kept);
    // Every node but the root, and every leaf, is the child of one node.
    const double nodes = scene["nodes"]["aligned"].get<double>() + scene["nodes"]["quantized"].get<double>();
    EXPECT_NEAR(nodes * scene["children_per_node"].get<double>(), nodes - 1 + kept, 1e-6 * kept);
    EXPECT_GE(scene["depth"].get<double>(), std::log(kept) / std::log(4.0));
    const auto& bytes = scene["bytes_per_primitive"];
    EXPECT_EQ(bytes["item order"], 4.0);
    ASSERT_EQ(scene["clusters"].size(), 3u);
    EXPECT_LE(scene["clusters"][0]["made"], scene["clusters"][1]["made"]);
    EXPECT_LE(scene["clusters"][1]["made"], scene["clusters"][2]["made"]);
    double stages = 0.0;
    for (const auto& stage : scene["stages"]) stages += stage["seconds"].get<double>();
    const double whole = scene["build"]["seconds"];
    EXPECT_GT(stages, 0.0);
    EXPECT_LE(stages, 1.05 * whole + 1e-3);
  }
}

TEST(VqgasInfo, micro_triangles_stay_within_the_cache) {
  const TestFolder folder;
  const ProgramResult result = run_vqgas(
      folder.get_path(), {"info", "demo:knot", "--displace", "noise", "--rate", "8", "--cache", "2", "--json", "-"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const nlohmann::json displaced = nlohmann::json::parse(result.out)[0]["displaced"];
  EXPECT_GT(displaced["cache_bytes"], 1000000);
  EXPECT_LE(displaced["cache_bytes"], displaced["cache_limit_bytes"]);
  EXPECT_LE(displaced["cache_limit_bytes"], 2000000);
}

TEST(VqgasInfo, a_grid_builds_only_the_parts_that_rays_reach) {
  const TestFolder folder;
  const ProgramResult result =
      run_vqgas(folder.get_path(), {"info", "demo:knot", "--structure", "grid", "--json", "-"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const auto report = nlohmann::json::parse(result.out)[0];
  EXPECT_EQ(report["primitives"]["kept"], 43200);
  const auto& grid = report["grid"];
  EXPECT_EQ(grid["built_before_rays"], 0);
  EXPECT_GT(grid["built_after_rays"], 0);
  EXPECT_LT(grid["built_after_rays"], grid["parts"]);  // the far side of the tube is out of sight
  EXPECT_GT(grid["bytes_after_rays"], grid["bytes_before_rays"]);
}
