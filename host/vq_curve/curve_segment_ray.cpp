// host/vq_curve/curve_segment_ray.cpp
//
// Where a ray meets the union of balls along a curve: the segment as the ray sees it, cut into pieces that
// curve_segment_piece.h solves. Most calls end in look(), before anything is divided.
#include <algorithm>
#include <limits>

#include "vq_curve/curve_segment_frame.h"
#include "vq_curve/curve_segment_piece.h"

namespace {

using Vec = GMathVec3<double>;

constexpr uint max_depth = 12;  // of halving
// A piece that strays less from its chord, in radii, is as good as straight.
constexpr double flat_tolerance = 1e-4;

template <CurveShape shape>
double get_largest_radius(const CurvePiece<shape>& piece) {
  double radius = std::max(piece.point[0][3], piece.point[1][3]);
  if constexpr (shape == CurveShape::cubic) radius = std::max(radius, std::max(piece.point[2][3], piece.point[3][3]));
  return radius;
}

/// Turns the piece's plane so that x runs along the chord.
void align(CurvePiece<CurveShape::cubic>& piece) {
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

/// Whether the ray surely passes the piece, as the plane across the ray shows it. If not, `start` is roughly where it
/// passes nearest.
bool is_aside(const CurvePiece<CurveShape::linear>& piece, const CurvePolynomial<CurveShape::linear>&, double radius,
              double& start) {
  const double(&p)[2][4] = piece.point;
  start = p[1][0] > p[0][0] ? std::clamp(-p[0][0] / (p[1][0] - p[0][0]), 0.0, 1.0) : 0.5;
  return p[0][0] >= radius || p[1][0] <= -radius;
}
bool is_aside(const CurvePiece<CurveShape::cubic>& piece, const CurvePolynomial<CurveShape::cubic>& curve,
              double radius, double& start) {
  const double(&p)[4][4] = piece.point;
  for (uint k = 0; k < 2; ++k) {
    if (get_least(p, k) >= radius || get_greatest(p, k) <= -radius) return true;
  }
  const double rise[3] = {p[1][0] - p[0][0], p[2][0] - p[1][0], p[3][0] - p[2][0]};
  const double turn[3] = {p[1][1] - p[0][1], p[2][1] - p[1][1], p[3][1] - p[2][1]};
  const double speed = 3.0 * std::min(std::min(rise[0], rise[1]), rise[2]);
  double u = p[3][0] > p[0][0] ? std::clamp(-p[0][0] / (p[3][0] - p[0][0]), 0.0, 1.0) : 0.5;
  start = u;
  if (!(speed > 0.0)) return false;
  u = std::clamp(u - curve.get_value(0, u) / curve.get_derivative(0, u), 0.0, 1.0);
  start = u;
  // The ray comes within a radius only in |u - start| <= reach / speed, where the curve is so near to its tangent.
  const double bend = 6.0 * std::max(std::abs(rise[1] - rise[0]) + std::abs(turn[1] - turn[0]),
                                     std::abs(rise[2] - rise[1]) + std::abs(turn[2] - turn[1]));
  const double x = curve.get_value(0, u), y = curve.get_value(1, u);
  const double dx = curve.get_derivative(0, u), dy = curve.get_derivative(1, u);
  const double speed2 = speed * speed, reach = radius + std::abs(x);
  const double width = 2.0 * radius * speed2 + bend * reach * reach;
  const double aside = 2.0 * speed2 * (x * dy - y * dx);
  return aside * aside > (dx * dx + dy * dy) * width * width;
}

/// Whether the piece is simple, and what holds everywhere in it.
bool is_simple(const CurvePiece<CurveShape::linear>& piece, double radius, CurveBounds& bounds) {
  const double rise = piece.point[1][0] - piece.point[0][0], growth = piece.point[1][3] - piece.point[0][3];
  const double bend = rise * rise - growth * growth;
  bounds = {rise * rise, 0.0, 4.0 * radius * radius, 0.5 * bend};
  if (!(bend > 0.5 * rise * rise)) bounds = {};
  return true;
}
bool is_simple(const CurvePiece<CurveShape::cubic>& piece, double radius, CurveBounds& bounds) {
  const double(&p)[4][4] = piece.point;
  double bend2 = 0.0;
  for (uint i = 0; i < 2; ++i) {
    double second2 = 0.0;
    for (uint k = 0; k < 4; ++k) {
      const double second = (p[i + 2][k] - p[i + 1][k]) - (p[i + 1][k] - p[i][k]);
      second2 += second * second;
    }
    bend2 = std::max(bend2, 36.0 * second2);
  }
  const double speed = 3.0 * std::min(std::min(p[1][0] - p[0][0], p[2][0] - p[1][0]), p[3][0] - p[2][0]);
  const double growth =
      3.0 * std::max(std::max(std::abs(p[1][3] - p[0][3]), std::abs(p[2][3] - p[1][3])), std::abs(p[3][3] - p[2][3]));
  const double speed2 = speed * speed, growth2 = growth * growth, radius2 = radius * radius;
  const double roundness2 = radius2 * bend2;
  // -q'' / 2 is at least x'^2 - r'^2 - |(x, y, r)| |(x, y, r)''|, which does not exceed 2.3 radii of bend up to two
  // radii from the axis, 1.5 up to one. What of it is left exceeds what z bends, so that z - sqrt(q) is convex too.
  const double much = 0.25 * speed2 - growth2, some = 0.7 * speed2 - growth2;
  if (speed > 0.0 && much > 0.0 && roundness2 <= much * much) {
    bounds = {speed2 * speed2, roundness2, 4.0 * radius2, 0.42 * speed2};
    return true;
  }
  if (speed > 0.0 && some > 0.0 && 3.0 * roundness2 <= some * some) {
    bounds = {speed2 * speed2, roundness2, radius2, 0.3 * speed2};
    return true;
  }
  bounds = {};
  const double flat = 8.0 * flat_tolerance * radius;
  return piece.depth >= max_depth || bend2 <= flat * flat;
}

/// Whether the ray can meet the piece between `near` and `far`.
template <CurveShape shape>
bool is_between(const CurvePiece<shape>& piece, double radius, double near, double far) {
  double low = std::min(piece.point[0][2], piece.point[1][2]), high = std::max(piece.point[0][2], piece.point[1][2]);
  if constexpr (shape == CurveShape::cubic) {
    low = std::min(low, std::min(piece.point[2][2], piece.point[3][2]));
    high = std::max(high, std::max(piece.point[2][2], piece.point[3][2]));
  }
  return low - radius < far && high + radius >= near;
}

/// Halves a piece (de Casteljau); `far` is the half that starts further along the ray.
void split(const CurvePiece<CurveShape::cubic>& piece, CurvePiece<CurveShape::cubic>& near,
           CurvePiece<CurveShape::cubic>& far) {
  CurvePiece<CurveShape::cubic> first, second;
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

/// A piece that the ray may hit, ready to be solved.
template <CurveShape shape>
struct Candidate {
  CurvePiece<shape> piece;
  CurvePolynomial<shape> curve;
  CurveBounds bounds;
  double start = 0.5;

  /// Where the ray enters the piece or, turned round, leaves it.
  bool find_crossing(CurveTransit& crossing) const {
    if (!curve_find_lowest(curve, bounds, start, crossing)) return false;
    crossing.u = piece.begin + piece.size * crossing.u;
    return true;
  }
};

/// Calls `visit` for the simple pieces of a bent one, roughly in the ray's order.
template <class Visit>
[[gnu::noinline]] void visit_halves(const CurvePiece<CurveShape::cubic>& bent, double near, const double& far,
                                    const Visit& visit) {
  CurvePiece<CurveShape::cubic> stack[max_depth + 2];
  split(bent, stack[1], stack[0]);
  Candidate<CurveShape::cubic> next;
  for (uint count = 2; count > 0;) {
    next.piece = stack[--count];
    const double radius = get_largest_radius(next.piece);
    if (!is_between(next.piece, radius, near, far)) continue;
    next.curve.set(next.piece, 0, 4);
    if (is_aside(next.piece, next.curve, radius, next.start)) continue;
    if (is_simple(next.piece, radius, next.bounds)) {
      visit(next);
    } else {
      split(next.piece, stack[count + 1], stack[count]);
      count += 2;
    }
  }
}

/// Calls `visit` for each simple piece that the ray may hit between `near` and `far`, which `visit` may lower.
template <CurveShape shape, class Visit>
void visit_pieces(Candidate<shape>& root, double near, const double& far, const Visit& visit) {
  const double radius = get_largest_radius(root.piece);
  if (!is_between(root.piece, radius, near, far)) return;
  const bool simple = is_simple(root.piece, radius, root.bounds);
  if (simple) visit(root);
  if constexpr (shape == CurveShape::cubic) {
    if (!simple) visit_halves(root.piece, near, far, visit);
  }
}

/// Where the ray enters the solid first, before `far`. Pieces wholly before `near` do not count.
template <CurveShape shape>
bool find_first_entry(Candidate<shape>& root, double near, double far, CurveTransit& entry) {
  entry.z = far;
  visit_pieces(root, near, entry.z, [&](const Candidate<shape>& candidate) {
    CurveTransit crossing;
    if (candidate.find_crossing(crossing) && crossing.z < entry.z) entry = crossing;
  });
  return entry.z < far;
}

/// The stretches of the ray inside the solid, apart from each other.
class Stretches {
 public:
  void add(CurveTransit in, CurveTransit out) {
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
  bool find_next(double z, CurveTransit& next) const {
    next.z = std::numeric_limits<double>::infinity();
    for (uint k = 0; k < count_; ++k) {
      const CurveTransit& crossing = in_[k].z >= z ? in_[k] : out_[k];
      if (crossing.z >= z && crossing.z < next.z) next = crossing;
    }
    return next.z < std::numeric_limits<double>::infinity();
  }

 private:
  static constexpr uint capacity = 16;  // a line meets a cubic's solid in a handful of stretches
  CurveTransit in_[capacity], out_[capacity];
  uint count_ = 0;
};

/// The first way in or out at or after `near`, which lies behind the way in.
template <CurveShape shape>
[[gnu::noinline]] bool find_crossing_after(Candidate<shape>& root, double near, CurveTransit& crossing) {
  Stretches stretches;
  visit_pieces(root, near, std::numeric_limits<double>::infinity(), [&](const Candidate<shape>& candidate) {
    Candidate<shape> turned = candidate;
    turned.curve.mirror();
    CurveTransit in, out;
    if (!candidate.find_crossing(in) || !turned.find_crossing(out)) return;
    out.z = -out.z;
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
  double scale = 0.0;   ///< of the pieces, whose unit is chosen so that no division is needed: z per unit of distance
};

/// Fills `view` and the candidate that is the whole segment. False when the ray's line surely misses it, or when a
/// value is not finite.
template <CurveShape shape>
bool look(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, View<shape>& view,
          Candidate<shape>& root) {
  constexpr uint count = View<shape>::count;
  const Vec& direction = ray.direction;
  const double speed2 = direction.dot(direction);
  const Vec to_first = segment.point[0].position - ray.origin;
  view.middle = to_first.dot(direction) / speed2;
  view.base = to_first - direction * view.middle;
  double radius = 0.0;
  for (uint k = 0; k < count; ++k) {
    view.place[k] = segment.point[k].position - segment.point[0].position;
    radius = std::max(radius, segment.point[k].radius);
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
  const double speed = std::sqrt(speed2), across = std::sqrt(across2), unit = speed * across;
  const Vec x_axis = y_axis.cross(direction);
  y_axis = y_axis * speed;
  CurvePiece<shape>& piece = root.piece;
  for (uint k = 0; k < count; ++k) {
    const Vec point = view.base + view.place[k];
    piece.point[k][0] = x_axis.dot(point);
    piece.point[k][1] = y_axis.dot(point);
  }
  if constexpr (shape == CurveShape::cubic) {
    if (!chord_across) align(piece);
  }
  root.curve.set(piece, 0, 2);
  if (is_aside(piece, root.curve, radius * unit, root.start)) return false;

  view.scale = unit * speed;
  double sum = view.middle;
  for (uint k = 0; k < count; ++k) {
    piece.point[k][2] = direction.dot(view.base + view.place[k]) * across;
    piece.point[k][3] = std::max(0.0, segment.point[k].radius) * unit;
    sum += piece.point[k][0] + piece.point[k][1] + piece.point[k][2] + segment.point[k].radius;
  }
  root.curve.set(piece, 2, 4);
  return gmath_isfinited(sum) && radius > 0.0;
}

}  // namespace

template <CurveShape shape>
bool curve_hit_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, double t_near,
                       double t_far, CurveHit& hit) {
  View<shape> view;
  Candidate<shape> root;
  if (!look(ray, segment, view, root)) return false;
  const double near = (t_near - view.middle) * view.scale, far = (t_far - view.middle) * view.scale;
  CurveTransit crossing;
  if (!find_first_entry(root, near, far, crossing)) return false;
  if (!(crossing.z >= near) && !find_crossing_after(root, near, crossing)) return false;
  const double step = crossing.z / view.scale, distance = view.middle + step;
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
