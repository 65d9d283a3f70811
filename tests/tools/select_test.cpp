// Cubes on a grid, each a file and so an object, against where their corners lie.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tools/run_program.h"

namespace {

struct Point {
  double x, y, z;
};

constexpr double half_side = 0.2;
constexpr int columns = 5, rows = 4;

/// In a plane that lies slanted to the view.
Point get_center(int cube) { return {cube % columns - 2.0, cube / columns - 1.5, -0.4 * (cube % columns)}; }

std::string get_name(int cube) { return std::string("cube").append(std::to_string(cube)).append(".obj"); }

std::string make_cube_at(const Point& center) {
  std::ostringstream obj;
  for (int corner = 0; corner < 8; ++corner) {
    const auto shift = [&](int bit) { return corner >> bit & 1 ? half_side : -half_side; };
    obj << "v " << center.x + shift(0) << ' ' << center.y + shift(1) << ' ' << center.z + shift(2) << '\n';
  }
  obj << "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n";
  return obj.str();
}

std::set<int> select(const TestFolder& folder, std::vector<std::string> options) {
  std::vector<std::string> arguments = {"select"};
  for (int cube = 0; cube < columns * rows; ++cube) arguments.push_back(get_name(cube));
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.insert(arguments.end(), {"--json", "-"});
  const ProgramResult result = run_vqgas(folder.get_path(), arguments);
  EXPECT_EQ(result.exit_code, 0) << result.err;
  std::set<int> found;
  const auto report = nlohmann::json::parse(result.out);
  for (const auto& object : report["selected"]) {
    found.insert(object["object"].get<int>());
    EXPECT_EQ(object["name"], arguments[1 + object["object"].get<std::size_t>()]);
  }
  return found;
}

}  // namespace

TEST(VqgasSelect, cubes_in_a_rectangle_or_a_box_are_those_whose_corners_say_so) {
  const TestFolder folder;
  for (int cube = 0; cube < columns * rows; ++cube) folder.write(get_name(cube), make_cube_at(get_center(cube)));
  // From (0, 0, 6) towards -z, 400 x 300 pixels, 60 degrees high.
  const double scale = 150.0 / std::tan(std::acos(-1.0) / 6.0);
  const double left = 73.0, right = 261.0, top = 91.0, bottom = 233.0, near = 5.5, far = 7.1;
  std::set<int> any, all;
  for (int cube = 0; cube < columns * rows; ++cube) {
    const Point c = get_center(cube);
    int inside = 0;
    for (int corner = 0; corner < 8; ++corner) {
      const double depth = 6.0 - c.z + (corner & 4 ? half_side : -half_side);
      const double x = 200.0 + (c.x + (corner & 1 ? half_side : -half_side)) / depth * scale;
      const double y = 150.0 - (c.y + (corner & 2 ? half_side : -half_side)) / depth * scale;
      inside += x > left && x < right && y > top && y < bottom && depth > near && depth < far;
    }
    if (inside == 8) all.insert(cube);
    if (inside > 0) any.insert(cube);  // the space is too wide for a cube to touch it without a corner in it
  }
  EXPECT_FALSE(all.empty());
  EXPECT_GT(any.size(), all.size());
  const auto with_mode = [&](const std::string& mode) {
    return std::vector<std::string>{"--camera", "0,0,6/0,0,0/0,1,0/60",
                                    "--size",   "400x300",
                                    "--rect",   "73,91,261,233",
                                    "--near",   "5.5",
                                    "--far",    "7.1",
                                    "--mode",   mode};
  };
  EXPECT_EQ(select(folder, with_mode("any")), any);
  EXPECT_EQ(select(folder, with_mode("all")), all);
  EXPECT_EQ(select(folder, {"--box", "-2.5,-2,-1/0.1,-0.1,1", "--mode", "any"}), (std::set<int>{0, 1, 2, 5, 6, 7}));
  EXPECT_EQ(select(folder, {"--box", "-2.5,-2,-1.1/0.1,-0.1,1", "--mode", "all"}), (std::set<int>{0, 1, 5, 6}));
  EXPECT_EQ(select(folder, {"--box", "-2.5,-2,-1.1/0.1,-0.1,1", "--mode", "all", "--structure", "grid"}),
            (std::set<int>{0, 1, 5, 6}));
  EXPECT_EQ(select(folder, {"--box", "9,9,9/10,10,10", "--mode", "any"}), std::set<int>{});

  const ProgramResult csv = run_vqgas(folder.get_path(), {"select", "cube3.obj", "-o", "seen.png"});
  EXPECT_EQ(csv.out, "object,name\n0,cube3.obj\n");
  EXPECT_TRUE(std::filesystem::exists(folder.get_path() / "seen.png"));
}
