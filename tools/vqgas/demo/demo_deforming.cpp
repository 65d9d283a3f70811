#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"

namespace {

using std::numbers::pi;

/// Position at time t of a vertex whose static position is `p`.
using Motion = Point (*)(const Point& p, double t);

double get_water_height(double distance, double t) {
  const double front = 1.7 + 0.75 * t, behind = distance - front;
  return 0.24 * std::cos(5.5 * behind) * std::exp(-0.55 * behind * behind);
}

Point move_water(const Point& p, double t) { return {p.x, p.y + get_water_height(std::hypot(p.x, p.z), t), p.z}; }

/// Thrown up and falling again: the blur is long where the ball is fast.
Point move_ball(const Point& p, double t) { return p + Point(0.55 * t, 1.6 * t - 1.0 * t * t, 0.0); }

Point turn_wheel(const Point& p, double t) {
  const double angle = 0.24 * t, c = std::cos(angle), s = std::sin(angle);
  const Point hub(1.0, 1.05, -3.75);
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

/// A level disc: rings of quads around a polygon.
void add_disc(MeshBuilder& builder, uint rings, uint segments, double radius, uint group) {
  const uint first = builder.get_vertex_count();
  for (uint ring = 1; ring <= rings; ++ring) {
    for (uint k = 0; k < segments; ++k) {
      const double away = radius * ring / rings, angle = 2.0 * pi * k / segments;
      builder.add_vertex({away * std::cos(angle), 0.0, -away * std::sin(angle)});
    }
  }
  std::vector<u32> middle;
  for (uint k = 0; k < segments; ++k) middle.push_back(first + k);
  builder.add_polygon(middle, group);
  for (uint ring = 1; ring < rings; ++ring) {
    for (uint k = 0; k < segments; ++k) {
      const uint inner = first + (ring - 1) * segments, outer = inner + segments, right = (k + 1) % segments;
      builder.add_polygon({inner + k, outer + k, outer + right, inner + right}, group);
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
  const uint stone = builder.add_group("basin", color_from_srgb(0xcfc6b8));
  const uint water = builder.add_group("water", color_from_srgb(0x3f7f9f));
  const uint ball = builder.add_group("ball", color_from_srgb(0xd9603f));
  const uint wheel = builder.add_group("wheel", color_from_srgb(0xc9a227));
  const std::vector<GMathVec2<double>> profile = {{0, -0.7},    {4.3, -0.7},  {4.4, -0.2}, {4.55, 0.1}, {4.55, 0.3},
                                                  {4.45, 0.38}, {4.05, 0.38}, {3.95, 0.3}, {3.9, -0.5}, {0, -0.5}};
  add_lathe(builder, {}, profile, 240, stone);
  for (const double side : {-0.32, 0.22}) {
    const Frame post{{1.0 - 0.12, 0.3, -3.75 + side}};
    add_prism(builder, post, {{0, 0}, {0.24, 0}, {0.2, 0.9}, {0.04, 0.9}}, 0.1, stone);
  }
  moving.resize(builder.get_vertex_count(), stay);
  add_disc(builder, 160, 320, 3.93, water);
  moving.resize(builder.get_vertex_count(), move_water);
  add_sphere(builder, {-0.5, 0.75, 0.4}, 0.55, 96, ball);
  moving.resize(builder.get_vertex_count(), move_ball);
  add_prism(builder, {{1.0, 1.05, -3.87}}, make_gear_outline(16, 0.85, 1.1), 0.24, wheel);
  moving.resize(builder.get_vertex_count(), turn_wheel);
  MeshSource source = builder.finish_unwelded();
  add_motion(source, [&](uint vertex, const Point& p, double t) { return moving[vertex](p, t); });
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
  add_motion(source, [&](uint vertex, const Point& p, double t) { return moving[vertex](p, t); });
  return source;
}
