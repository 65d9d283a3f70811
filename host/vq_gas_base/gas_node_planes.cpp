#include "vq_gas_base/gas_node_planes.h"

#include <algorithm>
#include <cmath>
#include <limits>

GasNodePlane::GasNodePlane(const GMathVec3<double>& normal, double offset, const GMathBbox3<float>& bounds) {
  double magnitude = std::fabs(offset);
  for (uint k = 0; k < 3; ++k) {
    normals_[k] = SimdF(static_cast<float>(normal[k]));
    is_negative_[k] = normal[k] > 0.0 ? 0 : 1;
    magnitude += std::fabs(normal[k]) * std::max(std::fabs(bounds.min[k]), std::fabs(bounds.max[k]));
  }
  // Each coefficient, product and sum is wrong by 2^-24, and no value passes more than eight of them. A value below
  // 2^-126 may also become 0. Above 2^126, where a sum may overflow, every value counts as unsure.
  const double error = magnitude < 0x1p126 ? magnitude * 0x1p-21 + 0x1p-120 : std::numeric_limits<double>::infinity();
  low_offset_ = static_cast<float>(offset - error);
  high_offset_ = static_cast<float>(offset + error);
  offset_ = SimdF(low_offset_, low_offset_, high_offset_, high_offset_);
}

GasFrustumPlanes::GasFrustumPlanes(const GeometryFrustumData& frustum, const GMathBbox3<float>& bounds) {
  for (uint k = 0; k < frustum.plane_count; ++k) add(frustum.planes[k], bounds);
  for (uint k = 0; k < frustum.end_plane_count; ++k) add(frustum.end_planes[k], bounds);
}

void GasFrustumPlanes::add(const GeometryPlane& plane, const GMathBbox3<float>& bounds) {
  const GMathVec3<double>& n = plane.normal;
  // Normals have any length, and single precision has a short range.
  const double largest = std::max({std::fabs(n.x), std::fabs(n.y), std::fabs(n.z)});
  const double scale = largest > 0.0 ? 1.0 / largest : 1.0;
  const uint index = static_cast<uint>(std::popcount(mask_));
  planes_[index] = GasNodePlane(n * scale, plane.offset * scale, bounds);
  mask_ |= 1u << index;
}
