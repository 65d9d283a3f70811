#include <numbers>

#include "tools/vqgas/demo/demo_mills.h"
#include "tools/vqgas/support/random.h"

namespace {

using std::numbers::pi;

/// A hill or a hollow: 1 in its middle.
double get_bump(double across, double near, double width, double length) {
  return std::exp(-across * across / (width * width) - near * near / (length * length));
}

double get_way(double across) { return 0.55 + 0.55 * std::sin(0.5 * across + 0.6) - 0.05 * across; }

struct Ground {
  uint meadow[3], soil, sand, way, rock;
};

Ground add_ground_groups(MeshBuilder& builder) {
  return {{builder.add_group("meadow", color_from_srgb(0x93a85f)),
           builder.add_group("meadow light", color_from_srgb(0xa3b46b)),
           builder.add_group("meadow dark", color_from_srgb(0x84995a))},
          builder.add_group("soil", color_from_srgb(0x8d7358)),
          builder.add_group("sand", color_from_srgb(0xdcc9a0)),
          builder.add_group("way", color_from_srgb(0xd8c6a2)),
          builder.add_group("rock", color_from_srgb(0x9a9187))};
}

uint choose_ground(const Ground& ground, double across, double near) {
  const double height = MillsLand::get_height(across, near);
  const double ragged = random_unit(static_cast<uint>(8192.0 + 40.0 * across), static_cast<uint>(8192.0 + 40.0 * near));
  if (height < MillsLand::water_level + 0.1 + 0.04 * ragged) return ground.sand;
  if (MillsLand::is_in_beds(across, near)) return ground.soil;
  if (std::fabs(near - get_way(across)) < 0.17 + 0.05 * ragged) return ground.way;
  const double tone = std::sin(0.9 * across + 1.7 * std::sin(0.5 * near)) * std::sin(1.1 * near + 0.4 * across);
  const double mixed = tone + 1.1 * (ragged - 0.5);
  return ground.meadow[mixed > 0.35 ? 1 : mixed < -0.35 ? 2 : 0];
}

}  // namespace

double MillsLand::get_height(double across, double near) {
  double height = 0.16 + 0.05 * std::sin(1.7 * across + 0.5) * std::cos(1.3 * near);
  height += 2.1 * get_bump(across + 3.0, near + 3.8, 3.1, 2.6);
  height += 1.35 * get_bump(across - 5.2, near + 3.6, 2.6, 2.2);
  height += 0.35 * get_bump(across + 7.6, near - 0.2, 1.8, 1.8);
  height -= 1.15 * get_bump(across - 3.4, near - 4.4, 3.0, 2.0);
  return height;
}

Point MillsLand::get_place(double across, double near) {
  return get_across() * across + get_near() * near + Point(0.0, get_height(across, near), 0.0);
}

bool MillsLand::is_in_beds(double across, double near) {
  if (std::hypot(across, near) > 9.4 || near < 1.75) return false;
  return across > -7.6 && across < -0.35 && get_height(across, near) > 0.0;
}

MeshSource make_mills_land() {
  MeshBuilder builder;
  const Ground ground = add_ground_groups(builder);
  // A square drawn out to a disc (its lines become ellipses): no pole in the middle.
  const auto get_plane = [](double u, double v) {
    const double x = 2.0 * u - 1.0, y = 1.0 - 2.0 * v;
    return GMathVec2<double>{MillsLand::radius * x * std::sqrt(1.0 - 0.5 * y * y),
                             MillsLand::radius * y * std::sqrt(1.0 - 0.5 * x * x)};
  };
  const auto place = [&](double u, double v) {
    const GMathVec2<double> plane = get_plane(u, v);
    return MillsLand::get_place(plane.x, plane.y);
  };
  const auto choose = [&](double u, double v) {
    const GMathVec2<double> plane = get_plane(u, v);
    return choose_ground(ground, plane.x, plane.y);
  };
  add_sheet(builder, 300, 300, place, choose);
  const auto place_rim = [](double u, double v) {
    const double angle = 2.0 * pi * u, away = MillsLand::radius - 0.35 * std::pow(1.0 - v, 2.0);
    const double across = std::cos(angle), near = -std::sin(angle);
    const double top = MillsLand::get_height(MillsLand::radius * across, MillsLand::radius * near);
    const double layer = v + 0.16 * v * (1.0 - v) * (std::sin(9.0 * angle) + 0.6 * std::sin(23.0 * angle + 1.0));
    const Point foot = MillsLand::get_across() * (across * away) + MillsLand::get_near() * (near * away);
    return Point(foot.x, std::lerp(-1.2, top, layer), foot.z);
  };
  const auto choose_rim = [&](double, double v) {
    return v > 0.88 ? ground.meadow[2] : v > 0.5 ? ground.soil : ground.rock;
  };
  add_sheet(builder, 720, 20, place_rim, choose_rim);
  return builder.finish();
}

MeshSource make_mills_water() {
  MeshBuilder builder;
  const uint water = builder.add_group("water", color_from_srgb(0x4f8fa8));
  const Point middle = MillsLand::get_across() * 3.4 + MillsLand::get_near() * 4.4;
  const auto place = [&](double u, double v) {
    const Point at = middle + MillsLand::get_across() * (7.6 * (u - 0.5)) - MillsLand::get_near() * (5.0 * (v - 0.5));
    return Point(at.x, MillsLand::water_level, at.z);
  };
  add_sheet(builder, 180, 120, place, [&](double, double) { return water; });
  MeshSource source = builder.finish_unwelded();
  add_motion(source, [](uint, const Point& p, double t) {
    const double ripple = 0.014 * std::sin(5.0 * p.x + 2.5 * p.z - 6.0 * t) +
                          0.010 * std::sin(7.0 * p.z - 3.1 * p.x + 5.0 * t + 0.8 * std::sin(p.x));
    return Point(p.x, p.y + ripple, p.z);
  });
  return source;
}
