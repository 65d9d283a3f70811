// tests/support/box_scenes.h
//
// Seeded sets of boxes, most of them unkind to a tree builder.
#pragma once
#include <cmath>
#include <limits>
#include <ostream>
#include <vector>

#include "support/random_values.h"
#include "vq_gmath/gmath_bbox.h"

using FloatBox = GMathBbox3<float>;

enum class BoxKind { uniform, integer_grid, coincident, flat, collinear, exponential, infinite, points, signed_zeros };

inline constexpr BoxKind all_box_kinds[] = {BoxKind::uniform,  BoxKind::integer_grid, BoxKind::coincident,
                                            BoxKind::flat,     BoxKind::collinear,    BoxKind::exponential,
                                            BoxKind::infinite, BoxKind::points,       BoxKind::signed_zeros};
/// Those in which coordinates stay around 1, so that a tolerance can be named.
inline constexpr BoxKind bounded_box_kinds[] = {BoxKind::uniform, BoxKind::integer_grid, BoxKind::coincident,
                                                BoxKind::flat,    BoxKind::collinear,    BoxKind::points};

struct BoxScene {
  BoxKind kind;
  uint seed;
  std::vector<FloatBox> boxes;
};

inline std::ostream& operator<<(std::ostream& out, const BoxScene& scene) {
  constexpr const char* names[] = {"uniform",     "integer_grid", "coincident", "flat",        "collinear",
                                   "exponential", "infinite",     "points",     "signed_zeros"};
  return out << names[static_cast<uint>(scene.kind)] << " x " << scene.boxes.size() << ", seed " << scene.seed;
}

inline FloatBox make_box(const GMathVec3<float>& a, const GMathVec3<float>& b) {
  FloatBox box;
  box.add(a);
  box.add(b);
  return box;
}

inline FloatBox make_random_box(BoxKind kind, RandomValues& random) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const auto at = random.get_vec<float>();
  const auto size = random.get_vec<float>(0.1);
  switch (kind) {
    case BoxKind::uniform:
      break;
    case BoxKind::integer_grid: {
      const auto cell = [&] { return static_cast<float>(random.get_index(9)) - 4.0f; };
      const GMathVec3<float> low{cell(), cell(), cell()};
      const auto length = [&] { return static_cast<float>(random.get_index(3)); };
      return make_box(low, low + GMathVec3<float>{length(), length(), length()});
    }
    case BoxKind::coincident:
      return {{-0.5f, -0.25f, 0.125f}, {0.5f, 0.75f, 1.0f}};
    case BoxKind::flat:
      return make_box({at.x, 0.5f, at.z}, {at.x + size.x, 0.5f, at.z + size.z});
    case BoxKind::collinear:
      return make_box({at.x, 0.5f, -0.25f}, {at.x + size.x, 0.5f, -0.25f});
    case BoxKind::exponential: {
      const auto scaled = [&] {
        return static_cast<float>(std::pow(10.0, random.get(-30.0, 30.0)) * (random.get() < 0.0 ? -1.0 : 1.0));
      };
      const GMathVec3<float> low{scaled(), scaled(), scaled()};
      return make_box(low, {low.x * (1.0f + size.x), low.y * (1.0f + size.y), low.z * (1.0f + size.z)});
    }
    case BoxKind::infinite: {
      FloatBox box = make_box(at, at + size);
      if (random.get_index(16) == 0) box.max[random.get_index(3)] = infinity;
      if (random.get_index(16) == 0) box.min[random.get_index(3)] = -infinity;
      if (random.get_index(64) == 0) box = {{infinity, at.y, at.z}, {infinity, at.y, at.z}};
      return box;
    }
    case BoxKind::points:
      return make_box(at, at);
    case BoxKind::signed_zeros: {
      const auto bound = [&](float far) { return random.get() < 0.0 ? (random.get() < 0.0 ? -0.0f : 0.0f) : far; };
      return {{bound(-1.0f), bound(-2.0f), bound(-1.0f)}, {bound(2.0f), bound(1.0f), bound(1.0f)}};
    }
  }
  return make_box(at, at + size);
}

inline BoxScene make_box_scene(BoxKind kind, uint count, uint seed) {
  RandomValues random(seed);
  BoxScene scene{kind, seed, {}};
  scene.boxes.reserve(count);
  for (uint k = 0; k < count; ++k) scene.boxes.push_back(make_random_box(kind, random));
  return scene;
}
