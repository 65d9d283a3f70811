#include <numbers>

#include "tools/vqgas/demo_scenes.h"
#include "tools/vqgas/demo_shapes.h"

namespace {

constexpr double pi = std::numbers::pi;
constexpr uint sample_count = 9;  // over the times 0 to 1, the same in all scenes so that they can be joined

/// Where a vertex that rests at `p` is at time t.
using Motion = Point (*)(const Point& p, double t);

/// Fills the motion samples; vertices below `moving.size()` move by the function of their part.
void add_motion(MeshSource& source, const std::vector<Motion>& moving) {
  PolyMeshData& data = source.data;
  data.motion_begin = 0.0;
  data.motion_step = 1.0 / (sample_count - 1);
  const std::vector<GMathVec3<float>> rest = data.positions;
  for (uint sample = 0; sample < sample_count; ++sample) {
    auto& positions = data.motion_positions.emplace_back();
    positions.reserve(rest.size());
    for (std::size_t vertex = 0; vertex < rest.size(); ++vertex)
      positions.emplace_back(moving[vertex](Point(rest[vertex]), sample * data.motion_step));
  }
  data.positions = data.motion_positions.front();
}

double get_water_height(double distance, double t) {
  const double front = 0.8 + 2.6 * t;
  return 0.42 * std::cos(4.2 * (distance - front)) * std::exp(-1.1 * (distance - front) * (distance - front));
}

Point move_water(const Point& p, double t) { return {p.x, p.y + get_water_height(std::hypot(p.x, p.z), t), p.z}; }

Point move_ball(const Point& p, double t) { return {p.x + 0.5 * t, p.y + 0.4 + 1.5 * t * (1.0 - 0.35 * t), p.z}; }

Point turn_wheel(const Point& p, double t) {
  const double angle = 0.55 * t, c = std::cos(angle), s = std::sin(angle);
  const Point hub(2.4, 1.5, -1.6);
  const Point d = p - hub;
  return hub + Point(c * d.x - s * d.y, s * d.x + c * d.y, d.z);
}

Point move_jelly(const Point& p, double t) {
  const double height = (p.y + 1.0) / 2.0;
  const double angle = 1.1 * height * std::sin(pi * t), c = std::cos(angle), s = std::sin(angle);
  const double stretch = 1.0 + 0.28 * std::sin(2.0 * pi * t), thin = 1.0 / std::sqrt(stretch);
  const double sway = 0.55 * height * height * std::sin(1.5 * pi * t);
  return {(c * p.x + s * p.z) * thin + sway, -1.0 + (p.y + 1.0) * stretch, (c * p.z - s * p.x) * thin};
}

Point stay(const Point& p, double) { return p; }

/// A level grid of quads around the origin.
void add_grid(MeshBuilder& builder, uint cells, double side, double height, uint group) {
  const uint first = builder.get_vertex_count();
  for (uint row = 0; row <= cells; ++row) {
    for (uint column = 0; column <= cells; ++column)
      builder.add_vertex({(double(column) / cells - 0.5) * side, height, (double(row) / cells - 0.5) * side});
  }
  for (uint row = 0; row < cells; ++row) {
    for (uint column = 0; column < cells; ++column) {
      const uint a = first + row * (cells + 1) + column;
      builder.add_polygon({a, a + cells + 1, a + cells + 2, a + 1}, group);
    }
  }
}

/// The six sides of a cube from -1 to 1 as grids, its edges rounded.
void add_rounded_cube(MeshBuilder& builder, uint cells, double rounding, const uint (&groups)[2]) {
  for (uint face = 0; face < 6; ++face) {
    const uint axis = face / 2, first = builder.get_vertex_count();
    for (uint row = 0; row <= cells; ++row) {
      for (uint column = 0; column <= cells; ++column) {
        Point p;
        p[axis] = face % 2 == 0 ? 1.0 : -1.0;
        p[(axis + 1) % 3] = 2.0 * column / cells - 1.0;
        p[(axis + 2) % 3] = (face % 2 == 0 ? 1.0 : -1.0) * (2.0 * row / cells - 1.0);
        Point core;
        for (uint k = 0; k < 3; ++k) core[k] = std::clamp(p[k], rounding - 1.0, 1.0 - rounding);
        builder.add_vertex(core + (p - core).get_normalized() * rounding);
      }
    }
    for (uint row = 0; row < cells; ++row) {
      for (uint column = 0; column < cells; ++column) {
        const uint a = first + row * (cells + 1) + column;
        const uint group = groups[(row * 8 / cells + column * 8 / cells + axis) % 2];
        builder.add_polygon({a, a + 1, a + cells + 2, a + cells + 1}, group);
      }
    }
  }
}

}  // namespace

MeshSource make_demo_wave() {
  MeshBuilder builder;
  std::vector<Motion> moving;
  const uint water = builder.add_group("water", color_from_srgb(0x4f8fb0));
  const uint ball = builder.add_group("ball", color_from_srgb(0xd9603f));
  const uint wheel = builder.add_group("wheel", color_from_srgb(0xc9a227));
  add_grid(builder, 240, 8.0, 0.0, water);
  moving.resize(builder.get_vertex_count(), move_water);
  add_sphere(builder, {-0.2, 0.35, 0.0}, 0.55, 96, ball);
  moving.resize(builder.get_vertex_count(), move_ball);
  add_prism(builder, {{2.4, 1.5, -1.7}}, make_gear_outline(14, 0.95, 1.25), 0.25, wheel);
  moving.resize(builder.get_vertex_count(), turn_wheel);
  MeshSource source = builder.finish_unwelded();
  add_motion(source, moving);
  return source;
}

MeshSource make_demo_jelly() {
  MeshBuilder builder;
  std::vector<Motion> moving;
  const uint plate = builder.add_group("plate", color_from_srgb(0xd9d2c5));
  const uint jelly[2] = {builder.add_group("jelly red", color_from_srgb(0xc0505c)),
                         builder.add_group("jelly yellow", color_from_srgb(0xe8b84a))};
  add_lathe(builder, {{0, -1.2, 0}}, {{0, 0}, {2.3, 0}, {2.75, 0.22}, {2.7, 0.24}, {2.25, 0.2}, {0, 0.2}}, 160, plate);
  moving.resize(builder.get_vertex_count(), stay);
  add_rounded_cube(builder, 96, 0.25, jelly);
  moving.resize(builder.get_vertex_count(), move_jelly);
  MeshSource source = builder.finish_unwelded();
  add_motion(source, moving);
  return source;
}
