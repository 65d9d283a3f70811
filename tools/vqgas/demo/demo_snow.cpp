// Snow over the island of the mills: a few clouds of flakes, each shown in several places, which fall and drift.
#include <numbers>

#include "tools/vqgas/demo/demo_placing.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint cloud_count = 3, columns = 4, flake_count = 3600;
constexpr double cloud_side = 4.6, height = 6.4;  ///< of a cloud's box; the clouds cover the island side by side

PointSource make_flakes(uint cloud) {
  constexpr double least_radius = 0.010, greatest_radius = 0.040;
  PointSource source;
  for (uint flake = 0; flake < flake_count; ++flake) {
    const uint seed = hash_bits(flake * cloud_count + cloud);
    source.positions.emplace_back(static_cast<float>((random_unit(seed, 1) - 0.5) * cloud_side),
                                  static_cast<float>(random_unit(seed, 2) * height),
                                  static_cast<float>((random_unit(seed, 3) - 0.5) * cloud_side));
    const double size = random_unit(seed, 4);
    source.radii.push_back(static_cast<float>(std::lerp(least_radius, greatest_radius, size * size)));
    const auto shade = static_cast<u32>(225.0 + 30.0 * random_unit(seed, 5));
    source.colors.push_back((shade - 10) << 16 | (shade - 4) << 8 | shade);
  }
  return source;
}

}  // namespace

SceneSource make_demo_snow() {
  SceneSource scene = make_demo_mills();
  const auto first = static_cast<uint>(scene.clouds.size());
  for (uint cloud = 0; cloud < cloud_count; ++cloud) scene.clouds.push_back(make_flakes(cloud));
  for (uint place = 0; place < columns * columns; ++place) {
    constexpr uint last = columns - 1;
    if ((place % columns == 0 || place % columns == last) && (place / columns == 0 || place / columns == last))
      continue;  // the island is round
    const Point base((place % columns - 0.5 * (columns - 1)) * cloud_side, 0.0,
                     (place / columns - 0.5 * (columns - 1)) * cloud_side);
    ObjectSource object{"snow"};
    object.cloud = first + place % cloud_count;
    object.is_animated = true;
    object.keys = make_keys(8, [&](double t) {
      const double sway = 0.12 * std::sin(2.0 * std::numbers::pi * t + place);
      return move_to(base + Point(0.5 * t + sway, 0.6 - 1.2 * t, 0.2 * t)) *
             turn_around(1, 0.5 * std::numbers::pi * (place % 4));  // neighbors are not the same
    });
    scene.objects.push_back(std::move(object));
  }
  return scene;
}
