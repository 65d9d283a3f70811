#include "vq_gas_base/gas_beam_planes.h"

#include <cmath>

#include "vq_geometry/geometry_ray_frustum_ctx.h"

namespace {

double dot_magnitudes(const GMathVec3<double>& a, const GMathVec3<double>& b) {
  return std::fabs(a.x * b.x) + std::fabs(a.y * b.y) + std::fabs(a.z * b.z);
}

/// The plane through the lines of two neighboring corners. Left out when it is degenerate, or when a corner leaves it
/// within the beam, as in a twisted beam: then false.
bool find_side(const GeometryRayFrustumBeam& beam, uint corner, GeometryPlane& side) {
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
  if (!(length > 0.0) || !std::isfinite(length)) return false;
  normal = normal * (1.0 / length);
  const GMathVec3<double> center = beam.origin + beam.direction;
  if (normal.dot(center - origins[corner] - directions[corner]) < 0.0) normal = -normal;
  for (uint k = 0; k < 4; ++k) {
    const GMathVec3<double> start = origins[k] + directions[k] * beam.tnear - origins[corner];
    const double slack = 1e-9 * (dot_magnitudes(normal, start) + dot_magnitudes(normal, directions[k]));
    if (!(normal.dot(start) >= -slack && normal.dot(directions[k]) >= -slack)) return false;
  }
  side = GeometryPlane(origins[corner], normal);
  return true;
}

}  // namespace

GasBeamPlanes::GasBeamPlanes(const GeometryRayFrustumBeam& beam, const GMathBbox3<float>& bounds) {
  for (uint corner = 0; corner < 4; ++corner) {
    GeometryPlane side;
    if (find_side(beam, corner, side)) sides_[corner] = GasNodePlane(side.normal, side.offset, bounds);
  }
  const double along = beam.direction.dot(beam.normal), length = beam.normal.get_length();
  const GMathVec3<double> axis = beam.normal * ((along < 0.0 ? -1.0 : 1.0) / length);
  along_ = GasNodePlane(axis, -beam.origin.dot(axis), bounds);
  distance_per_t_ = std::fabs(along) / length;
  near_ = -gas_clamp_limit(-beam.tnear * distance_per_t_);  // a NaN tnear leaves nothing out
}
