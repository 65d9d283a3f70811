// Rays against shapes whose hits are known in closed form.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "support/test_scale.h"
#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

/// A row of the CSV: 15 fields, the numbers of a hit in `values`; a miss has none.
struct Row {
  std::size_t ray = 0;
  std::vector<double> values;  // distance, primitive, group, u, v, nx, ny, nz, x, y, z
  std::string path, names;
};

std::vector<Row> read_rows(const ProgramResult& result) {
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::istringstream lines(result.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "ray,distance,primitive,group,u,v,nx,ny,nz,x,y,z,path,object,names");
  std::vector<Row> rows;
  while (std::getline(lines, line)) {
    std::vector<std::string> fields;
    std::istringstream text(line + ',');
    for (std::string field; std::getline(text, field, ',');) fields.push_back(field);
    EXPECT_EQ(fields.size(), 15u) << line;
    Row row;
    row.ray = std::stoul(fields[0]);
    for (std::size_t k = 1; k + 3 < fields.size() && !fields[1].empty(); ++k)
      row.values.push_back(std::stod(fields[k]));
    row.path = fields[12];
    row.names = fields[14];
    EXPECT_TRUE(row.names.ends_with(fields[13])) << line;
    rows.push_back(row);
  }
  return rows;
}

}  // namespace

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
    EXPECT_DOUBLE_EQ(rows[row].values[10], primitive == 0 ? 1.0 : 0.0);
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
  const std::string rays =
      "\xEF\xBB\xBFox,oy,oz,dx,dy,dz\r\n\n# towards the cube\n 0, 0.1, 5, 0, 0, -1 \r\n   \n9,9,5,0,0,-1\n";
  const std::vector<Row> rows = read_rows(run_vqgas(folder.get_path(), {"trace", "cube.obj"}, rays));
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_DOUBLE_EQ(rows[0].values.at(0), 4.0);
  EXPECT_TRUE(rows[1].values.empty());
  EXPECT_TRUE(read_rows(run_vqgas(folder.get_path(), {"trace", "cube.obj"}, "")).empty());

  for (const std::string bad : {"0,0,5,0,0\n", "0;0;5;0;0;-1\n", "ray\n", "0,0,5,0,0,-1\n1,2,three,4,5,6\n",
                                "0,0,5,0,0,-1\nox,oy,oz,dx,dy,dz\n"}) {
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

TEST(VqgasTrace, threads_and_structure_do_not_change_a_byte) {
  const TestFolder folder;
  std::ostringstream rays;
  for (uint k = 0; k < scaled(20000, 3000); ++k)
    rays << 6 * std::sin(k) << ',' << 6 * std::cos(k) << ",3," << -std::sin(1.1 * k) << ',' << -std::cos(k)
         << ",-0.5\n";
  const auto trace = [&](std::vector<std::string> arguments, const std::string& text) {
    arguments.insert(arguments.begin(), "trace");
    return run_vqgas(folder.get_path(), arguments, text).out;
  };
  const std::string one = trace({"demo:gallery", "--all", "--threads", "1"}, rays.str());
  EXPECT_GT(one.size(), rays.str().size()) << "most rays hit";
  EXPECT_TRUE(one == trace({"demo:gallery", "--all", "--threads", "3"}, rays.str()));
  EXPECT_TRUE(one == trace({"demo:gallery", "--all", "--structure", "grid"}, rays.str()));
  std::string moving;
  std::istringstream lines(rays.str());
  for (std::string line; std::getline(lines, line);)
    moving += line + ",0,100," + (moving.size() % 2 == 0 ? "0.3\n" : "0.7\n");
  const std::string hits = trace({"demo:mills"}, moving);
  EXPECT_GT(hits.size(), rays.str().size());
  EXPECT_TRUE(hits == trace({"demo:mills", "--structure", "grid"}, moving));
}

TEST(VqgasTrace, displaced_surfaces_have_the_heights_of_the_picture) {
  const TestFolder folder;
  folder.write("square.obj", "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1/1 2/2 3/3 4/4\n");
  write_png(folder.get_path() / "white_above_black.png", 2, {255, 255, 0, 0});
  std::string rays;
  for (int k = 1; k < 20; ++k) rays += "0.37," + std::to_string(0.05 * k) + ",5,0.01,0,-1\n";
  const auto trace = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"trace", "square.obj"});
    return run_vqgas(folder.get_path(), options, rays);
  };
  const ProgramResult image = trace({"--displace", "white_above_black.png", "--bound", "0.25", "--rate", "64"});
  for (const Row& row : read_rows(image)) {
    // A triangle wave over v, with its ends in the middle of the rows.
    const double v = 0.05 * static_cast<double>(row.ray + 1), wave = 1.0 - std::fabs(v - 0.75) * 4.0;
    const double height = v < 0.25 ? -1.0 + (0.25 - v) * 4.0 : wave;
    EXPECT_NEAR(row.values.at(10), 0.25 * height, 0.02) << v;
  }
  write_png_16(folder.get_path() / "deep.png", 0x80C0);
  for (const Row& row : read_rows(trace({"--displace", "deep.png", "--bound", "0.25"})))
    EXPECT_NEAR(row.values.at(10), 0.25 * (2.0 * 0x80C0 / 0xFFFF - 1.0), 1e-6);  // 0x80: 0.0010
  const std::string plain = trace({}).out, noise = trace({"--displace", "noise", "--structure", "grid"}).out;
  EXPECT_NE(noise, plain);
  EXPECT_EQ(noise, trace({"--displace", "noise"}).out);
  for (const Row& row : read_rows(trace({"--displace", "noise"})))
    EXPECT_LE(std::fabs(row.values.at(10)), 0.02 * std::sqrt(2.0)) << row.ray;
}

TEST(VqgasTrace, a_table_is_the_csv_in_columns) {
  const TestFolder folder;
  folder.write("a,b.obj", make_cube_obj(1.0));
  const std::vector<std::string> line = {"trace", "a,b.obj",       "--ray",    "0.25,0.123456789,5,0,0,-1",
                                         "--ray", "9,9,5,0,0,-10", "--format", "table"};
  EXPECT_EQ(
      run_vqgas(folder.get_path(), line).out,
      "ray  distance  primitive  group          u         v  nx  ny  nz     x         y  z  path  object   names\n"
      "  0         4          5      0  0.0632716  0.561728   0   0   1  0.25  0.123457  1     0  a,b.obj  a,b.obj\n"
      "  1         -          -      -          -         -   -   -   -     -         -  -     -  -        -\n");
}
