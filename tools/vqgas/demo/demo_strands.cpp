// tools/vqgas/demo/demo_strands.cpp
#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

using std::numbers::pi;

/// A stalk that stands at `foot`, leans into the direction `angle` and is rolled up at its end, as young fern is.
struct Frond {
  Point foot;
  double angle, height, roll, turns, thickness;
};

/// Adds a point at each step along a spiral stalk: its direction turns slowly first, then faster and faster.
void add_frond(CurveData& data, const Frond& frond, uint group) {
  constexpr uint steps = 72;
  const Point out(std::cos(frond.angle), 0.0, -std::sin(frond.angle)), up(0.0, 1.0, 0.0);
  const Point side = up.cross(out);
  Point at = frond.foot;
  double heading = 0.12;
  for (uint k = 0; k <= steps; ++k) {
    const double s = double(k) / steps;
    const double swell = 1.0 + 0.9 * std::exp(-40.0 * (1.0 - s) * (1.0 - s));  // a bud at the very end
    const double radius = frond.thickness * (1.0 - 0.8 * s) * swell;
    data.points.push_back({GMathVec3<float>(at), static_cast<float>(radius)});
    const double rolled = std::fmax(0.0, (s - 0.3) / 0.7);
    // Steps shorten as the turns tighten, so that the spiral closes without touching itself.
    const double step = frond.height / steps * (1.0 - 0.8 * rolled);
    heading += 2.0 * pi * frond.turns / (0.7 * steps) * (rolled > 0.0 ? 0.25 + 1.5 * rolled : 0.0);
    at += (up * std::cos(heading) + out * std::sin(heading) + side * (0.22 * frond.roll * rolled)).get_normalized() *
          step;
  }
  data.curve_sizes.push_back(steps + 1);
  data.curve_groups.push_back(group);
}

/// A thin tendril that winds around the vertical while it climbs.
void add_tendril(CurveData& data, const Point& foot, double height, double phase, uint group) {
  constexpr uint steps = 60;
  for (uint k = 0; k <= steps; ++k) {
    const double s = double(k) / steps, angle = phase + 2.0 * pi * 4.5 * s * s;
    const double away = 0.03 + 0.2 * s * (1.15 - s);
    const Point at = foot + Point(away * std::cos(angle), height * s, away * std::sin(angle));
    data.points.push_back({GMathVec3<float>(at), static_cast<float>(0.035 * (1.0 - 0.9 * s))});
  }
  data.curve_sizes.push_back(steps + 1);
  data.curve_groups.push_back(group);
}

}  // namespace

SceneSource make_demo_strands() {
  SceneSource scene;
  HairSource hair;
  hair.data.group_names = {CoreString("fern light"), CoreString("fern dark"), CoreString("fern red"),
                           CoreString("tendrils")};
  hair.group_colors = {color_from_srgb(0xa6bf5a), color_from_srgb(0x5d8a52), color_from_srgb(0xb8624a),
                       color_from_srgb(0xe0c068)};
  constexpr uint fronds = 11;
  for (uint k = 0; k < fronds; ++k) {
    const double angle = 2.0 * pi * (k + 0.35 * random_unit(k, 1)) / fronds, away = 0.28 + 0.5 * random_unit(k, 2);
    const Point foot(away * std::cos(angle), 0.0, -away * std::sin(angle));
    add_frond(hair.data,
              {foot, angle + random_unit(k, 3) - 0.5, 3.0 + 2.4 * random_unit(k, 4), 2.0 * random_unit(k, 5) - 1.0,
               1.8 + 0.5 * random_unit(k, 6), 0.055 + 0.035 * random_unit(k, 7)},
              k % 3);
  }
  for (uint k = 0; k < 5; ++k) {
    const double angle = 2.0 * pi * (k + 0.5) / 5.0;
    add_tendril(hair.data, {1.02 * std::cos(angle), 0.0, -1.02 * std::sin(angle)}, 0.9 + 0.6 * random_unit(k, 8),
                6.0 * random_unit(k, 9), 3);
  }
  MeshBuilder builder;
  const uint soil = builder.add_group("pot", color_from_srgb(0x9c8d7c));
  add_lathe(builder, {{0, -0.25, 0}},
            {{0, 0}, {1.2, 0}, {1.38, 0.1}, {1.42, 0.24}, {1.36, 0.3}, {1.2, 0.28}, {0, 0.26}}, 160, soil);
  scene.add_object("pot", builder.finish());
  scene.add_object("fern", std::move(hair));
  return scene;
}
