// tests/support/curve_scenes.h
//
// Curves made by formula or by seed, pleasant and nasty ones, and rays at them.
#pragma once
#include <limits>
#include <string>
#include <vector>

#include "support/curve_oracle.h"
#include "support/random_values.h"
#include "vq_curve/curve_set.h"

struct CurveScene {
  std::string name;
  CurveData data;
};

/// How a curve is drawn: from `root`, `length` along its direction, winding around it.
struct TestCurve {
  GMathVec3<double> root, direction;
  double length = 0.8, curl = 0.0, radius = 0.01;
  uint points = 7;
};

/// Radii fall to a half towards the tip.
inline void add_curve(CurveData& data, const TestCurve& shape) {
  const GMathVec3<double> along = shape.direction.get_normalized();
  const GMathVec3<double> side =
      along.cross(std::fabs(along.x) < 0.5 ? GMathVec3<double>(1, 0, 0) : GMathVec3<double>(0, 1, 0)).get_normalized();
  const GMathVec3<double> other = along.cross(side);
  for (uint k = 0; k < shape.points; ++k) {
    const double u = k / std::max(shape.points - 1.0, 1.0), angle = 9.0 * u;
    const GMathVec3<double> at = shape.root + along * (u * shape.length) + side * (shape.curl * std::sin(angle)) +
                                 other * (shape.curl * (std::cos(angle) - 1));
    data.points.push_back({GMathVec3<float>(at), static_cast<float>(shape.radius * (1.0 - 0.5 * u))});
  }
  data.curve_sizes.push_back(shape.points);
}

/// Curves anywhere in the cube of half width 1; their directions differ from (1, 2, 3) by up to `spread` per axis.
inline CurveData make_hair(CurveBasis basis, uint curve_count, uint seed, double curl = 0.0, double spread = 3.0,
                           double radius = 0.01, uint points = 7) {
  RandomValues random(seed);
  CurveData data;
  data.basis = basis;
  for (uint k = 0; k < curve_count; ++k) {
    const GMathVec3<double> root = random.get_vec();
    add_curve(data, {root, GMathVec3<double>(1, 2, 3) + random.get_vec(spread), 0.8, curl * random.get(0.2, 1.0),
                     radius * random.get(0.5, 1.5), points});
  }
  return data;
}

/// Tufts of parallel curves, each smaller and nearer to the origin than the one before: the tree over them is deep,
/// with 8-bit nodes around oriented ones.
inline CurveData make_tufts(uint tufts, uint seed) {
  RandomValues random(seed);
  CurveData data;
  for (uint tuft = 0; tuft < tufts; ++tuft) {
    const double size = std::pow(0.99, tuft % 1000);
    const GMathVec3<double> root = random.get_vec(size), direction = random.get_vec();
    for (uint k = 0; k < 12; ++k)
      add_curve(data, {root + random.get_vec(0.01 * size), direction, 0.1 * size, 0.0, 0.0005 * size, 3});
  }
  return data;
}

inline void transform(CurveData& data, double scale, const GMathVec3<double>& shift) {
  for (auto& p : data.points) p.position = GMathVec3<float>(GMathVec3<double>(p.position) * scale + shift);
}

/// Samples in which whole curves fly and their points tremble; the first is as at rest when `from_rest`.
inline void add_motion(CurveData& data, uint samples, double begin, double step, uint seed, bool from_rest = false) {
  RandomValues random(seed);
  data.motion_begin = begin;
  data.motion_step = step;
  for (uint sample = 0; sample < samples; ++sample) {
    data.motion_points.push_back(data.points);
    if (sample == 0 && from_rest) continue;
    std::size_t at = 0;
    for (const u32 size : data.curve_sizes) {
      const auto flight = random.get_vec<float>(0.4);
      for (u32 k = 0; k < size; ++k, ++at) {
        auto& point = data.motion_points.back()[at];
        point.position += flight + random.get_vec<float>(0.05);
        point.radius *= static_cast<float>(random.get(0.7, 1.3));
      }
    }
  }
}

/// About `curve_count` curves each.
inline std::vector<CurveScene> make_curve_scenes(uint curve_count, uint seed) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
  std::vector<CurveScene> scenes = {
      {"curly bspline", make_hair(CurveBasis::bspline, curve_count, seed, 0.1)},
      {"curly catmull-rom", make_hair(CurveBasis::catmull_rom, curve_count, seed + 1, 0.1)},
      {"wild bezier", make_hair(CurveBasis::bezier, curve_count, seed + 2, 0.3)},
      {"linear", make_hair(CurveBasis::linear, curve_count, seed + 3, 0.1)},
      {"bundle", make_hair(CurveBasis::linear, curve_count, seed + 4, 0.0, 0.1)},
      {"crossing", make_hair(CurveBasis::bezier, curve_count, seed + 5, 0.0, 0.05)},
      {"one", make_hair(CurveBasis::bezier, 1, seed + 6, 0.2, 3.0, 0.1, 4)},
      {"thick", make_hair(CurveBasis::bspline, 20, seed + 7, 0.1, 3.0, 0.2)},
      {"huge", make_hair(CurveBasis::linear, curve_count, seed + 8)},
      {"far away", make_hair(CurveBasis::bezier, curve_count, seed + 9, 0.1)},
      {"bad", make_hair(CurveBasis::bspline, curve_count, seed + 10, 0.1)},
  };
  for (std::size_t k = 0; k < scenes[5].data.points.size(); k += 14)
    for (std::size_t p = k; p < std::min(k + 7, scenes[5].data.points.size()); ++p)
      scenes[5].data.points[p].position.x *= -1.0f;
  transform(scenes[8].data, 1e5, {});
  transform(scenes[9].data, 1.0, {1000, -500, 700});
  RandomValues random(seed);
  for (uint k = 0; k < curve_count; ++k) {
    auto& point = scenes[10].data.points[random.get_index(static_cast<uint>(scenes[10].data.points.size()))];
    (k % 2 == 0 ? point.position[k % 3] : point.radius) = k % 4 < 2 ? nan : infinity;
  }
  CurveScene line{"collinear", {}}, same{"coincident", {}}, points{"points", {}};
  for (uint k = 0; k < curve_count; ++k) {
    add_curve(line.data, {GMathVec3<double>(1, 1, 0) * random.get(), {1, 1, 0}, 0.3});
    add_curve(same.data, {{-0.3, -0.4, 0.1}, {1, 2, 3}, 1.0, 0.1, 0.02});
    add_curve(points.data, {random.get_vec(), {1, 0, 0}, 0.0, 0.0, 0.05, 4});
  }
  same.data.basis = points.data.basis = CurveBasis::bezier;
  scenes.insert(scenes.end(), {line, same, points});
  return scenes;
}

/// At points in curves or close beside them, from outside, from inside, down the curve and along axes, with lengths and
/// intervals of all kinds.
inline std::vector<TestRay> make_curve_rays(const CurveOracle& oracle, uint count, uint seed) {
  RandomValues random(seed);
  std::vector<const CurveOracle::Segment*> sound;
  GMathBbox3<double> box;
  for (const CurveOracle::Segment& segment : oracle.get_segments()) {
    if (segment.balls.empty()) continue;
    sound.push_back(&segment);
    for (const CurveOracle::Ball& ball : segment.balls) box.add(ball.position);
  }
  std::vector<TestRay> rays(sound.empty() ? 0 : count);
  for (uint k = 0; k < rays.size(); ++k) {
    TestRay& ray = rays[k];
    const CurveOracle::Segment& segment = *sound[random.get_index(static_cast<uint>(sound.size()))];
    const CurveOracle::Ball& ball = segment.balls[random.get_index(static_cast<uint>(segment.balls.size()))];
    const GMathVec3<double> target = ball.position + random.get_vec(1.2 * ball.radius);
    ray.origin =
        target + random.get_vec().get_normalized() * ((box.get_extent().get_length() + 0.1) * random.get(0, 2));
    if (k % 8 == 0) ray.origin = ball.position;  // inside
    ray.direction = target - ray.origin;
    if (k % 8 == 1) ray.direction = segment.balls.back().position - segment.balls[0].position;
    if (k % 8 == 2) ray.origin[k / 8 % 3] = target[k / 8 % 3], ray.direction[k / 8 % 3] = -0.0;
    if (k % 8 == 3) {
      ray.direction = {0, -0.0, 0};
      ray.direction[k / 8 % 3] = k % 16 < 8 ? 1 : -1;
      ray.origin = target - ray.direction * random.get(0, 3);
    }
    ray.direction = ray.direction.get_normalized() * (k % 7 == 0 ? 1e-3 : k % 7 == 1 ? 1e3 : 1.0);
    const double distance = (target - ray.origin).get_length() / ray.direction.get_length();
    if (!(distance > 0.0)) continue;
    if (k % 9 == 0) ray.tfar = distance * random.get(0.5, 2.0);
    if (k % 9 == 1) ray.tnear = distance * random.get(0.0, 1.2);
    if (k % 9 == 2) ray.tnear = -distance, ray.tfar = HUGE_VAL;
  }
  return rays;
}
