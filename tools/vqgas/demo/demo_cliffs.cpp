#include <algorithm>
#include <cmath>

#include "tools/vqgas/demo/demo_relief.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint columns = 220, rate = 34;
constexpr double side = 12.0, water_level = 0.0, bound = 0.16;

/// A strip of the land between two lines along the river. All rows of quads follow these lines, so that neither the
/// rims of the cliffs nor the borders of the groups cut through quads.
struct Strip {
  uint rows;
  double bottom, top;  ///< its height at the line nearer to the river and at the other
  bool is_cliff;
};
constexpr Strip strips[] = {{6, -0.15, -0.13, false}, {14, -0.13, 0.3, false}, {32, 0.3, 1.5, true},
                            {14, 1.5, 1.6, false},    {28, 1.6, 2.6, true},    {16, 2.6, 2.75, false}};
constexpr uint bank_rows = 110, rows = 2 * bank_rows;
static_assert(2 * columns * rows * rate * rate == 111'900'800);

/// A place on a strip.
struct StripPoint {
  uint strip = 0;
  double across = 0.0;  ///< 0 at the line nearer to the river, 1 at the other
  double bank = 1.0;    ///< -1 on the side of positive z

  /// `v` runs over all rows of both banks.
  explicit StripPoint(double v) : bank(v < 0.5 ? -1.0 : 1.0) {
    double row = std::fabs(2.0 * v - 1.0) * bank_rows;
    for (; strip + 1 < std::size(strips) && row > strips[strip].rows; ++strip) row -= strips[strip].rows;
    across = std::min(row / strips[strip].rows, 1.0);
  }
};

/// The land before it is displaced: a canyon between mesas with two steps.
class CliffsLand {
 public:
  Point get_point(double u, double v) const {
    const StripPoint at(v);
    const double x = (u - 0.5) * side;
    const double river = 1.1 * std::sin(0.55 * x + 0.6) + 0.4 * std::sin(1.3 * x);
    const auto vary = [&](double line) {
      const GeometryHeightPoint point{{x, 3.0 * line, 5.0 * at.bank}, {}};
      return broad_.get_height(point) + narrow_.get_height(point);
    };
    const double foot = 0.85 + 0.5 * vary(1.0), terrace = foot + 0.3, step = terrace + 0.55 + 0.8 * vary(2.0);
    const double lines[] = {0.0, 0.5 * foot, foot, terrace, std::max(step, terrace + 0.12), 0.0, 0.0};
    const Strip& strip = strips[at.strip];
    double from = lines[at.strip], to = lines[at.strip + 1];
    if (at.strip == 4) to = from + 0.28;
    if (at.strip == 5) from = lines[4] + 0.28, to = 0.5 * side + at.bank * river;
    const double slope = strip.is_cliff ? demo_ease(0.0, 1.0, at.across) : at.across;
    return {x, std::lerp(strip.bottom, strip.top, slope), river - at.bank * std::lerp(from, to, at.across)};
  }

 private:
  GeometryNoiseHeight broad_{demo_make_noise(5, 2, 0.35, 0.9)}, narrow_{demo_make_noise(6, 3, 1.3, 0.35)};
};

/// On cliffs layers of rock that stand out by different lengths, with cracks from top to bottom; rough everywhere but
/// on the bed of the river.
class CliffsHeight final : public GeometryHeight {
 public:
  double get_height(const GeometryHeightPoint& point) const override {
    const Point& p = point.position;
    const StripPoint at(point.uv.y);
    const double rough = rough_.get_height(point);
    if (!strips[at.strip].is_cliff) return demo_ease(water_level - 0.1, water_level + 0.3, p.y) * rough;
    const double crack = 14.0 * cracks_.get_height({{p.x, 0.25 * p.y, p.z}, {}});
    const double rock = get_layer(9.0 * p.y + 4.0 * rough) - 0.09 * std::exp(-crack * crack);
    return rough + rock * demo_ease(0.0, 0.12, at.across) * demo_ease(0.0, 0.06, 1.0 - at.across);
  }
  bool uses_uv() const override { return true; }
  u64 get_memory_size() const override { return sizeof(*this); }

 private:
  static double get_layer(double y) {
    const double below = std::floor(y), length = demo_ease(0.72, 1.0, y - below);
    const auto number = static_cast<uint>(static_cast<int>(below) + 100);
    return 0.08 * std::lerp(random_unit(number, 3), random_unit(number + 1, 3), length);
  }

  GeometryNoiseHeight rough_{demo_make_noise(2, 7, 2.6, 0.075)}, cracks_{demo_make_noise(3, 3, 2.2, 1.0)};
};

/// Of quads.
MeshSource make_land() {
  MeshBuilder builder;
  const uint sand = builder.add_group("sand", color_from_srgb(0xcfb88f));
  const uint grass = builder.add_group("grass", color_from_srgb(0x8d9463));
  const uint rocks[] = {builder.add_group("ochre", color_from_srgb(0xbd8c62)),
                        builder.add_group("rust", color_from_srgb(0xb07a57)),
                        builder.add_group("pale", color_from_srgb(0xcaa27a))};
  const CliffsLand land;
  const auto choose_group = [&](double, double v) {
    const StripPoint at(v);
    if (!strips[at.strip].is_cliff) return at.strip < 2 ? sand : grass;
    const auto row = static_cast<uint>(at.across * strips[at.strip].rows) / 2;
    return rocks[hash_bits(row + 40 * at.strip) % 3];
  };
  add_sheet(
      builder, columns, rows, [&](double u, double v) { return land.get_point(u, v); }, choose_group);
  MeshSource mesh = builder.finish();
  mesh.displacement = DisplacedMeshSettings();
  mesh.displacement->height = std::make_shared<CliffsHeight>();
  mesh.displacement->bound = bound;
  mesh.displacement->rate = rate;
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
