// Scatter files: what `vqgas scatter` writes, and what the other subcommands make of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

using Json = nlohmann::json;
using Point = std::array<double, 3>;

constexpr std::array<Point, 4> corners = {{{0, 0, 0}, {0.3, 0, 0}, {0, 0.5, 0}, {0, 0, 0.4}}};
constexpr int faces[4][3] = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
constexpr double slope = 0.75;  // of the ground, along x

/// A tetrahedron, and a slope of 10 x 10 on the plan, of one large and many small triangles.
void write_parts(const TestFolder& folder) {
  std::ostringstream obj, hill;
  for (const Point& p : corners) obj << "v " << p[0] << ' ' << p[1] << ' ' << p[2] << '\n';
  for (const auto& face : faces) obj << "f " << face[0] + 1 << ' ' << face[1] + 1 << ' ' << face[2] + 1 << '\n';
  folder.write("tetra.obj", obj.str());
  const auto add = [&](double x, double z) { hill << "v " << x << ' ' << slope * x << ' ' << z << '\n'; };
  add(0, 0), add(0, 10), add(10, 0);
  hill << "f -3 -2 -1\n";
  for (int k = 0; k < 100; ++k) {
    add(10, 0), add(10 - 0.1 * k, 0.1 * k), add(9.9 - 0.1 * k, 0.1 * (k + 1)), add(10, 10);
    hill << (k == 0 ? "" : "f -4 -3 -2\n") << "f -3 -2 -1\n";
  }
  folder.write("hill.obj", hill.str());
}

Json run_scatter(const TestFolder& folder, std::vector<std::string> options) {
  options.insert(options.begin(), {"scatter", "tetra.obj", "demo:knot", "--on", "hill.obj", "-o", "made.json"});
  const ProgramResult result = run_vqgas(folder.get_path(), options);
  EXPECT_EQ(result.exit_code, 0) << result.err;
  return Json::parse(folder.read("made.json"));
}

/// The fields of the rows below the header.
std::vector<std::vector<std::string>> read_csv(const ProgramResult& result) {
  EXPECT_EQ(result.exit_code, 0) << result.err;
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(result.out);
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream text(line + ',');
    rows.emplace_back();
    for (std::string field; std::getline(text, field, ',');) rows.back().push_back(field);
  }
  return rows;
}

}  // namespace

TEST(VqgasScatter, instances_keep_their_distance_for_any_number_of_threads) {
  const TestFolder folder;
  write_parts(folder);
  constexpr int count = 800;
  const std::vector<std::string> options = {"--count", "800",    "--seed",   "5",  "--scale",   "0.5,2",
                                            "--align", "normal", "--jitter", "10", "--threads", "1"};
  const Json made = run_scatter(folder, options);
  const std::string bytes = folder.read("made.json");
  auto other = options;
  other.back() = "3";
  run_scatter(folder, other);
  EXPECT_EQ(folder.read("made.json"), bytes);

  const std::vector<double> numbers = made["instances"]["matrix"];
  const std::vector<int> geometries = made["instances"]["geometry"];
  ASSERT_EQ(numbers.size(), 12u * count);
  const auto knots = std::count(geometries.begin(), geometries.end(), 1);
  EXPECT_NEAR(knots, count / 2, 60);  // four standard deviations
  const double area = 100.0 * std::hypot(1.0, slope), spacing = std::sqrt(area * 2.0 / std::sqrt(3.0) / count);
  double nearest = 1e9;
  for (int a = 0; a < count; ++a) {
    const auto get = [&](int instance, int row, int column) { return numbers[12 * instance + 4 * row + column]; };
    EXPECT_NEAR(get(a, 1, 3), slope * get(a, 0, 3), 1e-4);
    const double size = std::hypot(get(a, 0, 1), get(a, 1, 1), get(a, 2, 1));
    EXPECT_TRUE(size > 0.4999 && size < 2.0001) << size;
    const double upright = (get(a, 1, 1) - slope * get(a, 0, 1)) / (size * std::hypot(1.0, slope));
    EXPECT_GT(upright, std::cos(10.001 * 3.14159265 / 180.0));
    for (int b = 0; b < a; ++b)
      nearest = std::fmin(
          nearest, std::hypot(get(a, 0, 3) - get(b, 0, 3), get(a, 1, 3) - get(b, 1, 3), get(a, 2, 3) - get(b, 2, 3)));
  }
  EXPECT_GT(nearest, 0.7 * spacing);  // points at random come as near as 0.02 of it
}

namespace {

/// A sheet of quadrilaterals, and a scene that shows one sheet turned, mirrored and stretched.
void write_sheets(const TestFolder& folder) {
  std::ostringstream quads;
  for (int k = 0; k < 64; ++k) quads << "v " << k % 8 << ' ' << slope * (k % 8) << ' ' << k / 8 << '\n';
  for (int k = 1; k < 56; ++k)
    if (k % 8 != 0) quads << "f " << k << ' ' << k + 8 << ' ' << k + 9 << ' ' << k + 1 << '\n';
  folder.write("quads.obj", quads.str());
  folder.write("nodes.gltf", R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1, 2]}], "nodes": [
    {"mesh": 0, "translation": [9, 0, 0], "scale": [-2, 1.5, 1]}, {"mesh": 0, "rotation": [0.6, 0, 0, 0.8]},
    {"mesh": 0, "translation": [0, -5, 0], "rotation": [0, 0.28, 0.96, 0], "scale": [1, 0.5, 3]}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1}]}], "accessors": [
    {"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3", "min": [0, 0, 0], "max": [2, 0, 2]},
    {"bufferView": 1, "componentType": 5123, "count": 6, "type": "SCALAR"}],
    "bufferViews": [{"buffer": 0, "byteLength": 48}, {"buffer": 0, "byteOffset": 48, "byteLength": 12}],
    "buffers": [{"byteLength": 60, "uri": "data:;base64,)"
                             "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAABAAAAAQAAAAAAAAABAAAAAQAAAAAAAAAAAAAABAAIAAAACAAMA\"}]}");
}

}  // namespace

TEST(VqgasScatter, instances_stand_on_displaced_ground_along_its_normals) {
  const TestFolder folder;
  write_parts(folder);
  write_sheets(folder);
  const std::vector<std::string> displacement = {"--displace", "noise", "--bound", "0.3", "--rate", "6"};
  for (const char* ground : {"hill.obj", "quads.obj", "nodes.gltf"}) {
    std::vector<std::string> scatter = {"scatter", "tetra.obj", "--on",   ground, "--count",
                                        "300",     "--align",   "normal", "-o",   "made.json"};
    std::vector<std::string> trace = {"trace", ground};
    for (std::vector<std::string>* line : {&scatter, &trace})
      line->insert(line->end(), displacement.begin(), displacement.end());
    const ProgramResult result = run_vqgas(folder.get_path(), scatter);
    ASSERT_EQ(result.exit_code, 0) << result.err;
    const std::vector<double> numbers = Json::parse(folder.read("made.json"))["instances"]["matrix"];
    std::ostringstream rays;
    rays.precision(9);
    for (std::size_t k = 0; k < numbers.size(); k += 12) {  // from above each instance through its origin
      for (const std::size_t row : {k, k + 4, k + 8}) rays << numbers[row + 3] + 0.01 * numbers[row + 1] << ',';
      rays << -numbers[k + 1] << ',' << -numbers[k + 5] << ',' << -numbers[k + 9] << '\n';
    }
    const auto hits = read_csv(run_vqgas(folder.get_path(), trace, rays.str()));
    ASSERT_EQ(hits.size(), 300u);
    for (std::size_t k = 0; k < hits.size(); ++k) {
      ASSERT_FALSE(hits[k][1].empty()) << ground << ' ' << k;
      EXPECT_NEAR(std::stod(hits[k][1]), 0.01, 1e-4) << ground << ' ' << k;
      double cosine = 0.0;
      for (std::size_t axis = 0; axis < 3; ++axis)
        cosine += std::stod(hits[k][6 + axis]) * numbers[12 * k + 4 * axis + 1];
      EXPECT_GT(std::fabs(cosine), 0.999) << ground << ' ' << k;
    }
  }
}

TEST(VqgasScatter, a_file_displaces_its_ground_as_it_was) {
  const TestFolder folder;
  write_parts(folder);
  const std::vector<std::string> displacement = {"--displace", "noise", "--bound", "1.5", "--rate", "6"};
  std::vector<std::string> options = {"--count", "300", "--scale", "0.01,0.01"}, trace = {"trace", "hill.obj"};
  options.insert(options.end(), displacement.begin(), displacement.end());
  trace.insert(trace.end(), displacement.begin(), displacement.end());
  run_scatter(folder, options);
  std::string rays;
  for (int k = 0; k < 300; ++k)
    rays += std::to_string(0.03 * k + 0.5) + ",50," + std::to_string(0.5 + 0.1 * (k % 90)) + ",0,-1,0\n";
  const auto displaced = read_csv(run_vqgas(folder.get_path(), trace, rays));
  const auto scattered = read_csv(run_vqgas(folder.get_path(), {"trace", "made.json"}, rays));
  std::size_t ground_hits = 0;
  for (std::size_t k = 0; k < displaced.size(); ++k) {
    if (displaced[k][1].empty() || scattered[k][12] != "0") continue;  // missed, or an instance is hit
    EXPECT_EQ(scattered[k][1], displaced[k][1]);
    ++ground_hits;
  }
  EXPECT_GT(ground_hits, 200u);
}

// Two sheets: the lower one is nearer to the displaced upper one than to its own. The picture is named as the noise.
TEST(VqgasScatter, instances_stay_on_their_own_sheet) {
  const TestFolder folder;
  write_parts(folder);
  std::ostringstream sheets;
  for (const double y : {0.0, 0.1})
    sheets << "v 0 " << y << " 0\nv 0 " << y << " 9\nv 9 " << y << " 9\nv 9 " << y << " 0\n";
  sheets << "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\nf 5/1 6/2 7/3 8/4\n";
  folder.write("sheets.obj", sheets.str());
  std::filesystem::create_directory(folder.get_path() / "pictures");
  write_png(folder.get_path() / "pictures/noise", 2, {0, 0, 0, 0});
  const ProgramResult result = run_vqgas(
      folder.get_path(), {"scatter", "tetra.obj", "--on", "sheets.obj", "--displace", "pictures/noise", "--bound",
                          "0.08", "--count", "200", "--align", "normal", "-o", "pictures/made.json"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json made = Json::parse(folder.read("pictures/made.json"));
  const std::vector<double> numbers = made["instances"]["matrix"];
  uint lower = 0;
  for (std::size_t k = 0; k < numbers.size(); k += 12) {
    const bool is_lower = std::fabs(numbers[k + 7] + 0.08) < 1e-6;
    EXPECT_TRUE(is_lower || std::fabs(numbers[k + 7] - 0.02) < 1e-6) << numbers[k + 7];
    EXPECT_NEAR(numbers[k + 5], 1.0, 1e-6);
    lower += is_lower;
  }
  EXPECT_NEAR(lower, 100.0, 30.0);
  EXPECT_EQ(made["displacement"], (Json{{"height", "./noise"}, {"bound", 0.08}, {"rate", 16}}));
  const auto hits = read_csv(run_vqgas(folder.get_path(), {"trace", "pictures/made.json"}, "4,-9,4,0,1,0\n"));
  EXPECT_NEAR(std::stod(hits[0][1]), 9 - 0.08, 1e-6);
}

TEST(VqgasScatter, rays_hit_instances_as_they_hit_one_mesh_of_all_their_triangles) {
  const TestFolder folder;
  write_parts(folder);
  const ProgramResult made = run_vqgas(folder.get_path(), {"scatter", "tetra.obj", "--on", "hill.obj", "--density", "3",
                                                           "--scale", "0.5,2", "--no-ground", "-o", "made.json"});
  ASSERT_EQ(made.exit_code, 0) << made.err;
  const std::vector<double> numbers = Json::parse(folder.read("made.json"))["instances"]["matrix"];
  ASSERT_EQ(numbers.size() / 12, 375u);
  std::ostringstream flat, rays;
  flat.precision(9);
  for (std::size_t k = 0; k < numbers.size(); k += 12) {
    for (const Point& p : corners) {
      flat << 'v';
      for (std::size_t row = k; row < k + 12; row += 4)
        flat << ' ' << numbers[row] * p[0] + numbers[row + 1] * p[1] + numbers[row + 2] * p[2] + numbers[row + 3];
      flat << '\n';
    }
    for (const auto& face : faces) flat << "f " << face[0] - 4 << ' ' << face[1] - 4 << ' ' << face[2] - 4 << '\n';
  }
  folder.write("flat.obj", flat.str());
  for (int k = 0; k < 400; ++k)
    rays << std::fmod(k * 0.7548776662, 1.0) * 10 << ",20," << std::fmod(k * 0.5698402910, 1.0) * 10 << ",0.1,-1,0.2\n";
  for (const char* mode : {"--all", "--quiet"}) {
    const auto a = read_csv(run_vqgas(folder.get_path(), {"trace", "made.json", mode}, rays.str()));
    const auto b = read_csv(run_vqgas(folder.get_path(), {"trace", "flat.obj", mode}, rays.str()));
    ASSERT_EQ(a.size(), b.size());
    std::size_t hits = 0;
    for (std::size_t row = 0; row < a.size(); ++row) {
      ASSERT_EQ(a[row][0], b[row][0]);
      ASSERT_EQ(a[row][1].empty(), b[row][1].empty()) << row;
      if (a[row][1].empty()) continue;
      ++hits;
      EXPECT_NEAR(std::stod(a[row][1]), std::stod(b[row][1]), 1e-5);
      const int instance = std::stoi(a[row][12].substr(2));  // "0/instance"
      EXPECT_EQ(4 * instance + std::stoi(a[row][2]), std::stoi(b[row][2])) << row;
    }
    EXPECT_GT(hits, 60u);
  }
}

TEST(VqgasScatter, bundled_objects_are_hit_as_before_and_reported) {
  const TestFolder folder;
  std::string rays;
  for (int k = 0; k < 60; ++k)
    rays += std::to_string(k % 8 * 2 - 7) + ",9," + std::to_string(k / 8 * 2 - 7) + ",0.1,-1,0.2,0,100," +
            std::to_string(k / 60.0) + "\n";
  for (const char* mode : {"--all", "--quiet"}) {  // the scene has hair, which queries for all hits see otherwise
    auto a = read_csv(run_vqgas(folder.get_path(), {"trace", "demo:mills", mode}, rays));
    auto b = read_csv(run_vqgas(folder.get_path(), {"trace", "demo:mills", "--bundle", mode}, rays));
    for (auto* rows : {&a, &b})
      for (auto& row : *rows) row.resize(row.size() - 3);  // path, object, names
    EXPECT_EQ(a, b);
  }
  const ProgramResult result = run_vqgas(folder.get_path(), {"info", "demo:mills", "--bundle", "--json", "-"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json report = Json::parse(result.out)[0], bundle = report["bundles"].back();
  EXPECT_EQ(bundle["structures"]["built"], bundle["structures"]["geometries"]);
  EXPECT_EQ(bundle["valid_instances"], bundle["instances"]);
  EXPECT_GT(bundle["bytes_flat"], bundle["bytes_of_structures"]);
}

TEST(VqgasScatter, all_hits_hold_the_nearest_one_of_hair_too) {
  const TestFolder folder;
  write_parts(folder);
  std::string hair, rays;
  for (int k = 0; k < 300; ++k) {  // slanted, so that nodes are oriented
    const double x = 0.01 * (k % 17), z = 0.013 * (k % 23);
    for (int point = 0; point < 4; ++point)
      hair += std::to_string(x + 0.3 * point) + ' ' + std::to_string(0.2 * point) + ' ' +
              std::to_string(z + 0.25 * point) + " 0.01\n";
    hair += '\n';
  }
  folder.write("tuft.curves", hair);
  for (int k = 0; k < 300; ++k)
    rays += std::to_string(k % 20 * 0.5 + 0.1) + ",20," + std::to_string(k / 20 * 0.6 + 0.1) + ",0.1,-1,0.2\n";
  ASSERT_EQ(run_vqgas(folder.get_path(), {"scatter", "tuft.curves", "--on", "hill.obj", "--count", "120", "--no-ground",
                                          "-o", "made.json"})
                .exit_code,
            0);
  const auto nearest = read_csv(run_vqgas(folder.get_path(), {"trace", "made.json"}, rays));
  const auto all = read_csv(run_vqgas(folder.get_path(), {"trace", "made.json", "--all"}, rays));
  auto first = all.begin();
  std::size_t hits = 0;
  for (const auto& row : nearest) {
    first = std::find_if(first, all.end(), [&](const auto& other) { return other[0] == row[0]; });
    ASSERT_NE(first, all.end());
    ASSERT_EQ((*first)[1], row[1]) << "ray " << row[0];
    hits += !row[1].empty();
  }
  EXPECT_GT(hits, 60u);
}

TEST(VqgasScatter, files_name_others_through_links_and_by_no_name_they_cannot_hold) {
  const TestFolder folder;
  write_parts(folder);
  std::filesystem::create_directories(folder.get_path() / "a/b/c");
  std::filesystem::create_directory_symlink("a/b/c", folder.get_path() / "link");
  const auto run = [&](const std::string& geometry) {
    return run_vqgas(folder.get_path(), {"scatter", geometry, "--on", "hill.obj", "--count", "3", "-o", "link/s.json"});
  };
  EXPECT_EQ(run("tetra.obj").exit_code, 0);
  for (const std::string name : {"link/s.json", "a/b/c/s.json"})
    EXPECT_EQ(run_vqgas(folder.get_path(), {"info", name}).exit_code, 0) << name;
  std::filesystem::create_symlink("../../tetra.obj", folder.get_path() / "a/b/linked.obj");
  EXPECT_EQ(run("link/../linked.obj").exit_code, 0);
  EXPECT_EQ(run_vqgas(folder.get_path(), {"info", "link/s.json"}).exit_code, 0);
  for (const std::string name : {"new\nline.obj", "latin\xe9.obj"}) {
    folder.write(name, folder.read("tetra.obj"));
    const ProgramResult result = run(name);
    EXPECT_EQ(result.exit_code, 1) << name;
    EXPECT_EQ(result.count_error_lines(), 1u) << result.err;
  }
}

TEST(VqgasScatter, a_fault_of_a_file_is_one_line_that_tells_where) {
  const TestFolder folder;
  write_parts(folder);
  const Json good = {{"format", "vqgas scatter 1"},
                     {"geometries", {"tetra.obj"}},
                     {"instances", {{"geometry", {0, 0}}, {"matrix", std::vector<double>(24, 1.0)}}}};
  const auto expect_fault = [&](const std::string& text, const std::string& fault) {
    folder.write("broken.json", text);
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", "broken.json", "--quiet"});
    EXPECT_EQ(result.exit_code, 1) << fault;
    EXPECT_EQ(result.count_error_lines(), 1u) << result.err;
    EXPECT_NE(result.err.find("broken.json: " + fault), std::string::npos) << result.err;
  };
  const auto expect_change = [&](const char* place, const Json& value, const std::string& fault) {
    Json changed = good;
    changed[Json::json_pointer(place)] = value;
    expect_fault(changed.dump(), fault);
  };
  expect_fault("{\n  \"format\": nan}", "is not JSON: parse error at line 2, column 14");
  expect_fault("[1e999]", "is not JSON: number overflow parsing '1e999'");
  expect_fault("[]", "is not a scatter file");
  expect_fault("{\"format\": \"vqgas scatter 1\"}", "has no \"geometries\"");
  expect_change("/geometries/0", "nosuch.obj", "geometry 0: nosuch.obj: no such file");
  expect_change("/geometries/0", "broken.json", "geometry 0: broken.json: is a scatter file itself");
  expect_change("/ground", "nosuch.obj", "ground: nosuch.obj: no such file");
  expect_change("/instances/geometry/1", 1, "instance 1: 1 is not the number of one of the 1 geometries");
  expect_change("/instances/geometry/1", -1, "instance 1: -1 is not");
  expect_change("/instances/matrix/13", nullptr, "instance 1: null in its matrix is not a finite number");
  expect_change("/instances/matrix/13", 1e300, "instance 1: 1e+300 in its matrix is not a finite number");
  expect_change("/instances/matrix/24", 1, "has 25 numbers of matrices, not 12 for each of 2 instances");
  expect_change("/instances", {{"geometry", Json::array()}, {"matrix", Json::array()}}, "holds no instance");
  expect_change("/sway", {{"degrees", 5}, {"period", 0}}, "\"sway\" has no valid \"period\"");
  expect_change("/displacement", {{"height", "noise"}, {"rate", 4}}, "\"displacement\" has no ground");
  Json hill = good;
  hill["ground"] = "hill.obj";
  for (const auto& [value, fault] :
       {std::pair<Json, std::string>{{{"height", "noise"}}, "\"displacement\" has no valid \"rate\""},
        {{{"height", "noise"}, {"rate", 4.7}}, "\"displacement\" has no valid \"rate\""},
        {{{"height", "noise"}, {"rate", 4}, {"bound", 500}},
         "ground: hill.obj: a displacement of 500 is more than ten"},
        {{{"height", 3}, {"rate", 4}}, "the height of \"displacement\" is not the name of a file"},
        {{{"height", "noise"}, {"rate", 4}, {"bound", 0}}, "\"displacement\" has no valid \"bound\""},
        {{{"height", "nosuch.png"}, {"rate", 4}}, "ground: nosuch.png: no such file"}}) {
    hill["displacement"] = value;
    expect_fault(hill.dump(), fault);
  }
  const ProgramResult on_scattered =
      run_vqgas(folder.get_path(), {"scatter", "tetra.obj", "--on", "broken.json", "--count", "1", "-o", "new.json"});
  EXPECT_EQ(on_scattered.exit_code, 1);
  EXPECT_NE(on_scattered.err.find("broken.json: is a scatter file"), std::string::npos) << on_scattered.err;
}
