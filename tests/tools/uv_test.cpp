// Drawn layouts against distances to the edges in the file, and numbers of layouts that can be told by eye.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>

#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

using Json = nlohmann::json;
using Strings = std::vector<std::string>;

struct Point {
  double u, v;
};
struct Edge {
  Point a, b;
};

/// Polygons with vertices of their own; the mesh is as flat as the layout, but moved so that no two of them touch.
struct Layout {
  std::vector<std::vector<Point>> polygons;

  std::string write() const {
    std::ostringstream obj, faces;
    obj.precision(9);
    int vertex = 0;
    for (std::size_t polygon = 0; polygon < polygons.size(); ++polygon) {
      faces << 'f';
      for (const Point& p : polygons[polygon]) {
        obj << "v " << p.u << ' ' << p.v << ' ' << polygon << "\nvt " << p.u << ' ' << p.v << '\n';
        ++vertex;
        faces << ' ' << vertex << '/' << vertex;
      }
      faces << '\n';
    }
    return obj.str() + faces.str();
  }
  std::vector<Edge> get_edges() const {
    std::vector<Edge> edges;
    for (const auto& polygon : polygons)
      for (std::size_t k = 0; k < polygon.size(); ++k) edges.push_back({polygon[k], polygon[(k + 1) % polygon.size()]});
    return edges;
  }
};

std::vector<Point> make_square(double u, double v, double side) {
  return {{u, v}, {u + side, v}, {u + side, v + side}, {u, v + side}};
}

Layout make_random_layout(int triangles) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> place(0.0f, 1.0f);
  Layout layout;
  for (int k = 0; k < triangles; ++k) {
    auto& polygon = layout.polygons.emplace_back();
    for (int corner = 0; corner < 3; ++corner) polygon.push_back({place(random), place(random)});
  }
  return layout;
}

struct Distances {
  double across, nearest;  ///< to the nearest edge that the point lies beside; to the nearest edge at all
};

Distances measure(const std::vector<Edge>& edges, const Point& p) {
  Distances d{HUGE_VAL, HUGE_VAL};
  for (const Edge& edge : edges) {
    const double du = edge.b.u - edge.a.u, dv = edge.b.v - edge.a.v, square = du * du + dv * dv;
    const double along = ((p.u - edge.a.u) * du + (p.v - edge.a.v) * dv) / square,
                 t = std::fmin(std::fmax(along, 0), 1);
    const double distance = std::hypot(p.u - edge.a.u - t * du, p.v - edge.a.v - t * dv);
    d.nearest = std::fmin(d.nearest, distance);
    if (t == along) d.across = std::fmin(d.across, distance);
  }
  return d;
}

ProgramResult run_uv(const TestFolder& folder, Strings arguments) {
  arguments.insert(arguments.begin(), "uv");
  return run_vqgas(folder.get_path(), arguments);
}

void expect_done(const ProgramResult& result) {
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.err, "");
}

/// The colors of all opaque pixels.
std::set<std::array<int, 3>> list_colors(const TestFolder& folder, const std::string& name) {
  const PngFile png = read_png(folder.get_path() / name);
  const auto alpha = read_png_alpha(folder.get_path() / name);
  std::set<std::array<int, 3>> colors;
  for (unsigned k = 0; k < alpha.size(); ++k)
    if (alpha[k] == 255) colors.insert(png.at(k % png.width, k / png.width));
  return colors;
}

Json get_info(const TestFolder& folder, Strings arguments) {
  arguments.insert(arguments.end(), {"--json", "-"});
  const ProgramResult result = run_uv(folder, arguments);
  EXPECT_EQ(result.exit_code, 0) << result.err;
  return Json::parse(result.out);
}

}  // namespace

// One edge gives a line whose border fades over a pixel; where lines are near each other, they add up.
TEST(VqgasUv, pixels_are_as_far_from_the_edges_as_their_alpha_says) {
  const TestFolder folder;
  const Layout layout = make_random_layout(6);
  folder.write("layout.obj", layout.write());
  const std::vector<Edge> edges = layout.get_edges();
  for (const double width : {1.0, 3.5}) {
    const int size = 150;
    const auto draw = [&](const std::string& threads, const Strings& outputs) {
      Strings arguments = {"layout.obj", "--size", "150", "--line-width", std::to_string(width), "--threads", threads};
      for (const std::string& output : outputs) arguments.insert(arguments.end(), {"-o", output});
      expect_done(run_uv(folder, arguments));
    };
    draw("1", {"one.png", "one.exr"});
    draw("4", {"four.png"});
    EXPECT_EQ(folder.read("one.png"), folder.read("four.png"));
    const auto alpha = read_png_alpha(folder.get_path() / "one.png");
    const auto exr = read_exr(folder.get_path() / "one.exr").values;
    const double inner = 0.5 * width - 0.5, outer = 0.5 * width + 0.5;
    int faded = 0;
    for (int y = 0; y < size; ++y) {
      for (int x = 0; x < size; ++x) {
        SCOPED_TRACE(testing::Message() << "width " << width << " pixel " << x << ' ' << y);
        const Distances d = measure(edges, {(x + 0.5) / size, 1.0 - (y + 0.5) / size});
        const std::size_t at = static_cast<std::size_t>(y * size + x);
        const double seen = alpha[at] / 255.0, across = d.across * size;
        faded += across > inner && across < outer;
        EXPECT_GE(seen, std::clamp(outer - across, 0.0, 1.0) - 0.004);
        if (d.nearest * size > std::sqrt(2.0) * outer) {
          EXPECT_EQ(seen, 0.0);
        }
        EXPECT_NEAR(exr.at("A")[at], seen, 0.0021);
      }
    }
    EXPECT_GT(faded, 500);
  }
}

TEST(VqgasUv, an_svg_has_the_edges_of_the_file) {
  const TestFolder folder;
  const Layout layout = make_random_layout(40);
  folder.write("layout.obj", layout.write());
  expect_done(run_uv(folder, {"layout.obj", "-o", "out.svg", "--size", "500", "--line-width", "2.5"}));
  const std::string svg = folder.read("out.svg");
  EXPECT_NE(svg.find("viewBox=\"0 0 500 500\""), std::string::npos);
  EXPECT_NE(svg.find("stroke-width=\"2.5\""), std::string::npos);
  std::vector<Edge> drawn;
  for (std::size_t at = svg.find("d=\"") + 3; svg[at] == 'M'; at = svg.find('\n', at) + 1) {
    Edge e = {};
    EXPECT_EQ(std::sscanf(svg.c_str() + at, "M%lf %lfL%lf %lf", &e.a.u, &e.a.v, &e.b.u, &e.b.v), 4);
    drawn.push_back(e);
  }
  const std::vector<Edge> edges = layout.get_edges();
  EXPECT_EQ(drawn.size(), edges.size());
  for (const Edge& edge : edges) {
    const auto is_edge = [&](const Edge& other) {
      const auto is_near = [](const Point& p, const Point& q) {
        return std::hypot(p.u - 500 * q.u, p.v - 500 * (1 - q.v)) < 0.01;
      };
      return is_near(other.a, edge.a) && is_near(other.b, edge.b);
    };
    EXPECT_EQ(std::count_if(drawn.begin(), drawn.end(), is_edge), 1);
  }
}

TEST(VqgasUv, each_tile_is_a_file_with_its_number) {
  const TestFolder folder;
  const Layout layout{{make_square(0.0, 0.0, 1.0), make_square(1.2, 0.2, 0.5), make_square(-0.6, 1.2, 0.4)}};
  folder.write("layout.obj", layout.write());
  folder.write("wide.obj", Layout{{make_square(0.5, 0.5, 30.0)}}.write());
  expect_done(run_uv(folder, {"layout.obj", "-o", "out.png", "-o", "out.svg", "--size", "20"}));
  Strings all = {"layout.obj", "wide.obj"};
  for (const char* tile : {"1001", "1002", "u-1_v1"})
    for (const char* ending : {".png", ".svg"}) all.push_back(std::string("out.").append(tile).append(ending));
  std::sort(all.begin(), all.end());
  EXPECT_EQ(folder.list(), all);
  expect_done(run_uv(folder, {"layout.obj", "-o", "one.png", "--size", "20", "--tile", "1,0"}));
  EXPECT_EQ(folder.read("one.png"), folder.read("out.1002.png"));
  EXPECT_EQ(run_uv(folder, {"wide.obj", "-o", "wide.png"}).err,
            "vqgas: wide.obj: uses more than 400 tiles; choose some with --tile U,V\n");
  EXPECT_EQ(
      run_uv(folder, {"wide.obj", "-o", "wide.png", "--tile", "3,30", "--size", "20", "--line-width", "2"}).exit_code,
      0);
  EXPECT_EQ(list_colors(folder, "wide.png").size(), 1u) << "the upper edge";
}

TEST(VqgasUv, geometries_and_groups_have_colors_on_the_background) {
  const TestFolder folder;
  std::string grouped = Layout{{make_square(0.1, 0.1, 0.3), make_square(0.1, 0.6, 0.3)}}.write();
  grouped.insert(grouped.find("f "), "g first\n");
  grouped.insert(grouped.rfind("f "), "g second\n");
  folder.write("a.obj", grouped);
  folder.write("b.obj", Layout{{make_square(0.6, 0.6, 0.3)}}.write());
  const Strings common = {"a.obj", "b.obj", "-o", "out.png", "--size", "64", "--line-width", "3"};
  const auto draw = [&](const Strings& more) {
    Strings arguments = common;
    arguments.insert(arguments.end(), more.begin(), more.end());
    expect_done(run_uv(folder, arguments));
    return list_colors(folder, "out.png");
  };
  const auto by_geometry = draw({});
  EXPECT_EQ(by_geometry.size(), 2u);
  EXPECT_EQ(draw({"--color", "group"}).size(), 3u);
  const std::array<int, 3> blue = {20, 40, 220}, green = {10, 200, 30};
  write_png(folder.get_path() / "paint.png", 2, {20, 40, 220, 10, 200, 30, 20, 40, 220, 10, 200, 30}, false);
  const auto on_paint = draw({"--background", "paint.png"});
  for (const auto& color : by_geometry) EXPECT_EQ(on_paint.count(color), 1u);
  const PngFile png = read_png(folder.get_path() / "out.png");
  EXPECT_EQ(png.at(1, 1), blue);
  EXPECT_EQ(png.at(62, 60), green);
}

TEST(VqgasUv, info_counts_what_can_be_told_by_eye) {
  const TestFolder folder;
  Layout layout;  // two neighbors, a flipped square, two that overlap, and one that only touches both
  layout.polygons = {make_square(0.0, 0.0, 0.5), make_square(0.5, 0.0, 0.5),  make_square(0.0, 0.5, 0.5),
                     make_square(1.0, 0.0, 0.5), make_square(1.25, 0.0, 0.5), make_square(1.0, 0.5, 0.5)};
  std::reverse(layout.polygons[2].begin(), layout.polygons[2].end());
  std::string obj = layout.write();
  // The second square's left edge is the first one's right edge, by vertices of its own at the same place.
  for (const char* vertex : {"v 0.5 0 1\n", "v 0.5 0.5 1\n"}) obj[obj.find(vertex) + std::strlen(vertex) - 2] = '0';
  folder.write("layout.obj", obj);
  const Json info = get_info(folder, {"layout.obj"});
  EXPECT_EQ(info.size(), 1u);
  EXPECT_EQ(info[0]["maps"], Json::parse(R"([{"name": "uv", "positions": 16, "edges": 21}])"));
  EXPECT_EQ(info[0]["polygons"], Json::parse(R"({"placed": 6, "without_uvs": 0, "left_out": 0})"));
  EXPECT_EQ(info[0]["tiles"], Json::parse(R"([{"u": 0, "v": 0}, {"u": 1, "v": 0}])"));
  EXPECT_EQ(info[0]["islands"], 5);
  EXPECT_EQ(info[0]["flipped"], 1);
  EXPECT_EQ(info[0]["overlapping"], 2);
  EXPECT_NEAR(info[0]["unused_percent"].get<double>(), 50.0 * (0.25 + 1.0 - 0.375 - 0.25), 0.01);
  const ProgramResult table = run_uv(folder, {"layout.obj", "--info"});
  EXPECT_NE(table.out.find("islands                             5\n"), std::string::npos) << table.out;
}

TEST(VqgasUv, maps_are_chosen_by_name_and_faults_are_one_line) {
  const TestFolder folder;
  const float numbers[] = {0,
                           0,
                           0,
                           1,
                           0,
                           0,
                           0,
                           1,
                           0,
                           /*TEXCOORD_0*/ 0.1f,
                           0.9f,
                           0.4f,
                           0.9f,
                           0.1f,
                           0.6f,
                           /*TEXCOORD_1, v counted from the top*/ 1.1f,
                           0.9f,
                           1.9f,
                           0.9f,
                           1.1f,
                           0.1f};
  const std::string bytes(reinterpret_cast<const char*>(numbers), sizeof(numbers));
  folder.write("two.bin", bytes);
  folder.write("two.gltf", R"({"asset": {"version": "2.0"}, "buffers": [{"uri": "two.bin", "byteLength": 84}],
    "bufferViews": [{"buffer": 0, "byteLength": 36}, {"buffer": 0, "byteOffset": 36, "byteLength": 24},
                    {"buffer": 0, "byteOffset": 60, "byteLength": 24}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0,0,0], "max": [1,1,0]},
                  {"bufferView": 1, "componentType": 5126, "count": 3, "type": "VEC2"},
                  {"bufferView": 2, "componentType": 5126, "count": 3, "type": "VEC2"}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0, "TEXCOORD_0": 1, "TEXCOORD_1": 2}}]}],
    "nodes": [{"mesh": 0}, {"mesh": 0}], "scenes": [{"nodes": [0, 1]}], "scene": 0})");
  EXPECT_EQ(get_info(folder, {"two.gltf"})[0]["tiles"], Json::parse(R"([{"u": 0, "v": 0}])"));
  const Json second = get_info(folder, {"two.gltf", "--map", "uv2"});
  EXPECT_EQ(second.size(), 1u) << "two objects share the mesh";
  EXPECT_EQ(second[0]["tiles"], Json::parse(R"([{"u": 1, "v": 0}])"));
  EXPECT_EQ(second[0]["maps"].size(), 2u);
  EXPECT_EQ(second[0]["flipped"], 0);

  folder.write("bare.obj", "v 0 0 0\nv 1 0 0\nv 1 2 0\nv 0.5 3 0\nv 0 2 0\nf 1 2 3 4 5\n");
  folder.write("bad.obj",
               "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 0 2e6\nvt 1 0\nvt 0 1\nf 1/1 2/3 3/2\nf 1/1 2/3 3/4\n");
  folder.write("text.png", "no picture");
  std::string spoilt = folder.read("two.gltf");
  folder.write("nan.gltf", spoilt.replace(spoilt.find("two.bin"), 3, "nan"));
  const float nan = std::nanf("");
  folder.write("nan.bin", std::string(bytes).replace(36, 4, reinterpret_cast<const char*>(&nan), 4));
  for (const std::string name : {"bad.obj", "nan.gltf"}) {
    const ProgramResult bad = run_uv(folder, {name, "-o", "out.png", "--size", "8"});
    EXPECT_EQ(bad.exit_code, 0);
    EXPECT_NE(bad.err.find(" polygons left out: a UV position is not finite or beyond 1e6\n"), std::string::npos)
        << bad.err;
    EXPECT_EQ(bad.count_error_lines(), 1u);
    EXPECT_EQ(list_colors(folder, "out.png").empty(), name == "nan.gltf");
  }
  EXPECT_EQ(get_info(folder, {"bare.obj", "--project", "planar"})[0]["maps"],
            Json::parse(R"([{"name": "planar", "positions": 5, "edges": 5}])"));
  expect_done(run_uv(folder, {"bare.obj", "--project", "planar", "-o", "bare.png", "--size", "60"}));
  const auto alpha = read_png_alpha(folder.get_path() / "bare.png");
  EXPECT_GT(alpha[10], 100) << "the top of the gable, at (0.5, 3) of 3";
  const std::vector<std::pair<Strings, std::string>> faults = {
      {{"bare.obj"}, "bare.obj: has no UV map; --project planar or --project cubic makes one from the positions"},
      {{"two.gltf", "--map", "dirt"}, "two.gltf: has no UV map 'dirt'; there are uv, uv2"},
      {{"two.gltf", "--background", "text.png"}, "text.png: is not a readable PNG file: Not a PNG file"}};
  for (const auto& [arguments, fault] : faults) {
    Strings call = arguments;
    call.insert(call.end(), {"-o", "none.png"});
    const ProgramResult result = run_uv(folder, call);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.err, "vqgas: " + fault + "\n");
  }
  const Strings usages[] = {{"two.gltf"},
                            {"two.gltf", "-o", "x.jpg"},
                            {"two.gltf", "-o", "x.png", "--tile", "1"},
                            {"two.gltf", "-o", "x.png", "--tile", "0.5,0"},
                            {"two.gltf", "-o", "x.png", "--line-width", "0"},
                            {"two.gltf", "-o", "x.png", "--size", "0"},
                            {"two.gltf", "-o", "x.png", "--map", "uv", "--first"},
                            {"two.gltf", "-o", "x.png", "--color", "rainbow"},
                            {"two.gltf", "-o", "x.svg", "--background", "text.png"}};
  for (const Strings& usage : usages) EXPECT_EQ(run_uv(folder, usage).exit_code, 2) << testing::PrintToString(usage);
  EXPECT_FALSE(std::filesystem::exists(folder.get_path() / "none.png"));
}
