// host/vq_curve/curve_segment_ray.cpp
//
// Where a ray meets the union of balls along a curve.
//
// Seen along the ray a ball is a disc. With the ray as the z axis, x, y and z the centre of ball u and r its radius,
// the ray is inside that ball between z - sqrt(q) and z + sqrt(q), q = r^2 - x^2 - y^2, if q > 0. Where q > 0 holds for
// a whole piece of the curve, the ray enters that piece of the solid at the least z - sqrt(q) and leaves it at the
// greatest z + sqrt(q). A piece that bends little for its thickness has one such stretch and one minimum there, which a
// tangent cone finds nearly (as in Reshetov and Luebke 2018, "Phantom Ray-Hair Intersector") and Newton's method
// exactly. Other pieces are halved until they are simple, or so straight that what is lost is far below the radius.
#include <algorithm>
#include <limits>

#include "vq_curve/curve_segment_frame.h"

namespace {

using Vec = GMathVec3<double>;

constexpr uint max_depth = 12;
constexpr uint max_rounds = 100;

/// A piece of the curve in a frame whose z axis is the ray; x, y, z, radius. The plane's x axis runs along the piece's
/// chord as the ray sees it, so that the ends have the same y.
template <CurveShape shape>
struct Piece {
  static constexpr uint count = CurveSegment<shape>::point_count;
  double point[count][4];
  double begin = 0.0, size = 1.0;  ///< of u
  uint depth = 0;
};

/// One way through the surface: how far along the ray, and at which ball.
struct Crossing {
  double z = 0.0, u = 0.0;
};

/// What the solver sees of the curve at some u.
struct State {
  double distance2, approach;  ///< x^2 + y^2 and half its derivative
  double growth;               ///< r'
  double q;                    ///< above 0 where the ray is inside the ball
  double half_fall;            ///< -q' / 2
  double half_bend;            ///< -q'' / 2
  double z, z_rise, z_bend;    ///< z, z', z''
};

/// A piece as a polynomial in u of the piece.
template <CurveShape shape>
class Polynomial {
 public:
  /// `side` 1 looks for the way in, -1, which mirrors z, for the way out.
  Polynomial(const Piece<shape>& piece, double side) {
    for (uint k = 0; k < 4; ++k) {
      const double sign = k == 2 ? side : 1.0;
      if constexpr (shape == CurveShape::linear) {
        c_[0][k] = sign * piece.point[0][k];
        c_[1][k] = sign * (piece.point[1][k] - piece.point[0][k]);
      } else {
        const double a = piece.point[1][k] - piece.point[0][k];
        const double b = piece.point[2][k] - piece.point[1][k];
        const double c = piece.point[3][k] - piece.point[2][k];
        c_[0][k] = sign * piece.point[0][k];
        c_[1][k] = sign * (3.0 * a);
        c_[2][k] = sign * (3.0 * (b - a));
        c_[3][k] = sign * ((c - b) - (b - a));
      }
    }
  }

  State get_state(double u) const {
    double p[4], d[4], e[4];
    for (uint k = 0; k < 4; ++k) {
      if constexpr (shape == CurveShape::linear) {
        p[k] = c_[1][k] * u + c_[0][k];
        d[k] = c_[1][k];
        e[k] = 0.0;
      } else {
        p[k] = ((c_[3][k] * u + c_[2][k]) * u + c_[1][k]) * u + c_[0][k];
        d[k] = (3.0 * c_[3][k] * u + 2.0 * c_[2][k]) * u + c_[1][k];
        e[k] = 6.0 * c_[3][k] * u + 2.0 * c_[2][k];
      }
    }
    const double distance2 = p[0] * p[0] + p[1] * p[1], approach = p[0] * d[0] + p[1] * d[1];
    return {distance2,
            approach,
            d[3],
            p[3] * p[3] - distance2,
            approach - p[3] * d[3],
            d[0] * d[0] + d[1] * d[1] - d[3] * d[3] + p[0] * e[0] + p[1] * e[1] - p[3] * e[3],
            p[2],
            d[2],
            e[2]};
  }

  /// Roughly where the ray passes nearest.
  double get_start() const {
    double rise = c_[1][0];
    if constexpr (shape == CurveShape::cubic) rise += c_[2][0] + c_[3][0];
    if (!(rise > 0.0)) return 0.5;
    double u = std::clamp(-c_[0][0] / rise, 0.0, 1.0);
    if constexpr (shape == CurveShape::cubic) {
      const double x = ((c_[3][0] * u + c_[2][0]) * u + c_[1][0]) * u + c_[0][0];
      const double slope = (3.0 * c_[3][0] * u + 2.0 * c_[2][0]) * u + c_[1][0];
      if (slope > 0.0) u = std::clamp(u - x / slope, 0.0, 1.0);
    }
    return u;
  }

 private:
  double c_[CurveSegment<shape>::point_count][4];
};

/// The step in u to the least z - sqrt(q) of the cone that touches the curve; false when that cone has none. How z
/// bends is counted in, so that near the minimum this is Newton's step.
bool get_cone_step(const State& s, double root, double& step) {
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
  step = both == 0.0 ? 0.0 : (rise - s.half_fall) * (rise + s.half_fall) / (bent_slant * both);
  return true;
}

/// Finds the least z - sqrt(q) over the piece, taken as one that has a single minimum and a single stretch of q > 0.
template <CurveShape shape>
bool find_lowest(const Polynomial<shape>& curve, Crossing& lowest) {
  double low = 0.0, high = 1.0;            // the minimum lies between
  bool low_open = true, high_open = true;  // the end itself has not been looked at
  lowest.z = std::numeric_limits<double>::infinity();
  double u = curve.get_start();
  for (uint round = 0; round < max_rounds; ++round) {
    const State s = curve.get_state(u);
    const double root = s.q > 0.0 ? std::sqrt(s.q) : 0.0;
    double fall = s.half_fall + s.z_rise * root;  // above 0: the minimum lies left of u
    // Of a fibre that grows faster than the ray sees it advance, q has no maximum; how far the ray is from the ball's
    // edge still has a minimum.
    if (!(s.q > 0.0) && s.half_bend <= 0.0) fall = s.approach - s.growth * std::sqrt(s.distance2);
    if (s.q > 0.0 && s.z - root < lowest.z) lowest = {s.z - root, u};
    (fall > 0.0 ? high : low) = u;
    (fall > 0.0 ? high_open : low_open) = false;
    if (high <= 0.0 || low >= 1.0) break;

    double step;
    bool good = get_cone_step(s, root, step);
    if (!good && !(s.q > 0.0) && s.half_bend > 0.0) {
      step = -s.half_fall / s.half_bend;
      good = true;
    }
    double next = u + step;
    if (!good || !(next > low && next < high) || (round > 8 && round % 2 == 1))
      next = fall > 0.0 ? (low_open ? 0.0 : 0.5 * (low + high)) : (high_open ? 1.0 : 0.5 * (low + high));
    else if (s.q > 0.0 && step * step * (s.half_bend + s.z_rise * s.z_rise) <= 1e-10 * s.q) {
      lowest = {s.z - root + 0.5 * step * fall / root, next};
      break;
    }
    if (next == u || high - low < 1e-15) break;
    u = next;
  }
  return lowest.z < std::numeric_limits<double>::infinity();
}

enum class PieceKind { missed, simple, bent };

template <CurveShape shape>
double get_largest_radius(const Piece<shape>& piece) {
  double radius = piece.point[0][3];
  for (uint k = 1; k < Piece<shape>::count; ++k) radius = std::max(radius, piece.point[k][3]);
  return radius;
}

/// Turns the piece's plane so that x runs along the chord.
void align(Piece<CurveShape::cubic>& piece) {
  double(&p)[4][4] = piece.point;
  const double x = p[3][0] - p[0][0], y = p[3][1] - p[0][1];
  const double length = std::sqrt(x * x + y * y);
  if (!(length > 0.0)) return;
  const double cosine = x / length, sine = y / length;
  for (uint k = 0; k < 4; ++k) {
    const double along = p[k][0] * cosine + p[k][1] * sine;
    p[k][1] = p[k][1] * cosine - p[k][0] * sine;
    p[k][0] = along;
  }
}

PieceKind get_kind(const Piece<CurveShape::cubic>& piece) {
  const double(&p)[4][4] = piece.point;
  const double radius = get_largest_radius(piece);
  for (uint k = 0; k < 2; ++k) {
    const double low = std::min(std::min(p[0][k], p[1][k]), std::min(p[2][k], p[3][k]));
    const double high = std::max(std::max(p[0][k], p[1][k]), std::max(p[2][k], p[3][k]));
    if (!(low < radius && high > -radius)) return PieceKind::missed;
  }
  double bend[2] = {0.0, 0.0};
  for (uint k = 0; k < 4; ++k) {
    for (uint i = 0; i < 2; ++i) {
      const double second = p[i][k] - 2.0 * p[i + 1][k] + p[i + 2][k];
      bend[i] += second * second;
    }
  }
  const double bend2 = 36.0 * std::max(bend[0], bend[1]);
  const double speed = 3.0 * std::min(std::min(p[1][0] - p[0][0], p[2][0] - p[1][0]), p[3][0] - p[2][0]);
  const double growth =
      3.0 * std::max(std::max(std::abs(p[1][3] - p[0][3]), std::abs(p[2][3] - p[1][3])), std::abs(p[3][3] - p[2][3]));
  const double spare = 0.25 * speed * speed - growth * growth;
  if (speed > 0.0 && spare > 0.0 && radius * radius * bend2 <= spare * spare) return PieceKind::simple;
  // Half a thousandth of a radius from its chord: nothing to tell apart is left.
  if (piece.depth >= max_depth || bend2 <= 64.0 * 1e-8 * radius * radius) return PieceKind::simple;
  return PieceKind::bent;
}

/// Halves a piece (de Casteljau); `far` is the half that starts further along the ray.
void split(const Piece<CurveShape::cubic>& piece, Piece<CurveShape::cubic>& near, Piece<CurveShape::cubic>& far) {
  Piece<CurveShape::cubic> first, second;
  for (uint k = 0; k < 4; ++k) {
    const double a = piece.point[0][k], b = piece.point[1][k], c = piece.point[2][k], d = piece.point[3][k];
    const double ab = 0.5 * (a + b), bc = 0.5 * (b + c), cd = 0.5 * (c + d);
    const double abc = 0.5 * (ab + bc), bcd = 0.5 * (bc + cd), middle = 0.5 * (abc + bcd);
    const double left[4] = {a, ab, abc, middle}, right[4] = {middle, bcd, cd, d};
    for (uint i = 0; i < 4; ++i) {
      first.point[i][k] = left[i];
      second.point[i][k] = right[i];
    }
  }
  first.size = second.size = 0.5 * piece.size;
  first.begin = piece.begin;
  second.begin = piece.begin + first.size;
  first.depth = second.depth = piece.depth + 1;
  const bool forward = piece.point[0][2] <= piece.point[3][2];
  near = forward ? first : second;
  far = forward ? second : first;
  align(near);
  align(far);
}

/// Calls `visit` for each simple piece that the ray may hit, roughly in the ray's order, as long as `wanted` holds for
/// where the piece may begin along the ray.
template <CurveShape shape, class Wanted, class Visit>
void visit_pieces(const Piece<shape>& root, const Wanted& wanted, const Visit& visit) {
  if constexpr (shape == CurveShape::linear) {
    visit(root);
  } else {
    Piece<shape> stack[max_depth + 2];
    uint count = 0;
    stack[count++] = root;
    while (count > 0) {
      const Piece<shape> piece = stack[--count];
      double begin = piece.point[0][2];
      for (uint k = 1; k < 4; ++k) begin = std::min(begin, piece.point[k][2]);
      if (!wanted(begin - get_largest_radius(piece))) continue;
      const PieceKind kind = get_kind(piece);
      if (kind == PieceKind::missed) continue;
      if (kind == PieceKind::simple) {
        visit(piece);
      } else {
        split(piece, stack[count + 1], stack[count]);
        count += 2;
      }
    }
  }
}

template <CurveShape shape>
bool find_crossing(const Piece<shape>& piece, double side, Crossing& crossing) {
  if (!find_lowest(Polynomial<shape>(piece, side), crossing)) return false;
  crossing = {crossing.z * side, piece.begin + piece.size * crossing.u};
  return true;
}

/// Where the ray enters the solid first.
template <CurveShape shape>
bool find_first_entry(const Piece<shape>& root, Crossing& entry) {
  entry.z = std::numeric_limits<double>::infinity();
  visit_pieces(
      root, [&](double begin) { return begin < entry.z; },
      [&](const Piece<shape>& piece) {
        Crossing crossing;
        if (find_crossing(piece, 1.0, crossing) && crossing.z < entry.z) entry = crossing;
      });
  return entry.z < std::numeric_limits<double>::infinity();
}

/// The stretches of the ray inside the solid, apart from each other.
class Stretches {
 public:
  void add(Crossing in, Crossing out) {
    for (uint k = 0; k < count_;) {
      if (in_[k].z <= out.z && in.z <= out_[k].z) {
        if (in_[k].z < in.z) in = in_[k];
        if (out_[k].z > out.z) out = out_[k];
        in_[k] = in_[--count_];
        out_[k] = out_[count_];
      } else {
        ++k;
      }
    }
    if (count_ == capacity) return;
    in_[count_] = in;
    out_[count_++] = out;
  }
  /// The first way in or out at or after `z`.
  bool find_next(double z, Crossing& next) const {
    next.z = std::numeric_limits<double>::infinity();
    for (uint k = 0; k < count_; ++k) {
      const Crossing& crossing = in_[k].z >= z ? in_[k] : out_[k];
      if (crossing.z >= z && crossing.z < next.z) next = crossing;
    }
    return next.z < std::numeric_limits<double>::infinity();
  }

 private:
  static constexpr uint capacity = 16;  // a line meets a cubic's solid in a handful of stretches
  Crossing in_[capacity], out_[capacity];
  uint count_ = 0;
};

template <CurveShape shape>
bool find_crossing_after(const Piece<shape>& root, double z, Crossing& crossing) {
  Stretches stretches;
  visit_pieces(
      root, [](double) { return true; },
      [&](const Piece<shape>& piece) {
        Crossing in, out;
        if (find_crossing(piece, 1.0, in) && find_crossing(piece, -1.0, out)) stretches.add(in, out);
      });
  return stretches.find_next(z, crossing);
}

/// The ray's own frame about the point of its line nearest to the segment's first point.
struct RayFrame {
  Vec axis[3];
  double speed = 0.0;   ///< length of the ray's direction
  double middle = 0.0;  ///< distance of that point, in units of the direction
  Vec base;             ///< from that point to the segment's first
};

template <CurveShape shape>
bool make_frame(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, RayFrame& frame) {
  const Vec to_first = segment.point[0].position - ray.origin;
  const double speed2 = ray.direction.dot(ray.direction);
  frame.middle = to_first.dot(ray.direction) / speed2;
  frame.base = to_first - ray.direction * frame.middle;
  frame.speed = std::sqrt(speed2);
  const Vec z = ray.direction * (1.0 / frame.speed);
  const Vec chord = segment.point[CurveSegment<shape>::point_count - 1].position - segment.point[0].position;
  Vec y = z.cross(chord);
  // Nearly along the ray, the chord cannot tell where across the ray it points.
  if (!(y.dot(y) > 1e-8 * chord.dot(chord))) {
    const Vec size(std::abs(z.x), std::abs(z.y), std::abs(z.z));
    y = z.cross(size.x <= size.y && size.x <= size.z ? Vec(1, 0, 0) : size.y <= size.z ? Vec(0, 1, 0) : Vec(0, 0, 1));
  }
  frame.axis[1] = y.get_normalized();
  frame.axis[0] = frame.axis[1].cross(z);
  frame.axis[2] = z;
  return true;
}

}  // namespace

template <CurveShape shape>
bool curve_hit_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, double t_near,
                       double t_far, CurveHit& hit) {
  RayFrame frame;
  if (!make_frame(ray, segment, frame)) return false;
  Piece<shape> root;
  double sum = frame.middle;
  for (uint k = 0; k < Piece<shape>::count; ++k) {
    const Vec place = segment.point[k].position - segment.point[0].position;
    for (uint axis = 0; axis < 3; ++axis)
      root.point[k][axis] = frame.axis[axis].dot(place) + frame.axis[axis].dot(frame.base);
    root.point[k][3] = std::max(0.0, segment.point[k].radius);
    sum += root.point[k][0] + root.point[k][1] + root.point[k][2] + segment.point[k].radius;
  }
  if (!gmath_isfinited(sum) || !(get_largest_radius(root) > 0.0)) return false;
  if constexpr (shape == CurveShape::cubic) align(root);

  const double near = (t_near - frame.middle) * frame.speed;
  Crossing crossing;
  if (!find_first_entry(root, crossing)) return false;
  if (!(crossing.z >= near) && !find_crossing_after(root, near, crossing)) return false;
  const double distance = frame.middle + crossing.z / frame.speed;
  if (!(distance < t_far)) return false;
  hit.distance = std::max(distance, t_near);
  const CurvePoint<double> first = {segment.point[0].position, 0.0};
  CurveSegment<shape> local = segment;
  for (CurvePoint<double>& point : local.point) point.position = point.position - first.position;
  const CurvePoint<double> ball = local.get_ball(crossing.u);
  const Vec normal = ray.direction * (crossing.z / frame.speed) - frame.base - ball.position;
  const GMathVec2<double> uv = curve_get_uv(segment, crossing.u, normal.get_normalized());
  hit.u = uv.x;
  hit.v = uv.y;
  return true;
}

template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::linear>&, double, double,
                                CurveHit&);
template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::cubic>&, double, double,
                                CurveHit&);
