// host/vq_gmath/gmath_matrix.h
//
// 4x4 matrix, row-major: m[row][column], for column vectors, so that the translation is column 3 and
// x' = m00 x + m01 y + m02 z + m03.
#pragma once
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_vec.h"

template <class T>
struct GMathMatrix4x4 {
  T m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

  constexpr bool operator==(const GMathMatrix4x4&) const = default;
  constexpr GMathMatrix4x4 operator*(const GMathMatrix4x4& b) const;

  /// Full 4x4 determinant by cofactors.
  constexpr T get_determinant() const;
  /// Cofactors divided by the determinant. A singular matrix gives infinite or NaN entries: the caller tests first.
  constexpr GMathMatrix4x4 get_inverse() const;
  constexpr bool is_affine() const { return m[3][0] == T(0) && m[3][1] == T(0) && m[3][2] == T(0) && m[3][3] == T(1); }

  /// Rows 0 to 2 applied to a point: the last row is taken as 0 0 0 1.
  constexpr GMathVec3<T> transform_point(const GMathVec3<T>& p) const {
    return {m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3],
            m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3],
            m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3]};
  }
  /// The upper 3x3 applied to a direction.
  constexpr GMathVec3<T> transform_vector(const GMathVec3<T>& v) const {
    return {m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
            m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z};
  }
  /// The transposed upper 3x3 applied to a normal. With M from object to world, it takes a world plane's normal to
  /// object space; with the inverse of M, an object normal to world space. Not normalized.
  constexpr GMathVec3<T> transform_normal_transposed(const GMathVec3<T>& n) const {
    return {m[0][0] * n.x + m[1][0] * n.y + m[2][0] * n.z, m[0][1] * n.x + m[1][1] * n.y + m[2][1] * n.z,
            m[0][2] * n.x + m[1][2] * n.y + m[2][2] * n.z};
  }
  /// The box around the eight transformed corners.
  constexpr GMathBbox3<T> transform_box(const GMathBbox3<T>& box) const {
    GMathBbox3<T> out;
    for (uint corner = 0; corner < 8; ++corner) out.add(transform_point(box.get_corner(corner)));
    return out;
  }

 private:
  /// The 2x2 minors of rows 0-1 (first six) and rows 2-3 (last six); determinant and inverse are made of them.
  struct Minors {
    T s[6], c[6];
  };
  constexpr Minors get_minors() const;
  constexpr GMathMatrix4x4 get_affine_inverse() const;
};
static_assert(sizeof(GMathMatrix4x4<double>) == 128);

template <class T>
constexpr GMathMatrix4x4<T> GMathMatrix4x4<T>::operator*(const GMathMatrix4x4& b) const {
  GMathMatrix4x4 out;
  for (uint r = 0; r < 4; ++r) {
    for (uint c = 0; c < 4; ++c)
      out.m[r][c] = m[r][0] * b.m[0][c] + m[r][1] * b.m[1][c] + m[r][2] * b.m[2][c] + m[r][3] * b.m[3][c];
  }
  return out;
}

template <class T>
constexpr typename GMathMatrix4x4<T>::Minors GMathMatrix4x4<T>::get_minors() const {
  constexpr uint pair[6][2] = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
  Minors out{};
  for (uint k = 0; k < 6; ++k) {
    const uint i = pair[k][0], j = pair[k][1];
    out.s[k] = m[0][i] * m[1][j] - m[1][i] * m[0][j];
    out.c[k] = m[2][i] * m[3][j] - m[3][i] * m[2][j];
  }
  return out;
}

template <class T>
constexpr T GMathMatrix4x4<T>::get_determinant() const {
  const Minors k = get_minors();
  return k.s[0] * k.c[5] - k.s[1] * k.c[4] + k.s[2] * k.c[3] + k.s[3] * k.c[2] - k.s[4] * k.c[1] + k.s[5] * k.c[0];
}

template <class T>
constexpr GMathMatrix4x4<T> GMathMatrix4x4<T>::get_inverse() const {
  if (is_affine()) return get_affine_inverse();
  const Minors k = get_minors();
  const T(&s)[6] = k.s;
  const T(&c)[6] = k.c;
  const T scale = T(1) / get_determinant();
  GMathMatrix4x4 out;
  out.m[0][0] = (m[1][1] * c[5] - m[1][2] * c[4] + m[1][3] * c[3]) * scale;
  out.m[0][1] = (-m[0][1] * c[5] + m[0][2] * c[4] - m[0][3] * c[3]) * scale;
  out.m[0][2] = (m[3][1] * s[5] - m[3][2] * s[4] + m[3][3] * s[3]) * scale;
  out.m[0][3] = (-m[2][1] * s[5] + m[2][2] * s[4] - m[2][3] * s[3]) * scale;
  out.m[1][0] = (-m[1][0] * c[5] + m[1][2] * c[2] - m[1][3] * c[1]) * scale;
  out.m[1][1] = (m[0][0] * c[5] - m[0][2] * c[2] + m[0][3] * c[1]) * scale;
  out.m[1][2] = (-m[3][0] * s[5] + m[3][2] * s[2] - m[3][3] * s[1]) * scale;
  out.m[1][3] = (m[2][0] * s[5] - m[2][2] * s[2] + m[2][3] * s[1]) * scale;
  out.m[2][0] = (m[1][0] * c[4] - m[1][1] * c[2] + m[1][3] * c[0]) * scale;
  out.m[2][1] = (-m[0][0] * c[4] + m[0][1] * c[2] - m[0][3] * c[0]) * scale;
  out.m[2][2] = (m[3][0] * s[4] - m[3][1] * s[2] + m[3][3] * s[0]) * scale;
  out.m[2][3] = (-m[2][0] * s[4] + m[2][1] * s[2] - m[2][3] * s[0]) * scale;
  out.m[3][0] = (-m[1][0] * c[3] + m[1][1] * c[1] - m[1][2] * c[0]) * scale;
  out.m[3][1] = (m[0][0] * c[3] - m[0][1] * c[1] + m[0][2] * c[0]) * scale;
  out.m[3][2] = (-m[3][0] * s[3] + m[3][1] * s[1] - m[3][2] * s[0]) * scale;
  out.m[3][3] = (m[2][0] * s[3] - m[2][1] * s[1] + m[2][2] * s[0]) * scale;
  return out;
}

// The values of the general inverse in rows 0 to 2 (the sign of a zero may differ) with 58 % of its operations: half of
// the minors are 0.
template <class T>
constexpr GMathMatrix4x4<T> GMathMatrix4x4<T>::get_affine_inverse() const {
  const T s0 = m[0][0] * m[1][1] - m[1][0] * m[0][1], s1 = m[0][0] * m[1][2] - m[1][0] * m[0][2];
  const T s2 = m[0][0] * m[1][3] - m[1][0] * m[0][3], s3 = m[0][1] * m[1][2] - m[1][1] * m[0][2];
  const T s4 = m[0][1] * m[1][3] - m[1][1] * m[0][3], s5 = m[0][2] * m[1][3] - m[1][2] * m[0][3];
  const T x = m[2][0], y = m[2][1], z = m[2][2], w = m[2][3];
  const T scale = T(1) / (s0 * z - s1 * y + s3 * x);
  GMathMatrix4x4 out;
  out.m[0][0] = (m[1][1] * z - m[1][2] * y) * scale;
  out.m[0][1] = (-m[0][1] * z + m[0][2] * y) * scale;
  out.m[0][2] = s3 * scale;
  out.m[0][3] = (-y * s5 + z * s4 - w * s3) * scale;
  out.m[1][0] = (-m[1][0] * z + m[1][2] * x) * scale;
  out.m[1][1] = (m[0][0] * z - m[0][2] * x) * scale;
  out.m[1][2] = -s1 * scale;
  out.m[1][3] = (x * s5 - z * s2 + w * s1) * scale;
  out.m[2][0] = (m[1][0] * y - m[1][1] * x) * scale;
  out.m[2][1] = (-m[0][0] * y + m[0][1] * x) * scale;
  out.m[2][2] = s0 * scale;
  out.m[2][3] = (-x * s4 + y * s2 - w * s0) * scale;
  return out;
}
