// host/vq_curve/curve_segment_piece.h
//
// A piece of a fibre as a ray sees it, and where the ray enters it.
//
// Seen along the ray a ball is a disc. With the ray as the z axis, x, y and z the centre of ball u and r its radius,
// the ray is inside that ball between z - sqrt(q) and z + sqrt(q), q = r^2 - x^2 - y^2, if q > 0. Where q > 0 holds for
// a whole piece of the curve, the ray enters that piece of the solid at the least z - sqrt(q) and leaves it at the
// greatest z + sqrt(q). A piece that bends little for its thickness has one such stretch and one minimum there, which a
// tangent cone finds nearly (as in Reshetov and Luebke 2018, "Phantom Ray-Hair Intersector") and Newton's method
// exactly. Other pieces are halved until they are simple, or so straight that what is lost is far below the radius.
#pragma once
#include <limits>

#include "vq_curve/curve_segment.h"

/// A piece of the curve in a frame whose z axis is the ray; x, y, z, radius. The plane's x axis runs along the piece's
/// chord as the ray sees it, so that the ends have the same y.
template <CurveShape shape>
struct CurvePiece {
  static constexpr uint count = CurveSegment<shape>::point_count;
  double point[count][4];
  double begin = 0.0, size = 1.0;  ///< of u
  uint depth = 0;
};

/// One way through the surface: how far along the ray, and at which ball.
struct CurveTransit {
  double z = 0.0, u = 0.0;
};

/// What the solver sees of the curve at some u.
struct CurveState {
  double distance2, approach;   ///< x^2 + y^2 and half its derivative
  double growth;                ///< r'
  double q;                     ///< above 0 where the ray is inside the ball
  double half_fall, half_bend;  ///< -q' / 2, -q'' / 2
  double z, z_rise, z_bend;     ///< z, z', z''
};

/// What holds everywhere in a piece.
struct CurveBounds {
  double speed4 = 0.0;      ///< fourth power of the least x'; 0 when the piece is only nearly straight
  double roundness2 = 0.0;  ///< square of the radius times the greatest second derivative
  double reach2 = 0.0;      ///< up to this x^2 + y^2,
  double bend = 0.0;        ///< -q'' / 2 is at least so much
};

/// A piece as a polynomial in u of the piece.
template <CurveShape shape>
class CurvePolynomial {
 public:
  /// Takes over the coordinates `begin` to `end` of the control points.
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
  /// Turns the ray round.
  void mirror() {
    for (auto& c : c_) c[2] = -c[2];
  }

  double get_value(uint k, double u) const { return ((c_[3][k] * u + c_[2][k]) * u + c_[1][k]) * u + c_[0][k]; }
  double get_derivative(uint k, double u) const { return (3.0 * c_[3][k] * u + 2.0 * c_[2][k]) * u + c_[1][k]; }

  CurveState get_state(double u) const {
    double p[4], d[4], e[4];
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
    s.approach = p[0] * d[0] + p[1] * d[1];
    s.growth = d[3];
    s.q = p[3] * p[3] - s.distance2;
    s.half_fall = s.approach - p[3] * d[3];
    s.half_bend = d[0] * d[0] + d[1] * d[1] - d[3] * d[3] + p[0] * e[0] + p[1] * e[1] - p[3] * e[3];
    s.z = p[2];
    s.z_rise = d[2];
    s.z_bend = e[2];
    return s;
  }

 private:
  double c_[CurveSegment<shape>::point_count][4];
};

/// The step in u to the least z - sqrt(q) of the cone that touches the curve; false when that cone has none. How z
/// bends is counted in, so that near the minimum this is Newton's step.
inline bool curve_get_cone_step(const CurveState& s, double root, double& step) {
  const double slant = s.half_bend + s.z_rise * s.z_rise;
  const double inside = s.half_fall * s.half_fall + s.half_bend * s.q;
  if (!(slant > 0.0 && inside >= 0.0)) return false;
  const double height = s.z_rise * std::sqrt(inside / slant);
  if (s.half_fall * s.z_rise > 0.0) {
    if (!(s.half_bend > 0.0)) return false;
    step = (-s.half_fall - height) / s.half_bend;
    return true;
  }
  // The same number, where that difference would cancel.
  const double bent_slant = slant + s.z_bend * root;
  if (!(bent_slant > 0.0)) return false;
  const double rise = s.z_rise * root;
  const double both = s.half_fall - height;
  if (both == 0.0) return rise == 0.0;  // otherwise the fibre lies along the ray, and an end is lowest
  step = (rise - s.half_fall) * (rise + s.half_fall) / (bent_slant * both);
  return true;
}

/// Whether the ray, outside the ball at hand, surely misses the whole piece.
inline bool curve_is_missed(const CurveBounds& bounds, const CurveState& s) {
  return s.distance2 <= bounds.reach2 && s.half_fall * s.half_fall < -bounds.bend * s.q;
}

/// Whether what a step leaves to be done is below 1e-8 radii: the rounder the piece, the smaller the step has to be.
inline bool curve_is_last_step(const CurveBounds& bounds, const CurveState& s, double step) {
  const double way2 = step * step * (s.half_bend + s.z_rise * s.z_rise);
  if (!(bounds.speed4 > 0.0)) return way2 <= 1e-16 * s.q;
  return way2 <= 1e-6 * s.q && way2 * way2 * bounds.roundness2 <= 1e-16 * s.q * s.q * bounds.speed4;
}

/// Finds the least z - sqrt(q) over the piece, taken as one that has a single minimum and a single stretch of q > 0.
template <CurveShape shape>
bool curve_find_lowest(const CurvePolynomial<shape>& curve, const CurveBounds& bounds, double start,
                       CurveTransit& lowest) {
  double low = 0.0, high = 1.0;            // the minimum lies between
  bool low_open = true, high_open = true;  // the end itself has not been looked at
  lowest.z = std::numeric_limits<double>::infinity();
  double u = start;
  for (uint round = 0; round < 100; ++round) {
    const CurveState s = curve.get_state(u);
    if (!(s.q > 0.0) && curve_is_missed(bounds, s)) break;
    const double root = s.q > 0.0 ? std::sqrt(s.q) : 0.0;
    double fall = s.half_fall + s.z_rise * root;  // above 0: the minimum lies left of u
    // Of a fibre that grows faster than the ray sees it advance, q has no maximum; how far the ray is from the ball's
    // edge still has a minimum.
    if (!(s.q > 0.0) && s.half_bend <= 0.0) fall = s.approach - s.growth * std::sqrt(s.distance2);
    if (s.q > 0.0 && s.z - root < lowest.z) lowest = {s.z - root, u};

    double step = 0.0;
    bool good = curve_get_cone_step(s, root, step);
    double next = u + step;
    if (good && next >= 0.0 && next <= 1.0 && curve_is_last_step(bounds, s, step)) {
      lowest = {s.z - root + 0.5 * step * fall / root, next};
      break;
    }
    (fall > 0.0 ? high : low) = u;
    (fall > 0.0 ? high_open : low_open) = false;
    if (high <= 0.0 || low >= 1.0) break;
    if (!good && !(s.q > 0.0) && s.half_bend > 0.0) {
      next = u - s.half_fall / s.half_bend;
      good = true;
    }
    if (!good || !(next > low && next < high) || (round > 8 && round % 2 == 1)) {
      const double middle = 0.5 * (low + high);
      next = fall > 0.0 ? (low_open ? 0.0 : middle) : (high_open ? 1.0 : middle);
    }
    if (next == u || high - low < 1e-15) break;
    u = next;
  }
  return lowest.z < std::numeric_limits<double>::infinity();
}
