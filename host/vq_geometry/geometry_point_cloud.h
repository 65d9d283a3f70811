// host/vq_geometry/geometry_point_cloud.h
//
// The points of a geometry for frustum queries: a view, the geometry owns the positions.
#pragma once
#include <cstddef>

#include "vq_core/core_assert.h"
#include "vq_gmath/gmath_vec.h"

class GeometryPointCloud {
 public:
  GeometryPointCloud() = default;
  /// A view of `count` positions, `stride` bytes apart. They must outlive the cloud.
  GeometryPointCloud(const GMathVec3<float>* positions, uint count, uint stride = sizeof(GMathVec3<float>))
      : positions_(reinterpret_cast<const u8*>(positions)), count_(count), stride_(stride) {}

  uint get_count() const { return count_; }
  /// `point` below get_count().
  const GMathVec3<float>& get_position(const uint& point) const {
    CORE_ASSERT(point < count_);
    return *reinterpret_cast<const GMathVec3<float>*>(positions_ + std::size_t{point} * stride_);
  }

 private:
  const u8* positions_ = nullptr;
  uint count_ = 0;
  uint stride_ = 0;
};
