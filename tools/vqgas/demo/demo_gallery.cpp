#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

using std::numbers::pi;

/// A round floor of tiles in two tones, each tile a low box with a gap around it.
void add_floor(MeshBuilder& builder) {
  const uint light = builder.add_group("floor light", color_from_srgb(0xd9d2c5));
  const uint dark = builder.add_group("floor dark", color_from_srgb(0x8b96a0));
  const uint base = builder.add_group("base", color_from_srgb(0x77716b));
  add_lathe(builder, {{0, -0.6, 0}}, {{0, 0}, {6.3, 0}, {6.5, 0.2}, {6.5, 0.45}, {6.36, 0.56}, {0, 0.56}}, 256, base);
  constexpr uint rings = 8;
  for (uint ring = 0; ring < rings; ++ring) {
    const uint tiles = 8 + 6 * ring;
    const double inner = 0.78 * ring + 0.02, outer = 0.78 * (ring + 1) - 0.02;
    for (uint tile = 0; tile < tiles; ++tile) {
      const double gap = 0.02 / outer, from = 2 * pi * tile / tiles + gap, to = 2 * pi * (tile + 1) / tiles - gap;
      std::vector<GMathVec2<double>> outline;
      for (uint k = 0; k <= 6; ++k) {
        const double angle = std::lerp(from, to, k / 6.0);
        outline.push_back({outer * std::cos(angle), outer * std::sin(angle)});
      }
      for (uint k = 0; k <= 6; ++k) {
        const double angle = std::lerp(to, from, k / 6.0);
        outline.push_back({inner * std::cos(angle), inner * std::sin(angle)});
      }
      const Frame lying{{0, -0.05, 0}, {1, 0, 0}, {0, 0, -1}, {0, 1, 0}};
      add_prism(builder, lying, outline, 0.05, (ring + tile) % 2 == 0 ? light : dark);
    }
  }
}

/// Fluted columns on a half circle, under a ring.
void add_colonnade(MeshBuilder& builder) {
  const uint stone = builder.add_group("columns", color_from_srgb(0xe4dccb));
  const std::vector<GMathVec2<double>> foot = {{0, 0},       {0.5, 0},     {0.5, 0.16}, {0.42, 0.2},
                                               {0.44, 0.28}, {0.36, 0.34}, {0, 0.34}};
  std::vector<GMathVec2<double>> shaft;
  for (uint row = 0; row <= 40; ++row)
    shaft.push_back({0.33 - 0.05 * row / 40.0 + 0.015 * std::sin(pi * row / 40.0), 0.3 + 3.1 * row / 40.0});
  const std::vector<GMathVec2<double>> head = {{0, 3.36},    {0.3, 3.36},  {0.31, 3.42}, {0.44, 3.56},
                                               {0.46, 3.66}, {0.46, 3.72}, {0, 3.72}};
  constexpr uint columns = 10;
  constexpr double radius = 5.45;
  for (uint k = 0; k < columns; ++k) {
    const double angle = pi * (0.02 + 0.96 * k / (columns - 1));
    const Frame frame = Frame::turned({radius * std::cos(angle), 0, -radius * std::sin(angle)}, angle);
    add_lathe(builder, frame, foot, 48, stone);
    add_lathe(builder, frame, shaft, 160, stone,
              [](double around, double) { return 1.0 - 0.09 * std::pow(std::fabs(std::sin(10.0 * around)), 1.5); });
    add_lathe(builder, frame, head, 48, stone);
  }
  std::vector<GMathVec2<double>> outline;
  for (uint k = 0; k <= 60; ++k) {
    const double angle = pi * (-0.01 + 1.02 * k / 60.0);
    outline.push_back({(radius + 0.5) * std::cos(angle), (radius + 0.5) * std::sin(angle)});
  }
  for (uint k = 0; k <= 60; ++k) {
    const double angle = pi * (1.01 - 1.02 * k / 60.0);
    outline.push_back({(radius - 0.5) * std::cos(angle), (radius - 0.5) * std::sin(angle)});
  }
  add_prism(builder, {{0, 3.72, 0}, {1, 0, 0}, {0, 0, -1}, {0, 1, 0}}, outline, 0.42, stone);
}

/// The knot on its pedestal.
void add_center(MeshBuilder& builder) {
  const uint pedestal = builder.add_group("pedestal", color_from_srgb(0x4d5560));
  const uint knot = builder.add_group("knot", color_from_srgb(0xd98e5f));
  add_lathe(builder, {{0, 0, 0}},
            {{0, 0}, {1.35, 0}, {1.35, 0.2}, {1.15, 0.3}, {1.15, 0.72}, {1.3, 0.82}, {1.3, 0.95}, {0, 0.95}}, 8,
            pedestal);
  const Frame standing = Frame::turned({0, 2.55, 0}, 0.35);
  add_tube(
      builder, [&](double t) { return standing.map(get_trefoil_point(t + 0.25) * 0.95); }, 900, 64, 0.27, knot);
}

/// Three wheels whose teeth mesh, leaning back a little.
void add_gears(MeshBuilder& builder) {
  const uint brass = builder.add_group("gears", color_from_srgb(0xc9a227));
  const uint hub = builder.add_group("hubs", color_from_srgb(0x5c5148));
  struct Gear {
    double x, y, radius, phase;
    uint teeth;
  };
  const Gear gears[] = {{0, 1.12, 0.95, 0.0, 20}, {1.37, 0.62, 0.45, 0.31, 10}, {-0.2, 2.62, 0.5, 0.18, 11}};
  const double lean = 0.16, turn = 0.5;
  const Point right(std::cos(turn), 0, -std::sin(turn)), away(std::sin(turn), 0, std::cos(turn));
  const Point up = Point(0, std::cos(lean), 0) - away * std::sin(lean);
  const Point out = right.cross(up);
  for (const Gear& gear : gears) {
    const double c = std::cos(gear.phase), s = std::sin(gear.phase);
    const Point origin = Point(-3.7, 0, 1.6) + right * gear.x + up * gear.y;
    const Frame frame{origin, right * c + up * s, up * c - right * s, out};
    add_prism(builder, frame, make_gear_outline(gear.teeth, gear.radius - 0.06, gear.radius + 0.1), 0.22, brass);
    const Frame axle{origin - out * 0.1, frame.x, out, frame.x.cross(out)};
    add_lathe(builder, axle, {{0, 0}, {0.2, 0}, {0.2, 0.38}, {0.15, 0.42}, {0, 0.42}}, 48, hub);
  }
}

/// A staircase of stars.
void add_stars(MeshBuilder& builder) {
  const uint red = builder.add_group("stars red", color_from_srgb(0xb8626b));
  const uint blue = builder.add_group("stars blue", color_from_srgb(0x5b84b1));
  constexpr uint floors = 22;
  for (uint k = 0; k < floors; ++k) {
    const double size = 1.05 - 0.036 * k, angle = 0.14 * k;
    const Frame frame{{3.75, 0.125 * k, 0.9},
                      {std::cos(angle), 0, std::sin(angle)},
                      {std::sin(angle), 0, -std::cos(angle)},
                      {0, 1, 0}};
    add_prism(builder, frame, make_star_outline(5, 0.42 * size, size), 0.115, k % 2 == 0 ? red : blue);
  }
}

/// Balls on the floor, among them a spiky one and a dented one.
void add_spheres(MeshBuilder& builder) {
  const uint groups[] = {builder.add_group("ball green", color_from_srgb(0x7fa878)),
                         builder.add_group("ball blue", color_from_srgb(0x6f9bd1)),
                         builder.add_group("ball yellow", color_from_srgb(0xe8c45a)),
                         builder.add_group("ball violet", color_from_srgb(0x8d79b0)),
                         builder.add_group("ball white", color_from_srgb(0xefece6))};
  const auto spikes = [](const Point& p) {
    const double a = std::atan2(p.z, p.x), h = std::acos(std::clamp(p.y, -1.0, 1.0));
    return 0.82 + 0.2 * std::pow(std::fabs(std::sin(7.0 * a) * std::sin(7.0 * h)), 3.0);
  };
  const auto dents = [](const Point& p) {
    return 0.95 + 0.05 * std::cos(14.0 * p.x) * std::cos(14.0 * p.y) * std::cos(14.0 * p.z);
  };
  add_sphere(builder, {-1.5, 0.62, 3.4}, 0.62, 192, groups[0], spikes);
  add_sphere(builder, {1.75, 0.55, 3.2}, 0.58, 160, groups[3], dents);
  constexpr uint count = 26;
  for (uint k = 0; k < count; ++k) {
    const double radius = 0.1 + 0.16 * random_unit(k, 1), angle = 2 * pi * (k + 0.6 * random_unit(k, 2)) / count;
    const double away = 4.75 + 0.9 * random_unit(k, 3);
    const Point center(away * std::cos(angle), radius, away * std::sin(angle));
    if (center.z < -2.0 || (center.x < -2.4 && center.z < 3.0) || (center.x > 2.6 && center.z < 2.2)) continue;
    add_sphere(builder, center, radius, 48, groups[hash_bits(k) % 5]);
  }
}

/// A chain that hangs between the first and the last column.
void add_chain(MeshBuilder& builder) {
  const uint iron = builder.add_group("chain", color_from_srgb(0x64707a));
  constexpr uint links = 61;
  const auto curve = [](double t) {
    const double x = 2.0 * t - 1.0;
    return Point(4.3 * x, 2.35 + 1.15 * x * x, -3.6 - 0.6 * (1 - x * x));
  };
  for (uint link = 0; link < links; ++link) {
    const double t = double(link) / (links - 1);
    const Point along = (curve(t + 1e-3) - curve(t - 1e-3)).get_normalized();
    const Point flat = link % 2 == 0 ? Point(0, 0, 1) : along.cross({0, 0, 1});
    const Point across = flat.cross(along).get_normalized();
    add_tube(
        builder,
        [&](double s) {
          return curve(t) + along * (0.135 * std::cos(2 * pi * s)) + across * (0.075 * std::sin(2 * pi * s));
        },
        40, 12, 0.026, iron);
  }
}

}  // namespace

MeshSource make_demo_gallery() {
  MeshBuilder builder;
  add_floor(builder);
  add_colonnade(builder);
  add_center(builder);
  add_gears(builder);
  add_stars(builder);
  add_spheres(builder);
  add_chain(builder);
  return builder.finish();
}
