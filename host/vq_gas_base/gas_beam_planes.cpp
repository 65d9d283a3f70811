#include "vq_gas_base/gas_beam_planes.h"

#include <algorithm>
#include <cmath>

#include "vq_geometry/geometry_ray_frustum_ctx.h"

namespace {

/// Covers the rounding of a sum of products in double precision, relative to the sum of their magnitudes.
constexpr double rounding = 1e-14;

double dot_magnitudes(const GMathVec3<double>& a, const GMathVec3<double>& b) {
  return std::fabs(a.x * b.x) + std::fabs(a.y * b.y) + std::fabs(a.z * b.z);
}

/// The smallest and the largest value of axis . (p - origin) over the box, widened by rounding.
struct Interval {
  double low = 0.0, high = 0.0;

  Interval(const GMathBbox3<float>& box, const GMathVec3<double>& origin, const GMathVec3<double>& axis) {
    double magnitude = dot_magnitudes(axis, origin);
    for (uint k = 0; k < 3; ++k) {
      const double a = axis[k] * (double(box.min[k]) - origin[k]), b = axis[k] * (double(box.max[k]) - origin[k]);
      low += std::min(a, b);
      high += std::max(a, b);
      magnitude += std::max(std::fabs(a), std::fabs(b));
    }
    low -= magnitude * rounding;
    high += magnitude * rounding;
  }
};

}  // namespace

GasBeamPlanes::GasBeamPlanes(const GeometryRayFrustumBeam& beam) : origin_(beam.origin), tnear_(beam.tnear) {
  slope_ = beam.normal * (1.0 / beam.direction.dot(beam.normal));
  for (uint corner = 0; corner < 4; ++corner) add_side(beam, corner);
}

/// The plane through the lines of two neighboring corners. Left out when it is degenerate, or when a corner leaves it
/// within the beam, as in a twisted beam.
void GasBeamPlanes::add_side(const GeometryRayFrustumBeam& beam, uint corner) {
  // Lookups accept points this far outside, in units of the cross-section.
  constexpr double margin = 1.0 + 1e-6;
  GMathVec3<double> origins[4], directions[4];
  for (uint k = 0; k < 4; ++k) {
    origins[k] = beam.origin + (beam.corner_origins[k] - beam.origin) * margin;
    directions[k] = beam.direction + (beam.corner_directions[k] - beam.direction) * margin;
  }
  const uint next = (corner + 1) % 4;
  const GMathVec3<double> edge =
      origins[next] + directions[next] - origins[corner] - directions[corner];  // at t = 1: not 0 at a beam's apex
  GMathVec3<double> normal = directions[corner].cross(edge);
  const double length = std::sqrt(normal.dot(normal));
  if (!(length > 0.0) || !std::isfinite(length)) return;
  normal = normal * (1.0 / length);
  const GMathVec3<double> center = beam.origin + beam.direction;
  if (normal.dot(center - origins[corner] - directions[corner]) < 0.0) normal = -normal;
  GeometryPlane side(origins[corner], normal);
  for (uint k = 0; k < 4; ++k) {
    const GMathVec3<double> start = origins[k] + directions[k] * tnear_ - origins[corner];
    const double slack = 1e-9 * (dot_magnitudes(normal, start) + dot_magnitudes(normal, directions[k]));
    if (!(normal.dot(start) >= -slack && normal.dot(directions[k]) >= -slack)) return;
  }
  sides_[side_count_++] = side;
}

bool GasBeamPlanes::touches(const GMathBbox3<float>& box, double tfar, double& first) const {
  const Interval t(box, origin_, slope_);
  first = t.low;
  // Written so that NaN touches.
  if (t.high < tnear_ || t.low > tfar) return false;
  for (uint k = 0; k < side_count_; ++k)
    if (Interval(box, sides_[k].point, sides_[k].normal).high < 0.0) return false;
  return true;
}
