// tests/tools/render_test.cpp
//
// Pictures are read back and compared with what the camera must see.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <nlohmann/json.hpp>
#include <numbers>

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

std::vector<std::string> make_line(const std::string& name, const std::string& output) {
  return {"render",   name,       "-o",        output, "--camera", "0,0,5/0,0,0/0,1,0/60", "--size", "64x48",
          "--layers", all_layers, "--samples", "4",    "--quiet"};
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
      EXPECT_GT(value("R"), 0.0f);
      EXPECT_GE(value("heat.nodes"), 1.0f);
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
  ASSERT_EQ(run_vqgas(folder.get_path(), make_line("squares.obj", "s.png")).exit_code, 0);
  const std::vector<std::string> expected = {"s.count.png",  "s.depth.png", "s.group.png",    "s.heat.png",
                                             "s.normal.png", "s.png",       "s.position.png", "s.primitive.png",
                                             "s.uv.png",     "squares.obj"};
  EXPECT_EQ(folder.list(), expected);
  const PngFile normal = read_png(folder.get_path() / "s.normal.png");
  ASSERT_EQ(normal.width, 64u);
  ASSERT_EQ(normal.height, 48u);
  EXPECT_EQ(normal.at(32, 24), (std::array<int, 3>{128, 128, 255}));
  EXPECT_EQ(normal.at(0, 0), (std::array<int, 3>{0, 0, 0}));
  const PngFile depth = read_png(folder.get_path() / "s.depth.png");
  EXPECT_GT(depth.at(32, 24)[0], depth.at(16, 24)[0]) << "near is light";
  const PngFile heat = read_png(folder.get_path() / "s.heat.png");
  EXPECT_GT(heat.height, 48u) << "room for the legend";

  ASSERT_EQ(
      run_vqgas(folder.get_path(), {"render", "squares.obj", "-o", "only.png", "--layers", "depth", "--size", "8x8"})
          .exit_code,
      0);
  EXPECT_EQ(read_png(folder.get_path() / "only.png").width, 8u) << "a single layer takes the name as it stands";
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
    const std::size_t middle = 30 * 90 + 45;
    const char* const facing = view == "front" ? "N.Z" : view == "side" ? "N.X" : view == "top" ? "N.Y" : nullptr;
    if (facing != nullptr) {
      EXPECT_EQ(exr.values.at(facing)[middle], 1.0f) << view;
    }
  }
}

TEST(VqgasRender, threads_do_not_change_a_byte) {
  const TestFolder folder;
  for (const std::string scene : {"demo:knot", "demo:jelly"}) {
    std::string pictures[2];
    for (const int threads : {1, 2}) {
      std::vector<std::string> line = {"render",
                                       scene,
                                       "-o",
                                       "p.exr",
                                       "--size",
                                       "80x50",
                                       "--samples",
                                       "3",
                                       "--layers",
                                       all_layers,
                                       "--floor",
                                       "--threads",
                                       std::to_string(threads)};
      if (scene == "demo:jelly") line.insert(line.end(), {"--shutter", "0,1"});
      ASSERT_EQ(run_vqgas(folder.get_path(), line).exit_code, 0);
      pictures[threads - 1] = folder.read("p.exr");
    }
    EXPECT_FALSE(pictures[0].empty());
    EXPECT_TRUE(pictures[0] == pictures[1]) << scene;
  }
}

TEST(VqgasRender, an_open_shutter_blurs_what_moves) {
  // Seen from the front, the ball of the pond covers places that it covers at no single moment alone.
  const TestFolder folder;
  const auto render = [&](const std::vector<std::string>& shutter) {
    std::vector<std::string> line = {"render", "demo:wave", "-o", "w.exr",    "--size",
                                     "60x40",  "--samples", "16", "--camera", "0,1.4,6/-0.2,1.4,0.4/0,1,0/16"};
    line.insert(line.end(), shutter.begin(), shutter.end());
    EXPECT_EQ(run_vqgas(folder.get_path(), line).exit_code, 0);
    return read_exr(folder.get_path() / "w.exr").values.at("A");
  };
  const auto count_partly = [](const std::vector<float>& coverage) {
    return std::count_if(coverage.begin(), coverage.end(), [](float a) { return a > 0.1f && a < 0.9f; });
  };
  const auto sharp = count_partly(render({})), closed = count_partly(render({"--shutter", "0.5,0.5"}));
  const auto blurred = count_partly(render({"--shutter", "0,1"}));
  EXPECT_GT(blurred, sharp + 40);
  EXPECT_GT(blurred, closed + 40);
}

TEST(VqgasRender, quiet_behind_a_pipe_and_complete_in_its_report) {
  const TestFolder folder;
  folder.write("a.obj", make_cube_obj(1.0));
  folder.write("b.obj", make_squares_obj());
  const ProgramResult result = run_vqgas(folder.get_path(), {"render", "a.obj", "b.obj", "-o", "x.png", "-o", "x.exr",
                                                             "--size", "16x16", "--json", "r.json"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.err, "") << "no progress line where nobody watches";
  EXPECT_NE(result.out.find("x.png\nx.exr\n"), std::string::npos);
  const auto report = nlohmann::json::parse(folder.read("r.json"));
  EXPECT_EQ(report["primitives"], 9) << "several files are one mesh";
  EXPECT_EQ(report["written"], nlohmann::json({"x.png", "x.exr"}));
  EXPECT_EQ(report["rays"]["camera"], 16 * 16 * 16);
  EXPECT_EQ(run_vqgas(folder.get_path(), {"render", "a.obj", "-o", "y.png", "--size", "4x4", "--quiet"}).out, "");
}

TEST(VqgasRender, an_interrupt_leaves_whole_files_or_none) {
  // Some of these moments fall into the rendering, some into the writing, some come too late; none before the start.
  int interrupted = 0;
  for (int milliseconds = 400; milliseconds <= 2000; milliseconds += 200) {
    const TestFolder folder;
    const ProgramResult result = interrupt_vqgas(
        folder.get_path(),
        {"render", "demo:knot", "-o", "big.exr", "--size", "1600x1200", "--layers", "depth,normal,position,count"},
        SIGINT, milliseconds);
    interrupted += result.exit_code == 130;
    EXPECT_TRUE(result.exit_code == 130 || result.exit_code == 0) << result.exit_code;
    EXPECT_EQ(result.err, "");
    for (const std::string& name : folder.list()) {
      ASSERT_EQ(name, "big.exr");
      EXPECT_NO_THROW(read_exr(folder.get_path() / name));
    }
  }
  EXPECT_GT(interrupted, 0);
}
