// Rays against shapes whose hits are known in closed form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include "tools/run_program.h"

namespace {

/// A row of the CSV: 13 fields, the numbers of a hit in `values`; a miss has none.
struct Row {
  std::size_t ray = 0;
  std::vector<double> values;  // distance, primitive, group, u, v, nx, ny, nz, x, y, z
  std::string path;
};

std::vector<Row> read_rows(const ProgramResult& result) {
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::istringstream lines(result.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "ray,distance,primitive,group,u,v,nx,ny,nz,x,y,z,path");
  std::vector<Row> rows;
  while (std::getline(lines, line)) {
    std::vector<std::string> fields;
    std::istringstream text(line + ',');
    for (std::string field; std::getline(text, field, ',');) fields.push_back(field);
    EXPECT_EQ(fields.size(), 13u) << line;
    Row row;
    row.ray = std::stoul(fields[0]);
    for (std::size_t k = 1; k + 1 < fields.size() && !fields[1].empty(); ++k)
      row.values.push_back(std::stod(fields[k]));
    row.path = fields.back();
    rows.push_back(row);
  }
  return rows;
}

struct Ray {
  double origin[3], direction[3];
};

std::string print_rays(const std::vector<Ray>& rays) {
  std::ostringstream text;
  text.precision(17);
  for (const Ray& ray : rays) {
    for (const double value : ray.origin) text << value << ", ";
    text << ray.direction[0] << ',' << ray.direction[1] << ',' << ray.direction[2] << '\n';
  }
  return text.str();
}

/// Where a ray crosses the surface of the cube of that half side, by slabs; `face` counts -x +x -y +y -z +z.
struct Crossing {
  double distance;
  int face;
};
struct CubeHits {
  Crossing enter{-std::numeric_limits<double>::infinity(), -1}, leave{std::numeric_limits<double>::infinity(), -1};
  bool is_hit() const { return enter.distance < leave.distance && enter.distance > 0.0; }
};
CubeHits cross_cube(const Ray& ray, double half_side) {
  CubeHits hits;
  for (int axis = 0; axis < 3; ++axis) {
    const double low = (-half_side - ray.origin[axis]) / ray.direction[axis];
    const double high = (half_side - ray.origin[axis]) / ray.direction[axis];
    const bool upwards = ray.direction[axis] > 0.0;
    if (std::fmin(low, high) > hits.enter.distance) hits.enter = {std::fmin(low, high), 2 * axis + (upwards ? 0 : 1)};
    if (std::fmax(low, high) < hits.leave.distance) hits.leave = {std::fmax(low, high), 2 * axis + (upwards ? 1 : 0)};
  }
  return hits;
}

/// Rays from outside, aimed near the origin; about half of them hit a cube of half side 1.
std::vector<Ray> make_rays(std::size_t count) {
  std::mt19937 random(20);
  std::normal_distribution<double> normal;
  std::vector<Ray> rays(count);
  for (Ray& ray : rays) {
    double length = 0.0;
    for (double& value : ray.origin) value = normal(random), length += value * value;
    for (double& value : ray.origin) value *= 6.0 / std::sqrt(length);
    for (int axis = 0; axis < 3; ++axis) ray.direction[axis] = 0.37 * (1.2 * normal(random) - ray.origin[axis]);
  }
  return rays;
}

}  // namespace

TEST(VqgasTrace, hits_of_nested_cubes_are_those_of_the_closed_form) {
  constexpr int cubes = 7;
  std::string obj;
  for (int cube = 0; cube < cubes; ++cube) obj += make_cube_obj(0.25 * (cube + 1), 8 * cube + 1);
  const TestFolder folder;
  folder.write("cubes.obj", obj);
  const std::vector<Ray> rays = make_rays(3000);
  const std::string input = print_rays(rays);
  std::vector<std::vector<Row>> found(rays.size());
  for (const Row& row : read_rows(run_vqgas(folder.get_path(), {"trace", "cubes.obj", "--all"}, input)))
    found.at(row.ray).push_back(row);
  const std::vector<Row> nearest = read_rows(run_vqgas(folder.get_path(), {"trace", "cubes.obj"}, input));
  ASSERT_EQ(nearest.size(), rays.size());
  std::size_t misses = 0;
  for (std::size_t k = 0; k < rays.size(); ++k) {
    SCOPED_TRACE(print_rays({rays[k]}));
    std::vector<std::pair<double, int>> expected;
    for (int cube = 0; cube < cubes; ++cube) {
      const CubeHits hits = cross_cube(rays[k], 0.25 * (cube + 1));
      if (!hits.is_hit()) continue;
      expected.emplace_back(hits.enter.distance, 6 * cube + hits.enter.face);
      expected.emplace_back(hits.leave.distance, 6 * cube + hits.leave.face);
    }
    std::sort(expected.begin(), expected.end());
    misses += expected.empty();
    ASSERT_EQ(found[k].size(), std::max<std::size_t>(expected.size(), 1));  // a miss has a row, without numbers
    ASSERT_EQ(found[k][0].values.empty(), expected.empty());
    EXPECT_EQ(nearest[k].ray, k);
    EXPECT_EQ(nearest[k].values, found[k][0].values);
    for (std::size_t h = 0; h < expected.size(); ++h) {
      const std::vector<double>& hit = found[k][h].values;
      const auto [distance, primitive] = expected[h];
      EXPECT_NEAR(hit[0], distance, 1e-12 * distance);
      EXPECT_EQ(hit[1], primitive);
      for (int axis = 0; axis < 3; ++axis) {
        const double outward = primitive % 6 / 2 == axis ? (primitive % 2 == 0 ? -1.0 : 1.0) : 0.0;
        EXPECT_NEAR(hit[5 + axis], outward, 1e-12);
        EXPECT_NEAR(hit[8 + axis], rays[k].origin[axis] + distance * rays[k].direction[axis], 1e-11);
      }
    }
  }
  EXPECT_GT(misses, 0u);
  EXPECT_LT(misses, rays.size() / 2);
}

TEST(VqgasTrace, polygons_keep_their_number_in_the_file_and_their_concave_outline) {
  // An L of six corners between two plain squares; the second is a group of its own.
  const TestFolder folder;
  folder.write("shapes.obj",
               "v 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
               "v 0 0 0\nv 3 0 0\nv 3 1 0\nv 1 1 0\nv 1 3 0\nv 0 3 0\n"
               "v 5 0 0\nv 6 0 0\nv 6 1 0\nv 5 1 0\n"
               "f 1 2 3 4\nf 5 6 7 8 9 10\no other\nf 11 12 13 14\n");
  const std::vector<Row> rows = read_rows(run_vqgas(
      folder.get_path(), {"trace", "shapes.obj", "--all", "--ray", "0.5,0.5,5,0,0,-2", "--ray", "0.5,2.5,5,0,0,-1",
                          "--ray", "2.5,0.5,5,0,0,-1", "--ray", "2,2,5,0,0,-1", "--ray", "5.5,0.5,-1,0,0,1"}));
  ASSERT_EQ(rows.size(), 6u);
  const auto expect_hit = [&](std::size_t row, std::size_t ray, double distance, int primitive, int group) {
    ASSERT_EQ(rows[row].values.size(), 11u);
    EXPECT_EQ(rows[row].ray, ray);
    EXPECT_DOUBLE_EQ(rows[row].values[0], distance);
    EXPECT_EQ(rows[row].values[1], primitive);
    EXPECT_EQ(rows[row].values[2], group);
    EXPECT_DOUBLE_EQ(rows[row].values[7], 1.0);  // normals are those of the winding, whatever side is hit
  };
  expect_hit(0, 0, 2.0, 0, 0);
  expect_hit(1, 0, 2.5, 1, 0);
  expect_hit(2, 1, 5.0, 1, 0);
  expect_hit(3, 2, 5.0, 1, 0);
  EXPECT_TRUE(rows[4].values.empty());
  expect_hit(5, 4, 1.0, 2, 1);
}

TEST(VqgasTrace, rays_on_standard_input_may_have_a_header_and_blank_lines) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  const std::string rays = "ox,oy,oz,dx,dy,dz\r\n\n# towards the cube\n 0, 0.1, 5, 0, 0, -1 \r\n   \n9,9,5,0,0,-1\n";
  const std::vector<Row> rows = read_rows(run_vqgas(folder.get_path(), {"trace", "cube.obj"}, rays));
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_DOUBLE_EQ(rows[0].values.at(0), 4.0);
  EXPECT_TRUE(rows[1].values.empty());
  EXPECT_TRUE(read_rows(run_vqgas(folder.get_path(), {"trace", "cube.obj"}, "")).empty());

  for (const std::string bad :
       {"0,0,5,0,0\n", "0,0,5,0,0,-1\n1,2,three,4,5,6\n", "0,0,5,0,0,-1\nox,oy,oz,dx,dy,dz\n"}) {
    const ProgramResult result = run_vqgas(folder.get_path(), {"trace", "cube.obj"}, bad);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.count_error_lines(), 1u);
    const std::string line = bad.find('\n') + 1 == bad.size() ? "line 1" : "line 2";
    EXPECT_NE(result.err.find("standard input: " + line), std::string::npos) << result.err;
  }
}

TEST(VqgasTrace, rays_see_a_moving_mesh_at_their_own_times) {
  // The ball of the pond rests at (-0.5, 0.75, 0.4) with radius 0.55 and flies along (0.55 t, 1.6 t - t^2, 0).
  const TestFolder folder;
  std::ostringstream rays;
  const std::vector<double> times = {0.0, 0.25, 0.5, 0.8125, 1.0};
  for (const double t : times) rays << -0.45 + 0.55 * t << ",9,0.45,0,-1,0,0,100," << t << "\n";
  const std::vector<Row> rows = read_rows(run_vqgas(folder.get_path(), {"trace", "demo:wave"}, rays.str()));
  ASSERT_EQ(rows.size(), times.size());
  const double rise = std::sqrt(0.55 * 0.55 - 2 * 0.05 * 0.05);
  for (std::size_t k = 0; k < times.size(); ++k) {
    const double top = 0.75 + 1.6 * times[k] - times[k] * times[k] + rise;
    EXPECT_NEAR(rows[k].values.at(9), top, 0.006) << times[k];  // the ball has flat faces, the path straight pieces
  }
}

TEST(VqgasTrace, threads_do_not_change_a_byte) {
  const TestFolder folder;
  const std::string text = print_rays(make_rays(20000));
  const std::string one = run_vqgas(folder.get_path(), {"trace", "demo:gallery", "--all", "--threads", "1"}, text).out;
  EXPECT_GT(one.size(), 100000u);
  EXPECT_EQ(one, run_vqgas(folder.get_path(), {"trace", "demo:gallery", "--all", "--threads", "3"}, text).out);
}
