// A spiral galaxy with two arms, turned against the clock. Each point is made from its number alone, so threads share
// nothing. Distances are in thousands of light years.
#include <cmath>
#include <numbers>

#include "tools/vqgas/demo/demo_relief.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/parallel.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint point_count = 10000000, slice = 100000;
using std::numbers::pi;
constexpr double disc_radius = 50.0;
constexpr double pitch = 3.6;  ///< radians that an arm turns while its radius grows by a factor of e

/// Noise of two kinds over the plane of the disc, computed once.
class GalaxyNoise {
 public:
  struct Values {
    float wisp, cloud;  ///< in about [-1, 1]: wide and narrow
  };

  explicit GalaxyNoise(OfApp* application) : values_(std::size_t{side} * side) {
    constexpr double amplitude = 2.2;  // the sum of octaves seldom comes near it
    const GeometryNoiseHeight wide(demo_make_noise(31, 5, 0.10, amplitude)),
        narrow(demo_make_noise(32, 4, 0.34, amplitude));
    run_slices(application, side, 16, [&](uint first, uint end) {
      for (uint row = first; row < end; ++row) {
        for (uint column = 0; column < side; ++column) {
          const GeometryHeightPoint at{{column / scale - reach, 0.0, row / scale - reach}, {}};
          values_[std::size_t{row} * side + column] = {static_cast<float>(wide.get_height(at)),
                                                       static_cast<float>(narrow.get_height(at))};
        }
      }
    });
  }
  Values get(double x, double z) const {
    const double u = std::clamp((x + reach) * scale, 0.0, side - 1.001),
                 v = std::clamp((z + reach) * scale, 0.0, side - 1.001);
    const auto column = static_cast<uint>(u), row = static_cast<uint>(v);
    const auto s = static_cast<float>(u - column), t = static_cast<float>(v - row);
    const Values *low = &values_[std::size_t{row} * side + column], *high = low + side;
    const auto blend = [&](float Values::*kind) {
      return (low[0].*kind * (1 - s) + low[1].*kind * s) * (1 - t) + (high[0].*kind * (1 - s) + high[1].*kind * s) * t;
    };
    return {blend(&Values::wisp), blend(&Values::cloud)};
  }

 private:
  static constexpr uint side = 640;
  static constexpr double reach = 1.05 * disc_radius, scale = (side - 1) / (2.0 * reach);
  std::vector<Values> values_;
};

struct Star {
  Point place;
  Color color;
};

class Galaxy {
 public:
  explicit Galaxy(OfApp* application) : noise_(application) {}

  Star make_star(uint number) const {
    const uint seed = hash_bits(number);
    const double kind = random_unit(seed, 1);
    Star star = kind < 0.05 ? make_bulge_star(seed) : kind < 0.0504 ? make_halo_star(seed) : make_disc_star(seed);
    // Few stars are bright, most are dim.
    const double luck = random_unit(seed, 2), luck4 = luck * luck * luck * luck, luck8 = luck4 * luck4;
    star.color = star.color * static_cast<float>(0.60 + 0.4 * luck + 1.6 * luck8 * luck8 * luck8);
    return star;
  }

 private:
  static Point get_direction(uint seed) {
    const double height = 2.0 * random_unit(seed, 3) - 1.0, angle = 2.0 * pi * random_unit(seed, 4);
    const double across = std::sqrt(1.0 - height * height);
    return {across * std::cos(angle), height, across * std::sin(angle)};
  }

  static Star make_bulge_star(uint seed) {
    const double u = (1.0 - random_unit(seed, 5)) * (1.0 - random_unit(seed, 6)) * (1.0 - random_unit(seed, 7));
    const double radius = -0.2 * std::log(u);
    const Point direction = get_direction(seed);
    const Point place(direction.x * radius * 1.3, direction.y * radius * 0.8, direction.z * radius);
    return {place,
            mix(Color(0.75f, 0.48f, 0.24f), Color(1.9f, 1.55f, 1.05f), static_cast<float>(std::exp(-0.7 * radius)))};
  }

  static Star make_halo_star(uint seed) {
    const double radius = 2.0 + 24.0 * random_unit(seed, 5) * random_unit(seed, 6);
    const Point direction = get_direction(seed);
    return {Point(direction.x, 0.7 * direction.y, direction.z) * radius, Color(0.40f, 0.36f, 0.32f)};
  }

  Star make_disc_star(uint seed) const {
    constexpr double fall = 5.0, contrast = 0.88;
    double radius = -fall * std::log((1.0 - random_unit(seed, 5)) * (1.0 - random_unit(seed, 6)));
    if (radius > disc_radius) radius = disc_radius * random_unit(seed, 7);
    // Even angles are moved towards the arms, which then are up to 1 / (1 - contrast) times as dense as an even disc.
    const double even = 2.0 * pi * random_unit(seed, 8), arms = demo_ease(2.0, 7.0, radius);
    const double phase = even - 0.5 * contrast * arms * std::sin(2.0 * even);
    const double angle = phase + pitch * std::log(radius + 0.6);
    const double along_x = std::cos(angle), along_z = std::sin(angle);
    const GalaxyNoise::Values noise = noise_.get(radius * along_x, radius * along_z);
    // Feathers: noise moves the stars out of the arms.
    const double moved = radius * (1.0 + 0.10 * double(noise.wisp) + 0.03 * double(noise.cloud));
    const double spread = random_unit(seed, 9) + random_unit(seed, 10) + random_unit(seed, 11) - 1.5;
    const double height = spread * (0.5 + 1.1 * std::exp(-0.25 * radius));
    return {{moved * along_x, height, moved * along_z}, get_disc_color(seed, {radius, phase, arms, height}, noise)};
  }

  struct DiscPlace {
    double radius, phase;  ///< angle from the middle of an arm, modulo pi
    double arms;           ///< 0 in the middle, where there are no arms
    double height;
  };

  static Color get_disc_color(uint seed, const DiscPlace& place, const GalaxyNoise::Values& noise) {
    constexpr Color old_stars(0.30f, 0.19f, 0.105f), far_stars(0.040f, 0.052f, 0.095f), young(0.40f, 0.62f, 1.15f),
        glow(1.30f, 0.22f, 0.36f), dust(0.050f, 0.022f, 0.010f), core(1.7f, 1.2f, 0.68f);
    const double cosine = std::cos(2.0 * place.phase), sine = std::sin(2.0 * place.phase);
    const double wisp = double(noise.wisp), cloud = double(noise.cloud), arms = place.arms;
    const double ridge = arms * demo_ease(0.35, 1.05, 0.5 + 0.5 * cosine + 0.30 * wisp + 0.15 * cloud);
    const auto part = [](double value) { return static_cast<float>(value); };
    Color color = mix(old_stars, far_stars, part(demo_ease(5.0, 26.0, place.radius)));
    const double fading = 1.0 - 0.75 * demo_ease(20.0, 46.0, place.radius);
    color = mix(color, young, part(ridge * fading * (0.45 + 0.55 * demo_ease(-0.3, 0.5, cloud))));
    color = mix(color, core, part(std::exp(-0.30 * place.radius)));
    // Clouds of hydrogen glow where many stars are born; lanes of dust run along the inner side of the arms.
    const double birth = demo_ease(0.3, 0.8, ridge) * demo_ease(0.38, 0.55, cloud) * demo_ease(5.0, 9.0, place.radius);
    color = mix(color, glow, part(0.85 * birth * demo_ease(0.2, 0.6, random_unit(seed, 12))));
    constexpr double lane_cosine = 0.58, lane_sine = 0.81;  // of twice the angle from arm to lane
    const double inner = 0.5 + 0.5 * (cosine * lane_cosine - sine * lane_sine);
    const double lane = demo_ease(0.62, 0.95, inner + 0.22 * cloud) * demo_ease(-0.9, 0.1, wisp + 0.6 * cloud) *
                        (1.0 - demo_ease(18.0, 36.0, place.radius));
    const double veil = 0.6 * demo_ease(0.25, 0.7, wisp - 0.4 * cloud) * (1.0 - demo_ease(14.0, 30.0, place.radius));
    return mix(color, dust, part(0.94 * arms * std::fmax(lane, veil)));
  }

  const GalaxyNoise noise_;
};

/// On a curve near that of sRGB, which is all that a made-up color needs.
u32 pack(const Color& color) {
  const auto part = [](float value) {
    return static_cast<u32>(255.0f * std::sqrt(std::clamp(value, 0.0f, 1.0f)) + 0.5f);
  };
  return part(color.x) << 16 | part(color.y) << 8 | part(color.z);
}

}  // namespace

SceneSource make_demo_galaxy(OfApp* application) {
  const Galaxy galaxy(application);
  PointSource cloud;
  cloud.positions.resize(point_count);
  cloud.colors.resize(point_count);
  run_slices(application, point_count, slice, [&](uint first, uint end) {
    for (uint number = first; number < end; ++number) {
      const Star star = galaxy.make_star(number);
      cloud.positions[number] = GMathVec3<float>(star.place);
      cloud.colors[number] = pack(star.color);
    }
  });
  SceneSource scene;
  scene.add_object("", std::move(cloud));
  return scene;
}
