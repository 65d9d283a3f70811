// Pictures are read back and compared with what the camera must see.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <set>

#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

constexpr int width = 64, height = 48;
const char* const all_layers = "beauty,depth,normal,position,primitive,group,uv,heat,count";

/// Two squares of half side 1 at z = 0 and z = -2, the hind one with its lower half in a group of its own.
std::string make_squares_obj() {
  return "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
         "v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\nf 1/1 2/2 3/3 4/4\n"
         "v -2 0 -2\nv 2 0 -2\nv 2 2 -2\nv -2 2 -2\nf 5/1 6/2 7/3 8/4\n"
         "o lower\nv -2 -2 -2\nv 2 -2 -2\nv 2 0 -2\nv -2 0 -2\nf 9/1 10/2 11/3 12/4\n";
}

/// The point of the plane z = `z` that the middle of a pixel sees from (0, 0, 5), looking along -z with 60 degrees.
struct PlanePoint {
  double x, y;
  PlanePoint(int column, int row, double z) {
    const double scale = (5.0 - z) * std::tan(std::numbers::pi / 6.0) / (0.5 * height);
    x = (column + 0.5 - 0.5 * width) * scale;
    y = (0.5 * height - row - 0.5) * scale;
  }
  double reach() const { return std::fmax(std::fabs(x), std::fabs(y)); }
};

/// A ball of radius 1 of circles of latitude.
std::string make_ball_obj(int rows) {
  std::string text;
  const int columns = 2 * rows;
  for (int row = 0; row <= rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const double down = row * std::numbers::pi / rows, turn = column * std::numbers::pi / rows;
      text += "v " + std::to_string(std::sin(down) * std::cos(turn)) + " " + std::to_string(std::cos(down)) + " " +
              std::to_string(-std::sin(down) * std::sin(turn)) + "\n";
    }
  }
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const int next = (column + 1) % columns, upper = row * columns + 1, lower = upper + columns;
      for (const int corner : {upper + column, lower + column, lower + next, upper + next})
        text += (corner == upper + column ? "f " : " ") + std::to_string(corner);
      text += "\n";
    }
  }
  return text;
}

std::vector<std::string> make_line(const std::string& name, const std::string& output,
                                   const std::string& layers = all_layers) {
  std::vector<std::string> line = {"render", name,    "-o",       output, "--camera", "0,0,5/0,0,0/0,1,0/60",
                                   "--size", "64x48", "--layers", layers, "--quiet"};
  if (layers == all_layers) line.insert(line.end(), {"--samples", "4"});
  return line;
}

/// Two squares of half side 0.5 at z = 0. The first goes from (-1.5, -0.5) to (0.5, 0) in a second, the second stands
/// at (1.5, 0).
void write_moving_squares(const TestFolder& folder) {
  const float numbers[] = {-0.5, -0.5, 0, 0.5, -0.5, 0, 0.5, 0.5, 0, -0.5, 0.5, 0, 0, 1, -1.5, -0.5, 0, 0.5, 0, 0};
  const std::uint8_t corners[] = {0, 1, 2, 0, 2, 3};
  folder.write("moving.bin", std::string(reinterpret_cast<const char*>(numbers), sizeof numbers) +
                                 std::string(reinterpret_cast<const char*>(corners), sizeof corners));
  folder.write("moving.gltf", R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1]}],
    "nodes": [{"mesh": 0}, {"mesh": 0, "translation": [1.5, 0, 0]}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 3}]}],
    "animations": [{"samplers": [{"input": 1, "output": 2}],
                    "channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}}]}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3"},
                  {"bufferView": 1, "componentType": 5126, "count": 2, "type": "SCALAR"},
                  {"bufferView": 2, "componentType": 5126, "count": 2, "type": "VEC3"},
                  {"bufferView": 3, "componentType": 5121, "count": 6, "type": "SCALAR"}],
    "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 48}, {"buffer": 0, "byteOffset": 48, "byteLength": 8},
                    {"buffer": 0, "byteOffset": 56, "byteLength": 24}, {"buffer": 0, "byteOffset": 80, "byteLength": 6}],
    "buffers": [{"byteLength": 86, "uri": "moving.bin"}]})");
}

}  // namespace

TEST(VqgasRender, exr_channels_hold_what_each_pixel_sees) {
  const TestFolder folder;
  folder.write("squares.obj", make_squares_obj());
  ASSERT_EQ(run_vqgas(folder.get_path(), make_line("squares.obj", "s.exr")).exit_code, 0);
  const ExrFile exr = read_exr(folder.get_path() / "s.exr");
  ASSERT_EQ(exr.width, width);
  ASSERT_EQ(exr.height, height);
  int seen[3] = {0, 0, 0};
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      const std::size_t pixel = static_cast<std::size_t>(row * width + column);
      SCOPED_TRACE(testing::Message() << column << ", " << row);
      const PlanePoint front(column, row, 0.0), hind(column, row, -2.0);
      const auto value = [&](const char* channel) { return exr.values.at(channel)[pixel]; };
      const auto number = [&](const char* channel) { return exr.numbers.at(channel)[pixel]; };
      const bool in_front = front.reach() < 1.0, behind = hind.reach() < 2.0;
      EXPECT_EQ(number("count"), (in_front ? 1u : 0u) + (behind ? 1u : 0u));
      if (!in_front && !behind) {
        ++seen[0];
        EXPECT_TRUE(std::isinf(value("Z")));
        EXPECT_EQ(number("primitive"), 0xFFFFFFFFu);
        EXPECT_EQ(number("group"), 0xFFFFFFFFu);
        EXPECT_EQ(value("N.Z"), 0.0f);
        continue;
      }
      const PlanePoint& point = in_front ? front : hind;
      ++seen[in_front ? 1 : 2];
      EXPECT_FLOAT_EQ(value("Z"), in_front ? 5.0f : 7.0f);
      EXPECT_NEAR(value("P.X"), point.x, 1e-6);
      EXPECT_NEAR(value("P.Y"), point.y, 1e-6);
      EXPECT_FLOAT_EQ(value("P.Z"), in_front ? 0.0f : -2.0f);
      EXPECT_FLOAT_EQ(value("N.Z"), 1.0f);
      EXPECT_EQ(number("primitive"), in_front ? 0u : point.y > 0.0 ? 1u : 2u);
      EXPECT_EQ(number("group"), in_front || point.y > 0.0 ? 0u : 1u);
      EXPECT_GE(value("heat.leaves"), 1.0f);
      if (!in_front) continue;
      EXPECT_NEAR(value("UV.U"), 0.5 * (point.x + 1.0), 1e-6);
      EXPECT_NEAR(value("UV.V"), 0.5 * (point.y + 1.0), 1e-6);
    }
  }
  for (const int count : seen) EXPECT_GT(count, 50);
}

TEST(VqgasRender, png_is_one_file_a_layer) {
  const TestFolder folder;
  folder.write("squares.obj", make_squares_obj());
  const ProgramResult result = run_vqgas(folder.get_path(), make_line("squares.obj", "s.png"));
  ASSERT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out + result.err, "") << "quiet";
  EXPECT_EQ(folder.list().size(), 10u) << "nine layers and the mesh";
  const PngFile normal = read_png(folder.get_path() / "s.normal.png");
  ASSERT_EQ(normal.width, 64u);
  ASSERT_EQ(normal.height, 48u);
  EXPECT_EQ(normal.at(32, 24), (std::array<int, 3>{128, 128, 255}));
  EXPECT_EQ(normal.at(0, 0), (std::array<int, 3>{0, 0, 0}));
  const PngFile depth = read_png(folder.get_path() / "s.depth.png");
  EXPECT_GT(depth.at(32, 24)[0], depth.at(22, 24)[0]) << "near is light";
}

TEST(VqgasRender, motion_is_the_way_over_the_shutter_in_pixels) {
  const TestFolder folder;
  write_moving_squares(folder);
  const std::vector<std::string> line = make_line("moving.gltf", "m.exr", "object,position,motion");
  for (const std::string samples : {"2", "7"}) {
    std::vector<std::string> moving = line;
    moving.insert(moving.end(), {"--frame", "6", "--shutter", "-6,6", "--motion-samples", samples});
    ASSERT_EQ(run_vqgas(folder.get_path(), moving).exit_code, 0);
    const ExrFile exr = read_exr(folder.get_path() / "m.exr");
    int seen[2] = {0, 0};
    for (int row = 0; row < height; ++row) {
      for (int column = 0; column < width; ++column) {
        // Rays see the middle of the first half second.
        const PlanePoint point(column, row, 0.0);
        const bool on_moving = std::fabs(point.x + 1.0) < 0.5 && std::fabs(point.y + 0.375) < 0.5;
        const bool on_still = std::fabs(point.x - 1.5) < 0.5 && std::fabs(point.y) < 0.5;
        const auto pixel = static_cast<std::size_t>(row * width + column);
        EXPECT_EQ(exr.numbers.at("object")[pixel], on_moving ? 0u : on_still ? 1u : 0xFFFFFFFFu);
        const double pixels = 0.5 * height / (5.0 * std::tan(std::numbers::pi / 6.0));  // of a unit
        EXPECT_NEAR(exr.values.at("motion.X")[pixel], on_moving ? pixels : 0.0, 1e-4);
        EXPECT_NEAR(exr.values.at("motion.Y")[pixel], on_moving ? -0.25 * pixels : 0.0, 1e-4);
        seen[0] += on_moving;
        seen[1] += on_still;
      }
    }
    EXPECT_GT(seen[0], 50);
    EXPECT_GT(seen[1], 50);
  }
}

TEST(VqgasRender, shapes_that_deform_neither_hold_up_what_moves_nor_lose_parts_between_few_samples) {
  const TestFolder folder;
  write_moving_squares(folder);
  const auto render = [&](std::vector<std::string> line, const std::vector<std::string>& more) {
    line.insert(line.end(), more.begin(), more.end());
    EXPECT_EQ(run_vqgas(folder.get_path(), line).exit_code, 0);
    return read_exr(folder.get_path() / "m.exr");
  };
  // The jelly has moved long since.
  std::vector<std::string> line = make_line("moving.gltf", "m.exr", "object,group,motion");
  const std::vector<std::string> later = {"--frame", "6", "--shutter", "-1,1"};
  const ExrFile alone = render(line, later);
  line.insert(line.begin() + 2, "demo:jelly");
  const ExrFile both = render(line, later);
  int seen = 0;
  for (std::size_t pixel = 0; pixel < width * height; ++pixel) {
    const std::uint32_t object = both.numbers.at("object")[pixel];
    const std::uint32_t wanted = alone.numbers.at("object")[pixel];
    EXPECT_TRUE(object == wanted || object == 2) << "the jelly may only hide";
    if (object != 0) continue;
    EXPECT_NEAR(both.values.at("motion.X")[pixel], alone.values.at("motion.X")[pixel], 1e-4);
    EXPECT_GT(both.values.at("motion.X")[pixel], 0.5);
    ++seen;
  }
  EXPECT_GT(seen, 10);

  line = make_line("demo:jelly", "m.exr", "object,group,motion");
  const auto groups = render(line, {"--shutter", "0,1"}).numbers.at("group");
  EXPECT_EQ(render(line, {"--shutter", "0,1", "--motion-samples", "2"}).numbers.at("group"), groups);
}

TEST(VqgasRender, paths_lead_from_the_object_into_its_groups) {
  const TestFolder folder;
  ASSERT_EQ(run_vqgas(folder.get_path(), {"render", "demo:mills", "-o", "p.exr", "--size", "240x135", "--layers",
                                          "object,instance-path", "--quiet"})
                .exit_code,
            0);
  const auto numbers = read_exr(folder.get_path() / "p.exr").numbers;
  constexpr std::uint32_t none = 0xFFFFFFFFu;
  int seen[4] = {0, 0, 0, 0};
  for (std::size_t pixel = 0; pixel < numbers.at("object").size(); ++pixel) {
    const std::uint32_t path[] = {numbers.at("path.0")[pixel], numbers.at("path.1")[pixel], numbers.at("path.2")[pixel],
                                  numbers.at("path.3")[pixel]};
    const auto depth = static_cast<std::size_t>(std::find(path, path + 3, none) - path);
    ++seen[depth];
    EXPECT_EQ(path[0], numbers.at("object")[pixel]);
    EXPECT_TRUE(std::all_of(path + depth, path + 4, [](std::uint32_t level) { return level == none; }));
    // A mill is a tower and a rotor of four sails; no other object has groups in its group.
    EXPECT_TRUE(depth < 3 || (path[1] == 1 && path[2] < 4)) << path[1] << ", " << path[2];
  }
  for (const int count : seen) EXPECT_GT(count, 50);
}

TEST(VqgasRender, views_show_everything_and_fill_the_picture) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(3.0));
  for (const std::string view : {"front", "side", "top", "three-quarter"}) {
    ASSERT_EQ(run_vqgas(folder.get_path(), {"render", "cube.obj", "-o", "c.exr", "--view", view, "--size", "90x60",
                                            "--layers", "depth,normal"})
                  .exit_code,
              0);
    const ExrFile exr = read_exr(folder.get_path() / "c.exr");
    int covered = 0;
    for (int pixel = 0; pixel < 90 * 60; ++pixel) {
      const bool hit = std::isfinite(exr.values.at("Z")[static_cast<std::size_t>(pixel)]);
      const int column = pixel % 90, row = pixel / 90;
      const bool on_border = column == 0 || column == 89 || row == 0 || row == 59;
      EXPECT_FALSE(hit && on_border) << view << " cuts the cube off";
      covered += hit;
    }
    EXPECT_GT(covered, 90 * 60 / 3) << view;
    if (view != "three-quarter") {
      EXPECT_EQ(exr.values.at(view == "front" ? "N.Z" : view == "side" ? "N.X" : "N.Y")[30 * 90 + 45], 1.0f) << view;
    }
  }
}

TEST(VqgasRender, threads_do_not_change_a_byte) {
  const TestFolder folder;
  for (const std::string scene : {"demo:knot", "demo:mills"}) {
    std::string pictures[2];
    for (const int threads : {1, 2}) {
      std::vector<std::string> line = make_line(scene, "p.exr");
      line.insert(line.end(), {"--floor", "--threads", std::to_string(threads)});
      if (scene == "demo:mills") line.insert(line.end(), {"--shutter", "0,1"});
      ASSERT_EQ(run_vqgas(folder.get_path(), line).exit_code, 0);
      pictures[threads - 1] = folder.read("p.exr");
    }
    EXPECT_FALSE(pictures[0].empty());
    EXPECT_TRUE(pictures[0] == pictures[1]) << scene;
  }
}

TEST(VqgasRender, parts_of_a_grid_are_numbers_of_neighboring_polygons) {
  const TestFolder folder;
  const ProgramResult result = run_vqgas(folder.get_path(), {"render", "demo:knot", "--structure", "grid", "--layers",
                                                             "parts,position", "--size", "64x48", "-o", "k.exr"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const ExrFile exr = read_exr(folder.get_path() / "k.exr");
  struct Range {
    float low = 9.0f, high = -9.0f;
  };
  std::map<std::uint32_t, Range> seen;
  for (std::size_t pixel = 0; pixel < exr.values.at("P.X").size(); ++pixel) {
    const std::uint32_t part = exr.numbers.at("part")[pixel];
    const float x = exr.values.at("P.X")[pixel];
    EXPECT_EQ(part == 0xFFFFFFFFu, x == 0.0f);
    if (part == 0xFFFFFFFFu) continue;
    EXPECT_LT(part, 150u);
    seen[part] = {std::min(seen[part].low, x), std::max(seen[part].high, x)};
  }
  EXPECT_GT(seen.size(), 20u);
  for (const auto& [part, range] : seen) EXPECT_LT(range.high - range.low, 1.2f) << part;  // the knot is 3.4 wide
}

TEST(VqgasRender, overview_hides_the_parts_that_the_camera_did_not_build) {
  const TestFolder folder;
  const auto render = [&](const std::vector<std::string>& overview, unsigned& built) {
    std::vector<std::string> line = {"render", "demo:knot", "--structure", "grid",   "--layers", "parts",  "--size",
                                     "64x48",  "-o",        "k.exr",       "--view", "front",    "--json", "-"};
    line.insert(line.end(), overview.begin(), overview.end());
    built = nlohmann::json::parse(run_vqgas(folder.get_path(), line).out)["grid"]["built"];
    return read_exr(folder.get_path() / "k.exr").numbers.at("part");
  };
  unsigned built[3];
  const auto front = render({}, built[0]), again = render({"--overview", "front"}, built[1]),
             behind = render({"--overview", "0,0,-8/0,0,0/0,1,0/35"}, built[2]);
  EXPECT_TRUE(front == again);
  std::set<std::uint32_t> seen(behind.begin(), behind.end());
  EXPECT_EQ(seen.erase(0xFFFFFFFFu) + seen.erase(0xFFFFFFFEu), 2u);
  EXPECT_GT(seen.size(), 10u);
  EXPECT_LE(seen.size(), built[0]);
  EXPECT_EQ(built[2], built[0]) << "without the rays of the overview";
}

TEST(VqgasRender, views_look_from_their_sides_and_print_their_camera) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  const auto render = [&](std::vector<std::string> options, const std::string& name) {
    options.insert(options.begin(), {"render", "cube.obj", "--size", "32x24", "-o", name});
    const ProgramResult result = run_vqgas(folder.get_path(), options);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return result.out.substr(std::min(result.out.find("--camera "), result.out.size()));
  };
  struct Case {
    std::string view, up;
    int axis;  // of the eye: 1 x, 2 y, 3 z, negative on the lower side
    std::string up_vector;
  };
  const Case cases[] = {{"front", "y", 3, "0,1,0"},   {"back", "y", -3, "0,1,0"}, {"right", "y", 1, "0,1,0"},
                        {"side", "y", 1, "0,1,0"},    {"left", "y", -1, "0,1,0"}, {"top", "y", 2, "0,0,-1"},
                        {"bottom", "y", -2, "0,0,1"}, {"90,0", "y", 1, "0,1,0"},  {"0,90", "y", 2, "0,0,-1"},
                        {"front", "z", -2, "0,0,1"},  {"right", "z", 1, "0,0,1"}, {"top", "z", 3, "0,1,0"},
                        {"front", "x", 2, "1,0,0"},   {"right", "x", 3, "1,0,0"}};
  for (const Case& at : cases) {
    SCOPED_TRACE(at.view + " " + at.up);
    const std::string line = render({"--view", at.view, "--up", at.up}, "a.png");
    double eye[3] = {};
    ASSERT_EQ(std::sscanf(line.c_str(), "--camera %lf,%lf,%lf/", &eye[0], &eye[1], &eye[2]), 3) << line;
    for (int axis = 0; axis < 3; ++axis) {
      const bool is_along = std::abs(at.axis) - 1 == axis;
      EXPECT_NEAR(eye[axis], is_along ? (at.axis > 0 ? 1.0 : -1.0) * std::fabs(eye[axis]) : 0.0, 1e-9);
      EXPECT_TRUE(!is_along || std::fabs(eye[axis]) > 2.0);
    }
    EXPECT_NE(line.find("/" + at.up_vector + "/35"), std::string::npos) << line;
    render({"--camera", line.substr(9, line.find('\n') - 9), "--up", at.up}, "b.png");
    EXPECT_EQ(folder.read("a.png"), folder.read("b.png"));
  }
  // A floor is below: seen from above along each axis that may be upwards it fills the corners of the picture.
  for (const std::string up : {"x", "y", "z"}) {
    render({"--view", "top", "--up", up}, "sky.png");
    render({"--view", "top", "--up", up, "--floor"}, "floor.png");
    EXPECT_NE(folder.read("sky.png"), folder.read("floor.png")) << up;
  }
  render({"--layers", "heat"}, "heat.png");
  EXPECT_EQ(read_png(folder.get_path() / "heat.png").height, 24u);
  render({"--layers", "heat", "--legend"}, "heat.png");
  EXPECT_GT(read_png(folder.get_path() / "heat.png").height, 24u);
  for (const std::string useless : {"--linear", "--aligned-only"})
    EXPECT_EQ(run_vqgas(folder.get_path(), {"info", "cube.obj", useless}).exit_code, 2) << useless;
}

TEST(VqgasRender, white_and_gray_materials_keep_their_colors) {
  const TestFolder folder;
  folder.write("colors.mtl", "newmtl plain\nKd 1 1 1\nnewmtl dull\nKd 0.6 0.6 0.6\n");
  for (const std::string name : {"plain", "dull"}) {
    std::string obj = make_cube_obj(1.0);
    folder.write("cube.obj", "mtllib colors.mtl\n" + obj.insert(obj.find("f "), "usemtl " + name + "\n"));
    run_vqgas(folder.get_path(),
              {"render", "cube.obj", "--view", "front", "--layers", "group", "--size", "16x16", "-o", "c.png"});
    const PngFile picture = read_png(folder.get_path() / "c.png");
    for (int channel = 0; channel < 3; ++channel)  // albedo stays below 0.85, which is 237 on the sRGB curve
      EXPECT_NEAR(picture.rgb.at(3 * (8 * 16 + 8) + static_cast<std::size_t>(channel)), name == "plain" ? 237 : 153, 1);
  }
}

TEST(VqgasRender, flat_faces_do_not_shadow_a_smooth_surface) {
  const TestFolder folder;
  const auto render_ball = [&](int rows) {
    folder.write("ball.obj", make_ball_obj(rows));
    run_vqgas(folder.get_path(), {"render", "ball.obj", "--camera", "4,2,4/0,0,0/0,1,0/24", "--size", "96x96",
                                  "--samples", "64", "-o", "ball.png"});
    return read_png(folder.get_path() / "ball.png");
  };
  const PngFile coarse = render_ball(8), fine = render_ball(64);
  int difference = 0;
  for (int y = 0; y < 96; ++y) {
    for (int x = 0; x < 96; ++x) {
      if (std::hypot(x - 47.5, y - 47.5) > 34.0) continue;  // outlines differ
      const std::size_t value = 3 * (static_cast<std::size_t>(y) * 96 + static_cast<std::size_t>(x));
      difference = std::max(difference, std::abs(int(coarse.rgb.at(value)) - int(fine.rgb.at(value))));
    }
  }
  EXPECT_LT(difference, 16) << "a jagged shadow: 24";
}

TEST(VqgasRender, frames_are_a_picture_each_with_one_camera) {
  const TestFolder folder;
  const std::vector<std::string> common = {"render", "demo:mills", "--size", "64x36", "--layers", "object"};
  const auto render = [&](std::vector<std::string> options) {
    options.insert(options.begin(), common.begin(), common.end());
    return run_vqgas(folder.get_path(), options);
  };
  const ProgramResult sequence = render({"--frames", "0-2", "--view", "front", "-o", "a.png"});
  ASSERT_EQ(sequence.exit_code, 0) << sequence.err;
  EXPECT_EQ(folder.list(), (std::vector<std::string>{"a.0000.png", "a.0001.png", "a.0002.png"}));
  EXPECT_NE(folder.read("a.0000.png"), folder.read("a.0001.png")) << "it moves";
  const std::size_t begin = sequence.out.find("--camera ") + 9;
  const std::string camera = sequence.out.substr(begin, sequence.out.find('\n', begin) - begin);
  render({"--frame", "2", "--camera", camera, "-o", "b.png"});
  EXPECT_EQ(folder.read("a.0002.png"), folder.read("b.png"));
  for (const std::vector<std::string>& useless : {std::vector<std::string>{"--frames", "2-1"},
                                                  {"--frames", "0-1", "--frame", "0"},
                                                  {"--floor"},
                                                  {"--legend"},
                                                  {"--samples", "2"},
                                                  {"--point-size", "2"},
                                                  {"--motion-samples", "3", "--frame", "0"},
                                                  {"--layers", "heat", "--legend", "-o", "c.exr"},
                                                  {"--view", "top", "--camera", camera}}) {
    std::vector<std::string> line = useless;
    if (std::ranges::find(line, "-o") == line.end()) line.insert(line.end(), {"-o", "c.png"});
    EXPECT_EQ(render(line).exit_code, 2) << testing::PrintToString(useless);
  }
}
