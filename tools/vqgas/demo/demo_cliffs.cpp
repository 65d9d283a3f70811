#include <algorithm>
#include <cmath>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint columns = 220, rows = 220, rate = 34;  // 112 million micro-triangles
constexpr double side = 12.0, water_level = 0.0, bound = 0.16;

double ease(double low, double high, double x) {
  const double t = std::clamp((x - low) / (high - low), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

GeometryNoiseSettings make_noise_settings(u64 seed, uint octaves, double frequency, double amplitude) {
  GeometryNoiseSettings settings;
  settings.seed = seed;
  settings.octaves = octaves;
  settings.frequency = frequency;
  settings.amplitude = amplitude;
  return settings;
}

/// The land before it is displaced: a canyon between mesas with two steps.
class CliffsLand {
 public:
  double get_height(double x, double z) const {
    const double wander = 1.1 * std::sin(0.55 * x + 0.6) + 0.5 * std::sin(1.3 * x);
    const double coast = 1.3 * broad_.get_height({{x, 3.0, z}, {}}) + 0.25 * narrow_.get_height({{x, 0.0, z}, {}});
    const double away = std::fabs(z - wander) - 0.55 + coast;
    const double shore = 0.45 * ease(-0.2, 0.6, away) - 0.15;
    const double lower = 1.15 * ease(0.55, 0.85, away), upper = 0.95 * ease(1.75, 2.05, away + 0.4 * coast);
    return shore + lower + upper;
  }

 private:
  GeometryNoiseHeight broad_{make_noise_settings(5, 3, 0.28, 1.0)}, narrow_{make_noise_settings(6, 3, 1.1, 1.0)};
};

/// Layers of rock that stand out by different lengths, with cracks from top to bottom, and rough everywhere. The bed of
/// the river is smooth.
class CliffsHeight final : public GeometryHeight {
 public:
  double get_height(const GeometryHeightPoint& point) const override {
    const Point& p = point.position;
    const double rough = rough_.get_height(point);
    const double crack = cracks_.get_height({{p.x, 0.4 * p.y, p.z}, {}});
    const double dry = ease(water_level - 0.1, water_level + 0.4, p.y);
    return dry * (get_layer(9.0 * p.y + 5.0 * rough) - 0.1 * std::sqrt(std::fabs(crack)) + rough + 0.03);
  }
  u64 get_memory_size() const override { return sizeof(*this); }

 private:
  static double get_layer(double y) {
    const double below = std::floor(y), length = ease(0.72, 1.0, y - below);
    const auto number = static_cast<uint>(static_cast<int>(below) + 100);
    return 0.08 * std::lerp(random_unit(number, 3), random_unit(number + 1, 3), length);
  }

  GeometryNoiseHeight rough_{make_noise_settings(2, 4, 2.2, 0.06)}, cracks_{make_noise_settings(3, 2, 1.7, 1.0)};
};

/// Of quads.
MeshSource make_land() {
  MeshBuilder builder;
  const uint sand = builder.add_group("sand", color_from_srgb(0xcdb48b));
  const uint rock = builder.add_group("rock", color_from_srgb(0xb98460));
  const uint grass = builder.add_group("grass", color_from_srgb(0x8d9463));
  const CliffsLand land;
  const auto place = [&](double u, double v) {
    const double x = (u - 0.5) * side, z = (v - 0.5) * side;
    return Point(x, land.get_height(x, z), z);
  };
  const auto choose_group = [&](double u, double v) {
    const double half_u = 0.5 / columns, half_v = 0.5 / rows;
    const double heights[] = {place(u - half_u, v - half_v).y, place(u + half_u, v - half_v).y,
                              place(u - half_u, v + half_v).y, place(u + half_u, v + half_v).y};
    const auto [low, high] = std::minmax_element(std::begin(heights), std::end(heights));
    if (*high - *low > 1.2 * side / columns) return rock;
    return *low < 0.4 ? sand : grass;
  };
  add_sheet(builder, columns, rows, place, choose_group);
  MeshSource mesh = builder.finish();
  mesh.displacement = DisplacedMeshSettings();
  mesh.displacement->height = std::make_shared<CliffsHeight>();
  mesh.displacement->bound = bound;
  mesh.displacement->rate = rate;
  mesh.displacement->cache_bytes = u64{1} << 30;  // holds what is seen, else rays compute it again and again
  mesh.prefers_grid = true;
  return mesh;
}

MeshSource make_water() {
  MeshBuilder builder;
  const uint water = builder.add_group("water", color_from_srgb(0x4f8795));
  const auto place = [](double u, double v) { return Point((u - 0.5) * side, water_level, (v - 0.5) * side); };
  add_sheet(builder, 1, 1, place, [&](double, double) { return water; });
  return builder.finish();
}

}  // namespace

SceneSource make_demo_cliffs() {
  SceneSource scene;
  scene.add_object("land", make_land());
  scene.add_object("water", make_water());
  return scene;
}
