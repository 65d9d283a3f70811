// Point clouds that the test makes itself, seen, selected and met by beams, against the same computed one by one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>

#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

struct Point {
  float x, y, z;
};

/// In a cube around the origin, well inside it.
std::vector<Point> make_points(std::size_t count, float half_side) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> place(-half_side, half_side);
  std::vector<Point> points(count);
  for (Point& point : points) point = {place(random), place(random), place(random)};
  return points;
}

std::string print_xyz(const std::vector<Point>& points) {
  std::ostringstream text;
  text.precision(9);
  for (const Point& p : points) text << p.x << ' ' << p.y << ' ' << p.z << '\n';
  return text.str();
}

constexpr int width = 64, height = 48;

/// From (0, 0, 5) towards -z, 60 degrees high.
const std::vector<std::string> view = {"--camera", "0,0,5/0,0,0/0,1,0/60", "--size", "64x48"};

struct Pixel {
  double column, row, depth;
  double t;  ///< along the beam through the middle of the pixel
  explicit Pixel(const Point& p) : depth(5.0 - double(p.z)) {
    const double tangent = std::tan(std::acos(-1.0) / 6.0) / (0.5 * height);
    column = 0.5 * width + double(p.x) / (depth * tangent);
    row = 0.5 * height - double(p.y) / (depth * tangent);
    const double x = (std::floor(column) + 0.5 - 0.5 * width) * tangent;
    const double y = (0.5 * height - std::floor(row) - 0.5) * tangent;
    t = (double(p.x) * x + double(p.y) * y + depth) / (x * x + y * y + 1.0);
  }
  int get_number() const { return static_cast<int>(row) * width + static_cast<int>(column); }
};

std::vector<std::string> join(std::vector<std::string> first, const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

TEST(VqgasPoints, each_pixel_shows_its_nearest_point_in_front_of_the_mesh) {
  const TestFolder folder;
  const std::vector<Point> points = make_points(3000, 1.2f);
  folder.write("cloud.xyz", print_xyz(points));
  folder.write("wall.obj", "v -9 -9 0\nv 9 -9 0\nv 9 9 0\nv -9 9 0\nf 1 2 3 4\n");
  const std::vector<std::string> rest = join({"--layers", "beauty,depth,position,object,point,weight,count",
                                              "--point-size", "0.1", "--samples", "1", "--quiet", "-o", "seen.exr"},
                                             view);
  for (const bool has_wall : {false, true}) {
    const std::vector<std::string> files = {"render", "cloud.xyz", "wall.obj"};
    const ProgramResult result =
        run_vqgas(folder.get_path(), join({files.begin(), files.end() - (has_wall ? 0 : 1)}, rest));
    ASSERT_EQ(result.exit_code, 0) << result.err;
    std::map<int, std::pair<double, std::size_t>> nearest;
    std::set<int> close;  // pixels where rounding may decide
    for (std::size_t k = 0; k < points.size(); ++k) {
      const Pixel at(points[k]);
      if (std::fabs(at.column - std::round(at.column)) + std::fabs(at.row - std::round(at.row)) < 1e-3)
        close.insert(at.get_number());
      if (has_wall && at.t > 5.0) continue;
      const auto place = nearest.insert({at.get_number(), {at.t, k}}).first;
      place->second = std::min(place->second, {at.t, k});
    }
    EXPECT_GT(nearest.size(), 400u);
    const ExrFile exr = read_exr(folder.get_path() / "seen.exr");
    for (int pixel = 0; pixel < width * height; ++pixel) {
      SCOPED_TRACE(testing::Message() << has_wall << ": " << pixel % width << ", " << pixel / width);
      if (close.contains(pixel)) continue;
      const auto number = [&](const char* name) { return exr.numbers.at(name)[static_cast<std::size_t>(pixel)]; };
      const auto value = [&](const char* name) { return exr.values.at(name)[static_cast<std::size_t>(pixel)]; };
      ASSERT_EQ(number("count"), has_wall ? 1u : 0u);
      const auto found = nearest.find(pixel);
      const bool is_behind = has_wall && found != nearest.end() && points[found->second.second].z < 0.0f;
      if (found == nearest.end() || is_behind) {
        ASSERT_EQ(number("point"), 0xFFFFFFFFu);
        ASSERT_EQ(number("object"), has_wall ? 1u : 0xFFFFFFFFu);
        ASSERT_EQ(value("Z"), has_wall ? 5.0f : INFINITY);
        ASSERT_EQ(value("A"), has_wall ? 1.0f : 0.0f);
        continue;
      }
      ASSERT_EQ(number("point"), found->second.second);
      ASSERT_EQ(number("object"), 0u);
      ASSERT_NEAR(value("Z"), 5.0f - points[found->second.second].z, 1e-5f);
      ASSERT_NEAR(value("P.X"), points[found->second.second].x, 1e-5f);
      ASSERT_EQ(value("A"), 1.0f);
      ASSERT_GE(value("weight"), 0.0f);
      ASSERT_LE(value("weight"), 1.0f);
    }
  }
}

TEST(VqgasPoints, discs_are_as_large_as_their_radii_and_have_the_colors_of_the_file) {
  const TestFolder folder;
  // The second is nearer and covers half of the first; the third fills the picture from far behind.
  folder.write("balls.csv",
               "x,y,z,r,g,b,radius\n0,0,0,255,0,0,0.5\n0.5,0,1,0,255,0,0.4\n-1,0,-2,0,0,255,90\nnan,0,0,1,1,1,1\n");
  const ProgramResult result =
      run_vqgas(folder.get_path(), join({"render", "balls.csv", "--layers", "beauty,point", "-o", "b.exr"}, view));
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const ExrFile exr = read_exr(folder.get_path() / "b.exr");
  const Pixel first({0, 0, 0}), second({0.5f, 0, 1});
  const double scale = 0.5 * height / std::tan(std::acos(-1.0) / 6.0);
  const auto is_in = [&](const Pixel& disc, double radius, int pixel, double margin) {
    return std::hypot(pixel % width + 0.5 - disc.column, pixel / width + 0.5 - disc.row) <
           radius * scale / disc.depth + margin;
  };
  int seen[3] = {0, 0, 0};
  for (int pixel = 0; pixel < width * height; ++pixel) {
    const std::uint32_t point = exr.numbers.at("point")[static_cast<std::size_t>(pixel)];
    ASSERT_LT(point, 3u);
    ++seen[point];
    const auto at = [&](const char* name) { return exr.values.at(name)[static_cast<std::size_t>(pixel)]; };
    const float color[3] = {at("R"), at("G"), at("B")};
    for (std::uint32_t channel = 0; channel < 3; ++channel) ASSERT_EQ(color[channel] > 0.1f, channel == point);
    if (is_in(second, 0.4, pixel, -0.01)) {
      ASSERT_EQ(point, 1u);
    } else if (!is_in(second, 0.4, pixel, 0.01)) {
      const bool is_first = is_in(first, 0.5, pixel, 0.0);
      if (is_first == is_in(first, 0.5, pixel, is_first ? -0.01 : 0.01)) {
        ASSERT_EQ(point, is_first ? 0u : 2u);
      }
    }
  }
  EXPECT_GT(std::min({seen[0], seen[1], seen[2]}), 20);
  EXPECT_NE(result.err.find("1 of 4 points are not finite"), std::string::npos) << result.err;
}

TEST(VqgasPoints, selection_is_that_of_every_point_by_itself) {
  const TestFolder folder;
  const std::vector<Point> points = make_points(2000, 1.0f);
  folder.write("a.xyz", print_xyz(points));
  folder.write("b.csv", "y,x,z,r,g,b\n50,60,70,255,128,0\n0.25,0.25,0.25,255,128,0\n");
  const std::vector<std::string> box = {"--box", "-0.5,-0.25,0/0.5,0.5,0.75"};
  std::vector<std::string> expected;
  for (std::size_t k = 0; k < points.size(); ++k) {
    const Point& p = points[k];
    if (p.x >= -0.5f && p.x <= 0.5f && p.y >= -0.25f && p.y <= 0.5f && p.z >= 0.0f && p.z <= 0.75f)
      expected.push_back("0," + std::to_string(k));
  }
  EXPECT_GT(expected.size(), 50u);
  expected.push_back("1,1");
  const ProgramResult listed =
      run_vqgas(folder.get_path(), join({"select", "a.xyz", "b.csv", "--mode", "vertices"}, box));
  std::istringstream lines(listed.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "object,point,x,y,z");
  std::vector<std::string> found;
  while (std::getline(lines, line)) found.push_back(line.substr(0, line.find(',', line.find(',') + 1)));
  EXPECT_EQ(found, expected);

  ASSERT_EQ(
      run_vqgas(
          folder.get_path(),
          join({"select", "a.xyz", "b.csv", "--mode", "points", "-o", "part.ply", "-o", "part.png", "--quiet"}, box))
          .out,
      "object,name\n0,a.xyz\n1,b.csv\n");
  // What was written is a cloud, all of it in the box; the last point has its color.
  const ProgramResult again = run_vqgas(folder.get_path(), join({"select", "part.ply", "--mode", "points"}, box));
  EXPECT_EQ(static_cast<std::size_t>(std::count(again.out.begin(), again.out.end(), '\n')), expected.size() + 1);
  EXPECT_NE(again.out.find("\n0.25,0.25,0.25\n"), std::string::npos);
  EXPECT_EQ(folder.read("part.ply").substr(folder.read("part.ply").size() - 11, 3), std::string("\xff\x80\x00", 3));

  const auto list = [&](const char* mode, const std::string& file) {
    return run_vqgas(folder.get_path(), join({"select", file, "--mode", mode}, box)).out;
  };
  EXPECT_EQ(list("any", "a.xyz"), "object,name\n0,a.xyz\n");
  EXPECT_EQ(list("all", "a.xyz"), "object,name\n");
  EXPECT_EQ(list("all", "part.ply"), "object,name\n0,part.ply\n");
  EXPECT_EQ(run_vqgas(folder.get_path(), {"select", "a.xyz", "-o", "x.ply"}).exit_code, 2);
}

TEST(VqgasPoints, beams_find_the_nearest_point_between_their_sides) {
  const TestFolder folder;
  const std::vector<Point> points = make_points(3000, 1.0f);
  folder.write("cloud.xyz", print_xyz(points));
  std::ostringstream angles, widths;
  std::vector<std::string> expected[2];
  for (int beam = 0; beam < 40; ++beam) {
    const double x = -0.8 + 0.04 * beam, y = 0.6 - 0.031 * beam, tnear = 0.05 * beam;
    // Twice as long a direction as t is in units of.
    angles << x << ',' << y << ",3,0,0,-2,4," << tnear << ",2\n";
    widths << x << ',' << y << ",3,0,0,-2,-0.1,-0.05,0,0.1,-0.05,0,0.1,0.05,0,-0.1,0.05,0," << tnear << ",2\n";
    for (const bool is_parallel : {false, true}) {
      std::pair<double, std::size_t> nearest(2.0, points.size());
      for (std::size_t k = 0; k < points.size(); ++k) {
        const double depth = 3.0 - double(points[k].z), t = 0.5 * depth;
        const double half = depth * std::tan(std::acos(-1.0) / 90.0);
        const double across = std::fabs(double(points[k].x) - x), up = std::fabs(double(points[k].y) - y);
        if (is_parallel ? across > 0.1 || up > 0.05 : across > half || up > half) continue;
        if (t >= tnear) nearest = std::min(nearest, {t, k});
      }
      expected[is_parallel].push_back(std::to_string(beam) +
                                      (nearest.second < points.size() ? ",0," + std::to_string(nearest.second) : ",,"));
    }
  }
  for (const bool is_parallel : {false, true}) {
    std::vector<std::string> arguments = {"beam", "cloud.xyz"};
    if (is_parallel) arguments.push_back("--parallel");
    const ProgramResult result = run_vqgas(folder.get_path(), arguments, is_parallel ? widths.str() : angles.str());
    ASSERT_EQ(result.exit_code, 0) << result.err;
    std::istringstream lines(result.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "beam,object,point,t,weight,x,y,z");
    std::vector<std::string> found;
    while (std::getline(lines, line)) {
      std::size_t end = 0;
      for (int comma = 0; comma < 3; ++comma) end = line.find(',', end + (comma > 0));
      found.push_back(line.substr(0, end));
    }
    EXPECT_EQ(found, expected[is_parallel]);
  }
  for (const char* beam : {"0,0,3,0,0,0,1", "0,0,3,0,0,-1,180", "0,0,3,0,0,-1"}) {
    const ProgramResult result = run_vqgas(folder.get_path(), {"beam", "cloud.xyz", "--beam", beam});
    EXPECT_EQ(result.exit_code, 2) << beam;
  }
  // Rays pass between points.
  EXPECT_EQ(run_vqgas(folder.get_path(), {"trace", "cloud.xyz", "--ray", "0,0,3,0,0,-1"}).out,
            "ray,distance,primitive,group,u,v,nx,ny,nz,x,y,z,path,object,names\n0,,,,,,,,,,,,,,\n");
}

TEST(VqgasPoints, info_counts_them_and_particles_move_with_their_object) {
  const TestFolder folder;
  folder.write("cloud.xyz", print_xyz(make_points(500, 1.0f)) + "nan 0 0\n");
  folder.write("none.xyz", "nan 0 0\n");
  const ProgramResult result =
      run_vqgas(folder.get_path(), {"info", "cloud.xyz", "--threads", "1", "--json", "-", "--quiet"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const auto report = nlohmann::json::parse(result.out)[0];
  EXPECT_EQ(report["points"], 501);
  EXPECT_EQ(report["finite"], 500);
  EXPECT_EQ(report["grid"]["built_before_beams"], 0);
  EXPECT_EQ(report["grid"]["built_after_beams"], report["grid"]["parts"]);
  EXPECT_GT(report["bytes_per_point"]["sum"], 12.0);
  const ProgramResult mixed =
      run_vqgas(folder.get_path(), {"info", "demo:snow", "--structure", "grid", "--json", "-", "--quiet"});
  ASSERT_EQ(mixed.exit_code, 0) << mixed.err;
  const auto clouds = nlohmann::json::parse(mixed.out)[0]["clouds"];
  EXPECT_EQ(clouds.size(), 3u);
  for (const auto& cloud : clouds)
    EXPECT_EQ(cloud["grid"]["built_before_beams"], 0) << "the rays that build the meshes' parts come later";
  const ProgramResult empty = run_vqgas(folder.get_path(), {"info", "none.xyz"});
  EXPECT_EQ(empty.exit_code, 1);
  EXPECT_EQ(empty.err, "vqgas: none.xyz: holds no finite point\n");

  // Snow falls: each flake by 0.6 within half a frame.
  const auto get_heights = [&](const char* frame) {
    const ProgramResult found = run_vqgas(folder.get_path(), {"select", "demo:snow", "--mode", "vertices", "--box",
                                                              "-50,-50,-50/50,50,50", "--frame", frame});
    std::map<std::string, double> heights;
    std::istringstream lines(found.out);
    std::string object, point, x, y, z;
    std::getline(lines, z);
    while (std::getline(lines, object, ',') && std::getline(lines, point, ',') && std::getline(lines, x, ',') &&
           std::getline(lines, y, ',') && std::getline(lines, z))
      heights[object + "," + point] = std::stod(y);
    return heights;
  };
  const std::map<std::string, double> early = get_heights("0"), late = get_heights("0.5");
  ASSERT_GT(early.size(), 40000u);
  ASSERT_EQ(early.size(), late.size());
  for (const auto& [flake, height] : early) ASSERT_NEAR(late.at(flake), height - 0.6, 1e-6) << flake;
}
