// Two boxes of which one is longer by a known amount.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tools/image_file.h"
#include "tools/run_program.h"

TEST(VqgasCompare, a_planted_difference_is_seen_and_equal_files_agree) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  std::string longer = make_cube_obj(1.0);
  for (std::size_t at = 0; (at = longer.find(" 1\nv", at)) != std::string::npos;) longer.replace(at, 2, " 1.5");
  longer.replace(longer.find(" 1\nf"), 2, " 1.5");
  folder.write("longer.obj", longer);
  const auto compare = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "compare");
    arguments.insert(arguments.end(), {"--json", "-", "--camera", "0,0,5/0,0,0/0,1,0/60", "--size", "64x48"});
    const ProgramResult result = run_vqgas(folder.get_path(), arguments);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return nlohmann::json::parse(result.out);
  };
  const auto other = compare({"cube.obj", "longer.obj", "-o", "difference.png"});
  const PngFile picture = read_png(folder.get_path() / "difference.png");
  ASSERT_EQ(picture.width, 64u);
  EXPECT_GT(picture.height, 48u) << "a legend";
  const std::size_t center = 3 * (24 * 64 + 32);
  EXPECT_GT(picture.rgb[center], picture.rgb[center + 2] + 100) << "yellow";
  EXPECT_NEAR(other["camera"]["largest_difference"].get<double>(), 0.5, 0.1);
  EXPECT_GT(other["camera"]["other_distance"], 100);
  EXPECT_GT(other["camera"]["only_b"], 0) << "the nearer face is larger in the picture";
  EXPECT_EQ(other["camera"]["only_a"], 0);
  EXPECT_GT(other["random"]["other_distance"].get<int>() + other["random"]["only_b"].get<int>(), 1000);

  for (const std::vector<std::string>& line :
       {std::vector<std::string>{"cube.obj"}, {"demo:knot", "--with", "--structure grid"}}) {
    const auto same = compare(line);
    for (const char* rays : {"camera", "random"}) {
      EXPECT_EQ(same[rays]["same"].get<int>() + same[rays]["both_miss"].get<int>(), same[rays]["rays"]);
      EXPECT_GT(same[rays]["same"], 100);
    }
    EXPECT_GT(same["a"]["bytes"], 0);
    EXPECT_GT(same["b"]["camera"]["nodes_per_ray"], 0.0);
  }
  EXPECT_EQ(run_vqgas(folder.get_path(), {"compare", "cube.obj", "--with", "--structure tree"}).exit_code, 2);
}
