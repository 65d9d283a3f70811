// Hair from files and from groom: what is read, grown, reported, traced and seen.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <numbers>
#include <set>
#include <sstream>

#include "tools/hair_bytes.h"
#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

nlohmann::json get_report(const TestFolder& folder, std::vector<std::string> line) {
  line.insert(line.begin(), "info");
  line.insert(line.end(), {"--json", "-"});
  const ProgramResult result = run_vqgas(folder.get_path(), line);
  EXPECT_EQ(result.exit_code, 0) << result.err;
  return nlohmann::json::parse(result.out);
}

}  // namespace

TEST(VqgasHair, grown_fur_stands_on_the_mesh_evenly_and_is_the_same_for_any_number_of_threads) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  const auto grow = [&](const std::string& threads, const std::string& seed) {
    const ProgramResult result = run_vqgas(
        folder.get_path(), {"groom", "cube.obj", "-o", "fur.hair", "--density", "500", "--points", "6", "--length",
                            "0.1", "--thickness", "0.001", "--threads", threads, "--seed", seed, "--quiet"});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return folder.read("fur.hair");
  };
  const std::string bytes = grow("1", "5");
  EXPECT_TRUE(bytes == grow("3", "5"));
  EXPECT_FALSE(bytes == grow("1", "6"));

  HairBytes fur;
  ASSERT_TRUE(fur.read(bytes));
  ASSERT_EQ(fur.hairs, 12000u) << "500 strands a unit of the cube's 24";
  const double diagonal = std::sqrt(12.0);
  std::array<int, 6> on_side = {};
  for (std::size_t strand = 0; strand < fur.hairs; ++strand) {
    ASSERT_EQ(fur.segments[strand], 5u);
    const auto& root = fur.positions[6 * strand];
    int sides = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      ASSERT_LE(std::fabs(root[axis]), 1.0f);
      if (std::fabs(root[axis]) == 1.0f) ++sides, ++on_side[2 * axis + (root[axis] > 0.0f)];
    }
    ASSERT_GE(sides, 1) << "root " << strand << " hangs in the air";
    double length = 0.0;
    for (std::size_t k = 1; k < 6; ++k) {
      const auto &a = fur.positions[6 * strand + k - 1], &b = fur.positions[6 * strand + k];
      length += std::hypot(b[0] - a[0], b[1] - a[1], b[2] - a[2]);
    }
    ASSERT_GT(length, 0.04 * diagonal);
    ASSERT_LT(length, 0.16 * diagonal);
    ASSERT_FLOAT_EQ(fur.thickness[6 * strand], static_cast<float>(0.001 * diagonal));
  }
  for (const int count : on_side) EXPECT_NEAR(count, 2000, 3);
}

TEST(VqgasHair, info_counts_what_the_file_holds) {
  const TestFolder folder;
  HairBytes hair;
  folder.write("two.hair", hair.write());
  hair.positions[1][2] = NAN;
  folder.write("nan.hair", hair.write());
  hair = HairBytes();
  hair.arrays = 2;
  hair.hairs = 1, hair.default_segments = 4;
  folder.write("defaults.hair", hair.write());
  folder.write("text.curves",
               "# two strands\n0 0 0 1\n0 1 0 1 # radius\n# same strand\n0 2 0 1\n\n\n5 0 0 1\n5 1 0 0\n");
  const auto report = get_report(folder, {"two.hair", "nan.hair", "defaults.hair", "text.curves", "--linear"});
  const std::array<std::array<int, 4>, 4> expected = {{{2, 3, 3, 0}, {2, 3, 2, 1}, {1, 4, 4, 0}, {2, 3, 3, 0}}};
  for (std::size_t k = 0; k < expected.size(); ++k) {
    SCOPED_TRACE(report[k]["file"]);
    EXPECT_EQ(report[k]["kind"], "hair");
    EXPECT_EQ(report[k]["shape"], "linear");
    EXPECT_EQ(report[k]["strands"], expected[k][0]);
    EXPECT_EQ(report[k]["primitives"]["in_file"], expected[k][1]);
    EXPECT_EQ(report[k]["primitives"]["kept"], expected[k][2]);
    EXPECT_EQ(report[k]["primitives"]["dropped"], expected[k][3]);
  }
  EXPECT_FLOAT_EQ(report[0]["box"]["max"][0], 1.1f) << "thickness is a diameter";
  EXPECT_FLOAT_EQ(report[2]["box"]["max"][0], 1.05f) << "the header's thickness";
  EXPECT_FLOAT_EQ(report[3]["box"]["max"][1], 3.0f);
}

TEST(VqgasHair, pictures_show_mesh_and_hair_together_where_they_are) {
  // A cylinder of radius 0.2 around the y axis, of five segments between six points, before a square at z = -1.
  const TestFolder folder;
  folder.write("square.obj", "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nf 1 2 3 4\n");
  folder.write("tube.curves", "0 -3 0 .2\n0 -1.8 0 .2\n0 -.6 0 .2\n0 .6 0 .2\n0 1.8 0 .2\n0 3 0 .2\n");
  constexpr int width = 96, height = 64;
  for (const std::string shape : {"--linear", "--quiet"}) {
    ASSERT_EQ(run_vqgas(folder.get_path(),
                        {"render", "square.obj", "tube.curves", "-o", "t.exr", "--camera", "0,0,5/0,0,0/0,1,0/60",
                         "--size", "96x64", "--layers", "depth,normal,primitive,group,uv,count,beauty", shape})
                  .exit_code,
              0);
    const ExrFile exr = read_exr(folder.get_path() / "t.exr");
    std::array<int, 3> seen = {};
    for (int pixel = 0; pixel < width * height; ++pixel) {
      const auto at = static_cast<std::size_t>(pixel);
      SCOPED_TRACE(testing::Message() << pixel % width << ", " << pixel / width);
      const double scale = std::tan(std::numbers::pi / 6.0) / (0.5 * height);
      const double x = (pixel % width + 0.5 - 0.5 * width) * scale, y = (0.5 * height - pixel / width - 0.5) * scale;
      // The ray (0, 0, 5) + t (x, y, -1) and the circle of radius 0.2 around the origin of the plane x, z.
      const double half = 25.0 - (1.0 + x * x) * (25.0 - 0.04);
      const bool on_tube = half > 0.0, on_square = std::fmax(std::fabs(x), std::fabs(y)) * 6.0 < 1.0;
      const auto value = [&](const char* channel) { return exr.values.at(channel)[at]; };
      const auto number = [&](const char* channel) { return exr.numbers.at(channel)[at]; };
      ++seen[on_tube ? 2 : on_square ? 1 : 0];
      if (!on_tube) {
        EXPECT_EQ(number("primitive"), on_square ? 0u : 0xFFFFFFFFu);
        EXPECT_EQ(number("group"), on_square ? 0u : 0xFFFFFFFFu);
        continue;
      }
      const double depth = (5.0 - std::sqrt(half)) / (1.0 + x * x), along = (depth * y + 3.0) / 1.2;
      EXPECT_NEAR(value("Z"), depth, 1e-5);
      EXPECT_NEAR(value("N.X"), depth * x / 0.2, 1e-4);
      EXPECT_NEAR(value("N.Y"), 0.0, 1e-4);
      EXPECT_NEAR(value("UV.U"), along / 5.0, 1e-4);
      const bool near_joint = std::fabs(along - std::round(along)) < 0.01;
      EXPECT_TRUE(near_joint || number("primitive") == 1u + static_cast<unsigned>(along));
      EXPECT_EQ(number("group"), 1u);
      EXPECT_GE(number("count"), on_square ? 2u : 1u);
    }
    for (const int count : seen) EXPECT_GT(count, 50);
  }
}
