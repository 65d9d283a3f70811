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
constexpr double flat_tolerance =
    1e-4;  // deviation from the chord, in radii, below which a piece is as good as straight
constexpr uint max_rounds = 100;
constexpr double step_tolerance = 1e-8;  // squares itself in the last step

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
  double x;
  double distance2, approach, speed2;  ///< x^2 + y^2, half its derivative, x'^2 + y'^2
  double growth;                       ///< r'
  double q;                            ///< above 0 where the ray is inside the ball
  double half_fall, half_bend;         ///< -q' / 2, -q'' / 2
  double z, z_rise, z_bend;            ///< z, z', z''
};

/// What holds everywhere in a piece.
struct Bounds {
  double radius = 0.0;  ///< greatest
  double speed = 0.0;   ///< least x'; 0 when nothing is known
  double bend = 0.0;    ///< greatest |x''| + |y''|
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
        const double cube = c_[3][k] * u, square = cube + c_[2][k];
        p[k] = (square * u + c_[1][k]) * u + c_[0][k];
        d[k] = (square + square + cube) * u + c_[1][k];
        e[k] = 2.0 * (square + cube + cube);
      }
    }
    State s;
    s.distance2 = p[0] * p[0] + p[1] * p[1];
    s.approach = p[0] * d[0] + p[1] * d[1];
    s.speed2 = d[0] * d[0] + d[1] * d[1];
    s.x = p[0];
    s.growth = d[3];
    s.q = p[3] * p[3] - s.distance2;
    s.half_fall = s.approach - p[3] * d[3];
    s.half_bend = s.speed2 - d[3] * d[3] + p[0] * e[0] + p[1] * e[1] - p[3] * e[3];
    s.z = p[2];
    s.z_rise = d[2];
    s.z_bend = e[2];
    return s;
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
  if (both == 0.0) return rise == 0.0;  // otherwise the fibre lies along the ray, and an end is lowest
  step = (rise - s.half_fall) * (rise + s.half_fall) / (bent_slant * both);
  return true;
}

/// Whether the ray, outside the ball at hand, surely misses the whole piece.
bool is_missed(const Bounds& bounds, const State& s) {
  const double speed2 = bounds.speed * bounds.speed;
  // Near the piece -q is convex: -q'' / 2 is at least 0.44 speed^2 up to two radii from the axis.
  if (s.distance2 <= 4.0 * bounds.radius * bounds.radius) return s.half_fall * s.half_fall < -0.44 * speed2 * s.q;
  // The ray comes within a radius only in |u - this u| <= reach / speed, where the curve is so near to its tangent.
  const double reach = bounds.radius + std::abs(s.x);
  const double width = 2.0 * bounds.radius * speed2 + bounds.bend * reach * reach;
  const double aside2 = s.distance2 * s.speed2 - s.approach * s.approach;
  return 4.0 * speed2 * speed2 * aside2 > s.speed2 * width * width;
}

/// Finds the least z - sqrt(q) over the piece, taken as one that has a single minimum and a single stretch of q > 0.
template <CurveShape shape>
bool find_lowest(const Polynomial<shape>& curve, const Bounds& bounds, Crossing& lowest) {
  double low = 0.0, high = 1.0;            // the minimum lies between
  bool low_open = true, high_open = true;  // the end itself has not been looked at
  lowest.z = std::numeric_limits<double>::infinity();
  const double tolerance = bounds.speed > 0.0 ? step_tolerance : step_tolerance * step_tolerance;
  double u = curve.get_start();
  for (uint round = 0; round < max_rounds; ++round) {
    const State s = curve.get_state(u);
    if (!(s.q > 0.0) && is_missed(bounds, s)) break;
    const double root = s.q > 0.0 ? std::sqrt(s.q) : 0.0;
    double fall = s.half_fall + s.z_rise * root;  // above 0: the minimum lies left of u
    // Of a fibre that grows faster than the ray sees it advance, q has no maximum; how far the ray is from the ball's
    // edge still has a minimum.
    if (!(s.q > 0.0) && s.half_bend <= 0.0) fall = s.approach - s.growth * std::sqrt(s.distance2);
    if (s.q > 0.0 && s.z - root < lowest.z) lowest = {s.z - root, u};

    double step = 0.0;
    bool good = get_cone_step(s, root, step);
    double next = u + step;
    if (good && next >= 0.0 && next <= 1.0 &&
        step * step * (s.half_bend + s.z_rise * s.z_rise) <= tolerance * s.q) {
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

enum class PieceKind { missed, simple, bent };

template <CurveShape shape>
double get_largest_radius(const Piece<shape>& piece) {
  double radius = std::max(piece.point[0][3], piece.point[1][3]);
  if constexpr (shape == CurveShape::cubic) radius = std::max(radius, std::max(piece.point[2][3], piece.point[3][3]));
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

double get_least(const double (&p)[4][4], uint k) {
  return std::min(std::min(p[0][k], p[1][k]), std::min(p[2][k], p[3][k]));
}
double get_greatest(const double (&p)[4][4], uint k) {
  return std::max(std::max(p[0][k], p[1][k]), std::max(p[2][k], p[3][k]));
}

PieceKind get_kind(const Piece<CurveShape::linear>& piece, double near, double far, Bounds& bounds) {
  const double(&a)[4] = piece.point[0];
  const double(&b)[4] = piece.point[1];
  const double radius = get_largest_radius(piece);
  if (a[1] * a[1] >= radius * radius && a[1] == b[1]) return PieceKind::missed;
  if (std::min(a[0], b[0]) >= radius || std::max(a[0], b[0]) <= -radius) return PieceKind::missed;
  if (!(std::min(a[2], b[2]) - radius < far && std::max(a[2], b[2]) + radius >= near)) return PieceKind::missed;
  const double speed = b[0] - a[0], growth = b[3] - a[3];
  bounds = {radius, speed * speed > 2.0 * growth * growth ? speed : 0.0, 0.0};
  return PieceKind::simple;
}

PieceKind get_kind(const Piece<CurveShape::cubic>& piece, double near, double far, Bounds& bounds) {
  const double(&p)[4][4] = piece.point;
  const double radius = get_largest_radius(piece);
  if (get_least(p, 1) >= radius || get_greatest(p, 1) <= -radius) return PieceKind::missed;
  if (get_least(p, 0) >= radius || get_greatest(p, 0) <= -radius) return PieceKind::missed;
  if (!(get_least(p, 2) - radius < far && get_greatest(p, 2) + radius >= near)) return PieceKind::missed;
  double second[2][4];
  for (uint i = 0; i < 2; ++i) {
    for (uint k = 0; k < 4; ++k) second[i][k] = (p[i + 2][k] - p[i + 1][k]) - (p[i + 1][k] - p[i][k]);
  }
  const auto get_size2 = [](const double(&v)[4]) { return v[0] * v[0] + v[1] * v[1] + v[2] * v[2] + v[3] * v[3]; };
  const double bend2 = 36.0 * std::max(get_size2(second[0]), get_size2(second[1]));
  const double speed = 3.0 * std::min(std::min(p[1][0] - p[0][0], p[2][0] - p[1][0]), p[3][0] - p[2][0]);
  const double growth =
      3.0 * std::max(std::max(std::abs(p[1][3] - p[0][3]), std::abs(p[2][3] - p[1][3])), std::abs(p[3][3] - p[2][3]));
  const double spare = 0.25 * speed * speed - growth * growth;
  if (speed > 0.0 && spare > 0.0 && radius * radius * bend2 <= spare * spare) {
    bounds = {radius, speed,
              6.0 * std::max(std::abs(second[0][0]) + std::abs(second[0][1]),
                             std::abs(second[1][0]) + std::abs(second[1][1]))};
    return PieceKind::simple;
  }
  bounds = {radius, 0.0, 0.0};
  const double flat = 8.0 * flat_tolerance * radius;
  return piece.depth >= max_depth || bend2 <= flat * flat ? PieceKind::simple : PieceKind::bent;
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

/// Calls `visit` for the simple pieces of a bent one, roughly in the ray's order.
template <class Visit>
void visit_halves(const Piece<CurveShape::cubic>& bent, double near, const double& far, const Visit& visit) {
  Piece<CurveShape::cubic> stack[max_depth + 2];
  split(bent, stack[1], stack[0]);
  for (uint count = 2; count > 0;) {
    const Piece<CurveShape::cubic> piece = stack[--count];
    Bounds bounds;
    const PieceKind kind = get_kind(piece, near, far, bounds);
    if (kind == PieceKind::simple) visit(piece, bounds);
    if (kind != PieceKind::bent) continue;
    split(piece, stack[count + 1], stack[count]);
    count += 2;
  }
}

/// Calls `visit` for each simple piece that the ray may hit between `near` and `far`, which `visit` may lower.
template <CurveShape shape, class Visit>
void visit_pieces(const Piece<shape>& root, double near, const double& far, const Visit& visit) {
  Bounds bounds;
  const PieceKind kind = get_kind(root, near, far, bounds);
  if (kind == PieceKind::simple) visit(root, bounds);
  if constexpr (shape == CurveShape::cubic) {
    if (kind == PieceKind::bent) visit_halves(root, near, far, visit);
  }
}

template <CurveShape shape>
bool find_crossing(const Piece<shape>& piece, const Bounds& bounds, double side, Crossing& crossing) {
  if (!find_lowest(Polynomial<shape>(piece, side), bounds, crossing)) return false;
  crossing = {crossing.z * side, piece.begin + piece.size * crossing.u};
  return true;
}

/// Where the ray enters the solid first, before `far`. Pieces wholly before `near` do not count.
template <CurveShape shape>
bool find_first_entry(const Piece<shape>& root, double near, double far, Crossing& entry) {
  entry.z = far;
  visit_pieces(root, near, entry.z, [&](const Piece<shape>& piece, const Bounds& bounds) {
    Crossing crossing;
    if (find_crossing(piece, bounds, 1.0, crossing) && crossing.z < entry.z) entry = crossing;
  });
  return entry.z < far;
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

/// The first way in or out at or after `near`, which lies behind the way in.
template <CurveShape shape>
bool find_crossing_after(const Piece<shape>& root, double near, Crossing& crossing) {
  Stretches stretches;
  visit_pieces(root, near, std::numeric_limits<double>::infinity(),
               [&](const Piece<shape>& piece, const Bounds& bounds) {
                 Crossing in, out;
                 if (find_crossing(piece, bounds, 1.0, in) && find_crossing(piece, bounds, -1.0, out))
                   stretches.add(in, out);
               });
  return stretches.find_next(near, crossing);
}

/// The ray and a segment as seen from the point of the ray's line nearest to the segment's first point, so that nothing
/// is lost far away.
template <CurveShape shape>
struct View {
  static constexpr uint count = CurveSegment<shape>::point_count;
  Vec place[count];     ///< of the control points, relative to the first
  Vec base;             ///< from the ray's point to the segment's first
  double middle = 0.0;  ///< distance of the ray's point, in units of the direction
  double speed = 0.0;   ///< length of the direction
  double inverse_speed = 0.0;
};

/// Fills `view` and `root`. False when the ray's line surely misses the segment, or when a value is not finite.
template <CurveShape shape>
bool look(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, View<shape>& view, Piece<shape>& root) {
  constexpr uint count = View<shape>::count;
  const Vec& direction = ray.direction;
  const double speed2 = direction.dot(direction);
  const Vec to_first = segment.point[0].position - ray.origin;
  view.middle = to_first.dot(direction) / speed2;
  view.base = to_first - direction * view.middle;
  double radius = 0.0;
  for (uint k = 0; k < count; ++k) {
    view.place[k] = segment.point[k].position - segment.point[0].position;
    root.point[k][3] = std::max(0.0, segment.point[k].radius);
    radius = std::max(radius, root.point[k][3]);
  }
  const Vec& chord = view.place[count - 1];
  Vec y_axis = direction.cross(chord);
  double across2 = y_axis.dot(y_axis);
  const bool chord_across = across2 > 1e-8 * speed2 * chord.dot(chord);
  if (chord_across) {
    // Both ends have this y, and a cubic goes from there at most 3/4 as far as its inner control points.
    const double first = y_axis.dot(view.base);
    double low = first, high = first;
    if constexpr (shape == CurveShape::cubic) {
      const double a = 0.75 * y_axis.dot(view.place[1]), b = 0.75 * y_axis.dot(view.place[2]);
      low += std::min(0.0, std::min(a, b));
      high += std::max(0.0, std::max(a, b));
    }
    const double reach2 = radius * radius * across2;
    if ((low > 0.0 && low * low >= reach2) || (high < 0.0 && high * high >= reach2)) return false;
  } else {
    // Nearly along the ray, the chord cannot tell which way is across.
    const Vec size(std::abs(direction.x), std::abs(direction.y), std::abs(direction.z));
    y_axis = direction.cross(size.x <= size.y && size.x <= size.z ? Vec(1, 0, 0)
                             : size.y <= size.z                   ? Vec(0, 1, 0)
                                                                  : Vec(0, 0, 1));
    across2 = y_axis.dot(y_axis);
  }
  view.speed = std::sqrt(speed2);
  const double across = std::sqrt(across2);
  const double inverse = 1.0 / (view.speed * across);
  view.inverse_speed = inverse * across;
  const Vec axis[3] = {y_axis.cross(direction) * inverse, y_axis * (inverse * view.speed),
                       direction * view.inverse_speed};
  double sum = view.middle;
  for (uint k = 0; k < 3; ++k) {
    const double first = axis[k].dot(view.base);
    root.point[0][k] = first;
    sum += first;
    for (uint i = 1; i < count; ++i) sum += root.point[i][k] = first + axis[k].dot(view.place[i]);
    if (k == 1 && chord_across) root.point[count - 1][1] = first;
  }
  for (uint k = 0; k < count; ++k) sum += segment.point[k].radius;
  if constexpr (shape == CurveShape::cubic) {
    if (!chord_across) align(root);
  }
  return gmath_isfinited(sum) && radius > 0.0;
}

}  // namespace

template <CurveShape shape>
bool curve_hit_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, double t_near,
                       double t_far, CurveHit& hit) {
  View<shape> view;
  Piece<shape> root;
  if (!look(ray, segment, view, root)) return false;
  const double near = (t_near - view.middle) * view.speed, far = (t_far - view.middle) * view.speed;
  Crossing crossing;
  if (!find_first_entry(root, near, far, crossing)) return false;
  if (!(crossing.z >= near) && !find_crossing_after(root, near, crossing)) return false;
  const double step = crossing.z * view.inverse_speed, distance = view.middle + step;
  if (!(distance < t_far)) return false;
  hit.distance = std::max(distance, t_near);
  const double u = crossing.u, v = 1.0 - u;
  Vec center = view.place[View<shape>::count - 1];
  if constexpr (shape == CurveShape::linear)
    center = center * u;
  else
    center = (view.place[1] * v + view.place[2] * u) * (3.0 * u * v) + center * (u * u * u);
  const Vec normal = ray.direction * step - view.base - center;
  const GMathVec2<double> uv = curve_get_uv(segment, u, normal);
  hit.u = uv.x;
  hit.v = uv.y;
  return true;
}

template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::linear>&, double, double,
                                CurveHit&);
template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::cubic>&, double, double,
                                CurveHit&);
