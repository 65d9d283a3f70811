// tests/support/curve_oracle.h
//
// What a ray surely hits of curves and what it surely misses, found by testing every segment in double. A segment is
// cut into short pieces whose centres and radii are taken as linear, so that each is the hull of two balls: a convex
// solid that the ray meets in one interval, looked for by narrowing down. This is done twice, with solids a little too
// thin and a little too thick. Where both agree on how the ray crosses the surface first, the true crossing lies
// between theirs; where they do not, the ray runs along the silhouette and nobody is told anything.
//
// The band is a thousandth of the segment's radius, or what 512 pieces leave; for bases that are converted when they
// are stored also the rounding of the converted points.
#pragma once
#include <limits>
#include <vector>

#include "support/ray_sets.h"
#include "support/sure_answer.h"
#include "vq_curve/curve_set.h"

struct CurveCrossing {
  SureAnswer answer = SureAnswer::missed;
  double low = 0.0, high = 0.0;  ///< of a hit: where along the ray
};

class CurveOracle {
 public:
  using Ball = CurvePoint<double>;
  struct Segment {
    std::vector<Ball> balls;  ///< along the segment; empty when something of it is not finite
    double band = 0.0;        ///< of its surface
    Ball around;              ///< holds all
  };

  /// The curves at `time`: input points are linear between their samples and stay outside them; NaN: at rest.
  explicit CurveOracle(const CurveData& data, double time = std::numeric_limits<double>::quiet_NaN());

  const std::vector<Segment>& get_segments() const { return segments_; }
  /// Where the ray's interval, from its origin on, first crosses the surface of the segment.
  CurveCrossing intersect(const TestRay& ray, uint segment) const;

 private:
  std::vector<Segment> segments_;
};
