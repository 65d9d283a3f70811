// host/vq_gmath/gmath_vec.h
//
// Vectors of two and three values: plain aggregates, no padding, so that arrays of them are arrays of values.
#pragma once
#include <cmath>

#include "vq_core/core_types.h"

template <class T>
struct GMathVec2 {
  T x{}, y{};
  constexpr bool operator==(const GMathVec2&) const = default;
};

template <class T>
struct GMathVec3 {
  T x{}, y{}, z{};

  constexpr GMathVec3() = default;
  constexpr GMathVec3(T x, T y, T z) : x(x), y(y), z(z) {}
  /// Ordinary conversion of each value: double to float rounds to nearest.
  template <class U>
  constexpr explicit GMathVec3(const GMathVec3<U>& v)
      : x(static_cast<T>(v.x)), y(static_cast<T>(v.y)), z(static_cast<T>(v.z)) {}

  constexpr T& operator[](uint axis) { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr const T& operator[](uint axis) const { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr bool operator==(const GMathVec3&) const = default;

  constexpr GMathVec3 operator+(const GMathVec3& v) const { return {x + v.x, y + v.y, z + v.z}; }
  constexpr GMathVec3 operator-(const GMathVec3& v) const { return {x - v.x, y - v.y, z - v.z}; }
  constexpr GMathVec3 operator*(T s) const { return {x * s, y * s, z * s}; }
  constexpr GMathVec3 operator-() const { return {-x, -y, -z}; }
  constexpr GMathVec3& operator+=(const GMathVec3& v) { return *this = *this + v; }

  constexpr T dot(const GMathVec3& v) const { return x * v.x + y * v.y + z * v.z; }
  constexpr GMathVec3 cross(const GMathVec3& v) const {
    return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
  }
  T get_length() const { return std::sqrt(dot(*this)); }
  /// The unit vector along this one; the zero vector stays zero.
  GMathVec3 get_normalized() const {
    const T length = get_length();
    return length > T(0) ? *this * (T(1) / length) : GMathVec3{};
  }
};
static_assert(sizeof(GMathVec3<float>) == 12 && sizeof(GMathVec3<double>) == 24 && sizeof(GMathVec2<float>) == 8);
