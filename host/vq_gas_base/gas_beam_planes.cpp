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
  // Between the corners, where the center of the beam need not be.
  GMathVec3<double> middle_origin, middle_direction, origins[4], directions[4];
  for (uint k = 0; k < 4; ++k) {
    middle_origin += beam.corner_origins[k] * 0.25;
    middle_direction += beam.corner_directions[k] * 0.25;
  }
  for (uint k = 0; k < 4; ++k) {
    origins[k] = middle_origin + (beam.corner_origins[k] - middle_origin) * margin;
    directions[k] = middle_direction + (beam.corner_directions[k] - middle_direction) * margin;
  }
  const uint next = (corner + 1) % 4;
  // At t = 1: not 0 at a beam's apex. Origins and directions apart: beside a far origin a narrow beam is rounded away.
  const auto from_corner = [&](const GMathVec3<double>& origin, const GMathVec3<double>& direction) {
    return (origin - origins[corner]) + (direction - directions[corner]);
  };
  GMathVec3<double> normal = directions[corner].cross(from_corner(origins[next], directions[next]));
  const double length = std::sqrt(normal.dot(normal));
  if (!(length > 0.0) || !std::isfinite(length)) return false;
  normal = normal * (1.0 / length);
  if (normal.dot(from_corner(middle_origin, middle_direction)) < 0.0) normal = -normal;
  // Rounding of corners that are in the plane. Not more: a beam may be as narrow as 1e-9 of its length.
  constexpr double rounding = 1e-13;
  for (uint k = 0; k < 4; ++k) {
    const GMathVec3<double> start = (origins[k] - origins[corner]) + directions[k] * beam.tnear;
    if (!(normal.dot(start) >= -rounding * dot_magnitudes(normal, start))) return false;
    if (!(normal.dot(directions[k]) >= -rounding * dot_magnitudes(normal, directions[k]))) return false;
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
