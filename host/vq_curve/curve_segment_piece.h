// host/vq_curve/curve_segment_piece.h
//
// One piece of a segment in the frame of a ray, and the point where the ray enters its solid.
//
// The z axis is the ray. Ball u has the center (x, y, z) and the radius r, all polynomials in u. Let
//
//   q = r^2 - x^2 - y^2
//
// The ray is inside ball u for z - sqrt(q) < t < z + sqrt(q), if q > 0. Where q > 0 holds for a whole piece, the ray
// enters the piece at the minimum over u of z - sqrt(q) and leaves it at the maximum of z + sqrt(q). A piece that bends
// little for its thickness has one interval of u with q > 0, and one minimum in it. A tangent cone gives the first
// estimate (as in Reshetov and Luebke 2018, "Phantom Ray-Hair Intersector"), Newton's method the exact minimum. Other
// pieces are halved until they have a single minimum, or are so straight that the error is far below the radius.
#pragma once
#include <limits>
#include <optional>

#include "vq_curve/curve_segment.h"

/// A part of a segment between two values of u, in the ray's frame. Each control point is x, y, z, radius. The x axis
/// runs along the chord projected across the ray, so that both ends have the same y.
template <CurveShape shape>
struct CurvePiece {
  static constexpr uint count = CurveSegment<shape>::point_count;
  double point[count][4];
  double begin = 0.0, size = 1.0;  ///< the piece covers u from begin to begin + size
  uint depth = 0;                  ///< how often the segment was halved
};

/// A point where the ray crosses the surface.
struct CurveCrossing {
  double z = 0.0;  ///< along the ray
  double u = 0.0;  ///< the ball that the surface point belongs to
};

/// The polynomials of a piece and their derivatives in u, at one u.
struct CurveState {
  double distance2;         ///< x^2 + y^2: squared distance of the center from the ray
  double half_d_distance2;  ///< (x^2 + y^2)' / 2
  double dr;                ///< r'
  double q;                 ///< above 0: the ray is inside the ball
  double neg_half_dq;       ///< -q' / 2
  double neg_half_ddq;      ///< -q'' / 2
  double z, dz, ddz;        ///< z, z', z''
};

/// Bounds that hold on a whole piece. All 0: none are known.
struct CurveBounds {
  double min_dx4 = 0.0;           ///< fourth power of the smallest x'; 0 when the piece is only nearly straight
  double radius2_dd2 = 0.0;       ///< (radius times the largest second derivative)^2
  double max_distance2 = 0.0;     ///< while x^2 + y^2 is at most this,
  double min_neg_half_ddq = 0.0;  ///< -q'' / 2 is at least this
};

/// The coordinates of a piece as polynomials in the piece's own u, from 0 to 1.
template <CurveShape shape>
class CurvePolynomial {
 public:
  /// Converts the coordinates `begin` to `end` - 1 of the control points.
  void set(const CurvePiece<shape>& piece, uint begin, uint end) {
    for (uint k = begin; k < end; ++k) {
      const double a = piece.point[1][k] - piece.point[0][k];
      c_[0][k] = piece.point[0][k];
      if constexpr (shape == CurveShape::linear) {
        c_[1][k] = a;
      } else {
        const double b = piece.point[2][k] - piece.point[1][k];
        const double c = piece.point[3][k] - piece.point[2][k];
        c_[1][k] = 3.0 * a;
        c_[2][k] = 3.0 * (b - a);
        c_[3][k] = (c - b) - (b - a);
      }
    }
  }
  /// Reverses the ray: z becomes -z.
  void reverse_ray() {
    for (auto& c : c_) c[2] = -c[2];
  }

  double get_value(uint k, double u) const { return ((c_[3][k] * u + c_[2][k]) * u + c_[1][k]) * u + c_[0][k]; }
  double get_derivative(uint k, double u) const { return (3.0 * c_[3][k] * u + 2.0 * c_[2][k]) * u + c_[1][k]; }

  CurveState get_state(double u) const {
    double p[4], d[4], e[4];  // values, first and second derivatives
    for (uint k = 0; k < 4; ++k) {
      if constexpr (shape == CurveShape::linear) {
        p[k] = c_[1][k] * u + c_[0][k];
        d[k] = c_[1][k];
        e[k] = 0.0;
      } else {
        const double cube = c_[3][k] * u, square = cube + c_[2][k];
        p[k] = (square * u + c_[1][k]) * u + c_[0][k];
        d[k] = (square + square + cube) * u + c_[1][k];
        e[k] = 2.0 * (square + cube + cube);
      }
    }
    CurveState s;
    s.distance2 = p[0] * p[0] + p[1] * p[1];
    s.half_d_distance2 = p[0] * d[0] + p[1] * d[1];
    s.dr = d[3];
    s.q = p[3] * p[3] - s.distance2;
    s.neg_half_dq = s.half_d_distance2 - p[3] * d[3];
    s.neg_half_ddq = d[0] * d[0] + d[1] * d[1] - d[3] * d[3] + p[0] * e[0] + p[1] * e[1] - p[3] * e[3];
    s.z = p[2];
    s.dz = d[2];
    s.ddz = e[2];
    return s;
  }

 private:
  double c_[CurveSegment<shape>::point_count][4];
};

/// The step in u to the minimum of z - sqrt(q) on the cone that is tangent to the curve at this u; empty when the cone
/// has no minimum. The second derivative of z is included, so that near the minimum this is Newton's step.
/// @param root  sqrt(q), 0 where q is not above 0
inline std::optional<double> curve_get_cone_step(const CurveState& s, double root) {
  const double slant = s.neg_half_ddq + s.dz * s.dz;
  const double discriminant = s.neg_half_dq * s.neg_half_dq + s.neg_half_ddq * s.q;
  if (!(slant > 0.0 && discriminant >= 0.0)) return std::nullopt;
  const double height = s.dz * std::sqrt(discriminant / slant);
  if (s.neg_half_dq * s.dz > 0.0) {
    if (!(s.neg_half_ddq > 0.0)) return std::nullopt;
    return (-s.neg_half_dq - height) / s.neg_half_ddq;
  }
  // The same value without the difference, which would cancel here.
  const double bent_slant = slant + s.ddz * root;
  if (!(bent_slant > 0.0)) return std::nullopt;
  const double rise = s.dz * root;
  const double both = s.neg_half_dq - height;
  if (both == 0.0) {
    // If rise is not 0, the curve runs along the ray and the minimum is at one of its ends.
    return rise == 0.0 ? std::optional<double>(0.0) : std::nullopt;
  }
  return (rise - s.neg_half_dq) * (rise + s.neg_half_dq) / (bent_slant * both);
}

/// True if a ray that is outside the ball at this u misses the whole piece. False: not known.
inline bool curve_is_missed(const CurveBounds& bounds, const CurveState& s) {
  return s.distance2 <= bounds.max_distance2 && s.neg_half_dq * s.neg_half_dq < -bounds.min_neg_half_ddq * s.q;
}

/// True if the error that remains after `step` is below 1e-8 radii. The more the piece bends, the smaller the step must
/// be.
inline bool curve_is_last_step(const CurveBounds& bounds, const CurveState& s, double step) {
  const double way2 = step * step * (s.neg_half_ddq + s.dz * s.dz);
  if (!(bounds.min_dx4 > 0.0)) return way2 <= 1e-16 * s.q;
  return way2 <= 1e-6 * s.q && way2 * way2 * bounds.radius2_dd2 <= 1e-16 * s.q * s.q * bounds.min_dx4;
}

/// Finds the minimum of z - sqrt(q) over a piece that has a single minimum and a single interval with q > 0. False: the
/// ray misses the piece.
/// @param start   first estimate of u
/// @param lowest  receives the minimum; its u is the piece's own
template <CurveShape shape>
bool curve_find_lowest(const CurvePolynomial<shape>& curve, const CurveBounds& bounds, double start,
                       CurveCrossing& lowest) {
  double low = 0.0, high = 1.0;            // bracket of the minimum
  bool low_open = true, high_open = true;  // that end of the piece was not evaluated yet
  lowest.z = std::numeric_limits<double>::infinity();
  double u = start;
  for (uint round = 0; round < 100; ++round) {
    // 1. Evaluate. `slope` has the sign of the function to be minimized: above 0, the minimum is left of u.
    const CurveState s = curve.get_state(u);
    if (!(s.q > 0.0) && curve_is_missed(bounds, s)) break;
    const double root = s.q > 0.0 ? std::sqrt(s.q) : 0.0;
    double slope = s.neg_half_dq + s.dz * root;
    // Outside the ball, where the radius grows faster than the center moves across the ray, q has no maximum. The
    // distance from the ray to the surface of the ball still has a minimum. On the ray itself the ball is a point.
    if (!(s.q > 0.0) && s.neg_half_ddq <= 0.0)
      slope = s.distance2 > 0.0 ? s.half_d_distance2 - s.dr * std::sqrt(s.distance2) : -s.dr;
    if (s.q > 0.0 && s.z - root < lowest.z) lowest = {s.z - root, u};

    // 2. Take the step to the tangent cone's minimum; stop when it is small enough.
    const std::optional<double> step = curve_get_cone_step(s, root);
    bool has_next = step.has_value();
    double next = u + step.value_or(0.0);
    if (s.q > 0.0 && has_next && next >= 0.0 && next <= 1.0 && curve_is_last_step(bounds, s, *step)) {
      lowest = {s.z - root + 0.5 * *step * slope / root, next};
      break;
    }

    // 3. Narrow the bracket.
    (slope > 0.0 ? high : low) = u;
    (slope > 0.0 ? high_open : low_open) = false;
    if (high <= 0.0 || low >= 1.0) break;

    // 4. Outside the ball without a cone step: Newton's step to the maximum of q.
    if (!has_next && !(s.q > 0.0) && s.neg_half_ddq > 0.0) {
      next = u - s.neg_half_dq / s.neg_half_ddq;
      has_next = true;
    }
    // 5. Bisect when there is no step, it leaves the bracket, or the steps converge too slowly.
    if (!has_next || !(next > low && next < high) || (round > 8 && round % 2 == 1)) {
      const double middle = 0.5 * (low + high);
      next = slope > 0.0 ? (low_open ? 0.0 : middle) : (high_open ? 1.0 : middle);
    }
    if (next == u || high - low < 1e-15) break;
    u = next;
  }
  return lowest.z < std::numeric_limits<double>::infinity();
}
