// host/vq_gmath/gmath_linear_space.h
//
// Three axis vectors of an oriented frame, one after the other: nine values.
#pragma once
#include "vq_gmath/gmath_vec.h"

template <class T>
struct GMathLinearSpace3 {
  GMathVec3<T> axis[3] = {{T(1), T(0), T(0)}, {T(0), T(1), T(0)}, {T(0), T(0), T(1)}};

  constexpr GMathLinearSpace3() = default;
  constexpr GMathLinearSpace3(const GMathVec3<T>& x, const GMathVec3<T>& y, const GMathVec3<T>& z) : axis{x, y, z} {}
  template <class U>
  constexpr explicit GMathLinearSpace3(const GMathLinearSpace3<U>& space)
      : axis{GMathVec3<T>(space.axis[0]), GMathVec3<T>(space.axis[1]), GMathVec3<T>(space.axis[2])} {}
  constexpr bool operator==(const GMathLinearSpace3&) const = default;

  /// Coordinates of `p` along the three axes.
  constexpr GMathVec3<T> measure(const GMathVec3<T>& p) const {
    return {axis[0].dot(p), axis[1].dot(p), axis[2].dot(p)};
  }
};
static_assert(sizeof(GMathLinearSpace3<float>) == 36);
