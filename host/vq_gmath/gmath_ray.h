// host/vq_gmath/gmath_ray.h
//
// Rays. GMathBasicRay is the part that differs between spaces:
//
//   0  origin     3 double
//   24 direction  3 double      not normalized: a distance t means origin + t direction in every space
//   48 inverse    3 double      1 / direction, component by component
//   72 negative   3 u8          1 where the direction's component is below 0
//   75 pad        5             80 bytes in all
//
// GMathRay adds the values that are the same in all spaces: type, interval, time, extent.
#pragma once
#include <cfloat>

#include "vq_gmath/gmath_matrix.h"

template <class T>
struct GMathBasicRay {
  GMathVec3<T> origin, direction, inverse;
  u8 negative[3] = {0, 0, 0};
  u8 pad[5] = {0, 0, 0, 0, 0};

  constexpr GMathBasicRay() = default;
  constexpr GMathBasicRay(const GMathVec3<T>& origin, const GMathVec3<T>& direction) { set(origin, direction); }

  constexpr void set(const GMathVec3<T>& new_origin, const GMathVec3<T>& new_direction) {
    origin = new_origin;
    direction = new_direction;
    for (uint axis = 0; axis < 3; ++axis) {
      // -0.0 + 0.0 is +0.0: the inverse of a zero component is +infinity whatever its sign, as its clear flag says.
      inverse[axis] = T(1) / (direction[axis] + T(0));
      negative[axis] = direction[axis] < T(0);
    }
  }
  /// This ray = `source` through `matrix`: the origin as a point, the direction as a vector that is not normalized,
  /// so that distances along the ray are the same in both spaces.
  constexpr void transform(const GMathBasicRay& source, const GMathMatrix4x4<T>& matrix) {
    set(matrix.transform_point(source.origin), matrix.transform_vector(source.direction));
  }
  constexpr GMathVec3<T> get_point(T t) const { return origin + direction * t; }
};
static_assert(sizeof(GMathBasicRay<double>) == 80);

struct GMathRay : GMathBasicRay<double> {
  /// The purpose of a ray. Visibility masks have one bit per type, modulo 32.
  enum Type : uint { camera = 0, shadow = 1, reflection = 2, refraction = 3, diffuse = 4, subsurface = 5, lookup = 6 };

  Type type = camera;
  double tnear = 0.0;     ///< start of the interval, in units of the direction
  double tfar = DBL_MAX;  ///< end of the interval
  double time = 0.0;      ///< in the unit of the motion keys
  double extent = 0.0;    ///< radius around the ray, used by lookups
};
