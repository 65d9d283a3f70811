// tools/vqgas/demo/demo_wind.cpp
#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

using std::numbers::pi;
constexpr uint sample_count = 9;  // over the times 0 to 1, as in the other moving scenes
constexpr double meadow_radius = 2.4;

/// A hill that falls off steeply at its rim.
double get_ground(double x, double z) {
  const double away = std::hypot(x, z) / meadow_radius;
  return 0.14 * std::sin(1.3 * x + 0.4) * std::cos(1.1 * z) - 0.6 * std::pow(away, 4.0);
}

/// Strength of the wind at a point and time: waves that run along x.
double get_wind(const Point& at, double t) {
  const double wave = std::sin(2.1 * at.x + 0.7 * std::sin(1.2 * at.z) - 5.0 * t);
  return 0.2 + 1.1 * std::pow(0.5 + 0.5 * wave, 2.0) + 0.1 * std::sin(7.0 * at.z + 11.0 * t + 3.0 * at.x);
}

struct Blade {
  Point root;
  double angle, length, stiffness;  // the side it leans to by itself
};

/// The blade's points at time t: an arc that the wind bends along x and z.
void add_blade(std::vector<CurvePoint<float>>& points, const Blade& blade, double t, uint pieces, bool has_ear) {
  const double wind = get_wind(blade.root, t) * blade.stiffness;
  const Point push(0.95 * wind + 0.35 * std::cos(blade.angle), 0.0, 0.2 * wind + 0.35 * std::sin(blade.angle));
  Point at = blade.root;
  for (uint k = 0; k <= pieces; ++k) {
    const double s = double(k) / pieces;
    double radius = 0.006 * (1.0 - 0.85 * s);
    if (has_ear) radius = s > 0.75 ? 0.02 * std::sin(pi * std::fmin(1.0, (s - 0.72) / 0.28)) + 0.004 : 0.005;
    points.push_back({GMathVec3<float>(at), static_cast<float>(radius)});
    at += (Point(0.0, 1.0, 0.0) + push * (1.9 * (s + 0.5 / pieces))).get_normalized() * (blade.length / pieces);
  }
}

Blade make_blade(uint number, double length) {
  const double away = 0.985 * meadow_radius * std::sqrt(random_unit(number, 1)),
               turn = 2.0 * pi * random_unit(number, 2);
  const double x = away * std::cos(turn), z = away * std::sin(turn);
  return {{x, get_ground(x, z), z},
          2.0 * pi * random_unit(number, 3),
          length * (0.65 + 0.5 * random_unit(number, 4)),
          0.75 + 0.5 * random_unit(number, 5)};
}

}  // namespace

SceneSource make_demo_wind() {
  constexpr uint blades = 60000, ears = 150;
  SceneSource scene;
  HairSource grass;
  CurveData& data = grass.data;
  grass.group_colors = {color_from_srgb(0x86a848), color_from_srgb(0xb5b35c), color_from_srgb(0xc98f4e)};
  data.group_names = {CoreString("grass green"), CoreString("grass dry"), CoreString("ears")};
  data.motion_step = 1.0 / (sample_count - 1);
  data.motion_points.resize(sample_count);
  for (uint number = 0; number < blades + ears; ++number) {
    const bool has_ear = number >= blades;
    const uint pieces = has_ear ? 16 : 6;
    const Blade blade = make_blade(number, has_ear ? 0.9 : 0.5);
    for (uint sample = 0; sample < sample_count; ++sample)
      add_blade(data.motion_points[sample], blade, sample * data.motion_step, pieces, has_ear);
    data.curve_sizes.push_back(pieces + 1);
    data.curve_groups.push_back(has_ear ? 2 : random_unit(number, 6) < 0.2 ? 1 : 0);
  }
  data.points = data.motion_points.front();

  MeshBuilder builder;
  const uint soil = builder.add_group("soil", color_from_srgb(0x6b5a41));
  constexpr uint rings = 24, sectors = 120;
  const uint middle = builder.add_vertex({0.0, get_ground(0.0, 0.0), 0.0});
  for (uint ring = 1; ring <= rings; ++ring) {
    for (uint k = 0; k < sectors; ++k) {
      const double away = meadow_radius * ring / rings, turn = 2.0 * pi * k / sectors;
      const double x = away * std::cos(turn), z = -away * std::sin(turn);
      builder.add_vertex({x, get_ground(x, z), z});
    }
  }
  for (uint k = 0; k < sectors; ++k) {
    const uint next = (k + 1) % sectors;
    builder.add_polygon({middle, middle + 1 + k, middle + 1 + next}, soil);
    for (uint ring = 1; ring < rings; ++ring) {
      const uint inner = middle + 1 + (ring - 1) * sectors, outer = inner + sectors;
      builder.add_polygon({inner + k, outer + k, outer + next, inner + next}, soil);
    }
  }
  scene.add_object("meadow", builder.finish());
  scene.add_object("grass", std::move(grass));
  return scene;
}
