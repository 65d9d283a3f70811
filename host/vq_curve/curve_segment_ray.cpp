// host/vq_curve/curve_segment_ray.cpp
//
// Ray test against one segment: the union of the balls along a curve.
//
//   project_segment           control points in the frame of the ray; rejects most segments without a division
//   visit_pieces              halves a cubic into pieces that have one minimum each (compute_bounds)
//   curve_find_lowest         the entry into one piece (curve_segment_piece.h)
//   find_crossing_after       only for rays that start inside: the next entry or exit from there on
//   curve_hit_segment         distance, u and v of the nearest crossing
#include <algorithm>
#include <limits>
#include <optional>

#include "vq_curve/curve_segment_frame.h"
#include "vq_curve/curve_segment_piece.h"

namespace {

using Vec = GMathVec3<double>;

constexpr uint max_depth = 12;  // how often a segment is halved at most
// A piece whose distance from its chord is below this many radii is treated as straight.
constexpr double flat_tolerance = 1e-4;

template <CurveShape shape>
double get_largest_radius(const CurvePiece<shape>& piece) {
  double radius = std::max(piece.point[0][3], piece.point[1][3]);
  if constexpr (shape == CurveShape::cubic) radius = std::max(radius, std::max(piece.point[2][3], piece.point[3][3]));
  return radius;
}

/// Rotates the piece about the ray so that x runs along the chord.
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

/// An estimate of the u at which the piece is closest to the ray, from x and y alone. Empty: the ray misses the piece.
std::optional<double> find_closest_parameter(const CurvePiece<CurveShape::linear>& piece,
                                             const CurvePolynomial<CurveShape::linear>&, double radius) {
  const double(&p)[2][4] = piece.point;
  if (p[0][0] >= radius || p[1][0] <= -radius) return std::nullopt;
  return p[1][0] > p[0][0] ? std::clamp(-p[0][0] / (p[1][0] - p[0][0]), 0.0, 1.0) : 0.5;
}
std::optional<double> find_closest_parameter(const CurvePiece<CurveShape::cubic>& piece,
                                             const CurvePolynomial<CurveShape::cubic>& curve, double radius) {
  const double(&p)[4][4] = piece.point;
  for (uint k = 0; k < 2; ++k) {
    if (get_least(p, k) >= radius || get_greatest(p, k) <= -radius) return std::nullopt;
  }
  const double rise[3] = {p[1][0] - p[0][0], p[2][0] - p[1][0], p[3][0] - p[2][0]};
  const double turn[3] = {p[1][1] - p[0][1], p[2][1] - p[1][1], p[3][1] - p[2][1]};
  const double speed = 3.0 * std::min(std::min(rise[0], rise[1]), rise[2]);
  double u = p[3][0] > p[0][0] ? std::clamp(-p[0][0] / (p[3][0] - p[0][0]), 0.0, 1.0) : 0.5;
  if (!(speed > 0.0)) return u;
  u = std::clamp(u - curve.get_value(0, u) / curve.get_derivative(0, u), 0.0, 1.0);
  // The curve is within a radius of the ray only at a distance of at most reach / speed from u. The second derivative
  // limits how far it is from its tangent there. If the tangent passes the ray farther away than that, the ray misses.
  const double bend = 6.0 * std::max(std::abs(rise[1] - rise[0]) + std::abs(turn[1] - turn[0]),
                                     std::abs(rise[2] - rise[1]) + std::abs(turn[2] - turn[1]));
  const double x = curve.get_value(0, u), y = curve.get_value(1, u);
  const double dx = curve.get_derivative(0, u), dy = curve.get_derivative(1, u);
  const double speed2 = speed * speed, reach = radius + std::abs(x);
  const double width = 2.0 * radius * speed2 + bend * reach * reach;
  const double aside = 2.0 * speed2 * (x * dy - y * dx);
  if (aside * aside > (dx * dx + dy * dy) * width * width) return std::nullopt;
  return u;
}

/// Computes the bounds of a piece with a single minimum of z - sqrt(q). False: it may have several and must be halved.
bool compute_bounds(const CurvePiece<CurveShape::linear>& piece, double radius, CurveBounds& bounds) {
  const double rise = piece.point[1][0] - piece.point[0][0], growth = piece.point[1][3] - piece.point[0][3];
  const double bend = rise * rise - growth * growth;
  bounds = {rise * rise, 0.0, 4.0 * radius * radius, 0.5 * bend};
  if (!(bend > 0.5 * rise * rise)) bounds = {};
  return true;
}
bool compute_bounds(const CurvePiece<CurveShape::cubic>& piece, double radius, CurveBounds& bounds) {
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
  const double radius2_dd2 = radius2 * bend2;
  // -q'' / 2 >= x'^2 - r'^2 - |(x, y, r)| |(x, y, r)''|. The last product is at most 2.3 radii times the largest second
  // derivative up to two radii from the ray, 1.5 up to one. The rest is also larger than z'' needs for z - sqrt(q) to
  // be convex: one minimum.
  const double within_two_radii = 0.25 * speed2 - growth2, within_one_radius = 0.7 * speed2 - growth2;
  if (speed > 0.0 && within_two_radii > 0.0 && radius2_dd2 <= within_two_radii * within_two_radii) {
    bounds = {speed2 * speed2, radius2_dd2, 4.0 * radius2, 0.42 * speed2};
    return true;
  }
  if (speed > 0.0 && within_one_radius > 0.0 && 3.0 * radius2_dd2 <= within_one_radius * within_one_radius) {
    bounds = {speed2 * speed2, radius2_dd2, radius2, 0.3 * speed2};
    return true;
  }
  bounds = {};
  const double flat = 8.0 * flat_tolerance * radius;
  return piece.depth >= max_depth || bend2 <= flat * flat;
}

/// True if the z range of the piece overlaps [near, far).
template <CurveShape shape>
bool overlaps_interval(const CurvePiece<shape>& piece, double radius, double near, double far) {
  double low = std::min(piece.point[0][2], piece.point[1][2]), high = std::max(piece.point[0][2], piece.point[1][2]);
  if constexpr (shape == CurveShape::cubic) {
    low = std::min(low, std::min(piece.point[2][2], piece.point[3][2]));
    high = std::max(high, std::max(piece.point[2][2], piece.point[3][2]));
  }
  return low - radius < far && high + radius >= near;
}

/// Halves a piece (de Casteljau). `near` is the half that the ray reaches first.
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

/// A piece that the ray may hit, with the input of curve_find_lowest().
template <CurveShape shape>
struct Candidate {
  CurvePiece<shape> piece;
  CurvePolynomial<shape> curve;
  CurveBounds bounds;
  double start = 0.5;

  /// Finds the entry into the piece; with the ray reversed, the exit. u is the segment's. False: the ray misses it.
  bool find_crossing(CurveCrossing& crossing) const {
    if (!curve_find_lowest(curve, bounds, start, crossing)) return false;
    crossing.u = piece.begin + piece.size * crossing.u;
    return true;
  }
};

/// Halves `bent` into pieces with a single minimum and calls `visit` for those that the ray may hit, roughly in the
/// ray's order.
template <class Visit>
[[gnu::noinline]] void visit_halves(const CurvePiece<CurveShape::cubic>& bent, double near, const double& far,
                                    const Visit& visit) {
  CurvePiece<CurveShape::cubic> stack[max_depth + 2];
  split(bent, stack[1], stack[0]);
  Candidate<CurveShape::cubic> next;
  for (uint count = 2; count > 0;) {
    next.piece = stack[--count];
    const double radius = get_largest_radius(next.piece);
    if (!overlaps_interval(next.piece, radius, near, far)) continue;
    next.curve.set(next.piece, 0, 4);
    const std::optional<double> start = find_closest_parameter(next.piece, next.curve, radius);
    if (!start) continue;
    next.start = *start;
    if (compute_bounds(next.piece, radius, next.bounds)) {
      visit(next);
    } else {
      split(next.piece, stack[count + 1], stack[count]);
      count += 2;
    }
  }
}

/// Calls `visit` for each piece with a single minimum that the ray may hit between `near` and `far`. `visit` may lower
/// `far`.
template <CurveShape shape, class Visit>
void visit_pieces(Candidate<shape>& root, double near, const double& far, const Visit& visit) {
  const double radius = get_largest_radius(root.piece);
  if (!overlaps_interval(root.piece, radius, near, far)) return;
  const bool has_single_minimum = compute_bounds(root.piece, radius, root.bounds);
  if (has_single_minimum) visit(root);
  if constexpr (shape == CurveShape::cubic) {
    if (!has_single_minimum) visit_halves(root.piece, near, far, visit);
  }
}

/// The first entry into the solid before `far`; its z is `far` when there is none. Pieces that end before `near` are
/// left out, so that an entry before `near` is not always the first.
template <CurveShape shape>
CurveCrossing find_first_entry(Candidate<shape>& root, double near, double far) {
  CurveCrossing entry{far, 0.0};
  visit_pieces(root, near, entry.z, [&](const Candidate<shape>& candidate) {
    CurveCrossing crossing;
    if (candidate.find_crossing(crossing) && crossing.z < entry.z) entry = crossing;
  });
  return entry;
}

/// The disjoint intervals of the ray that are inside the solid.
class InsideIntervals {
 public:
  void add(CurveCrossing entry, CurveCrossing exit) {
    for (uint k = 0; k < count_;) {
      if (entry_[k].z <= exit.z && entry.z <= exit_[k].z) {
        if (entry_[k].z < entry.z) entry = entry_[k];
        if (exit_[k].z > exit.z) exit = exit_[k];
        entry_[k] = entry_[--count_];
        exit_[k] = exit_[count_];
      } else {
        ++k;
      }
    }
    if (count_ == capacity) return;
    entry_[count_] = entry;
    exit_[count_++] = exit;
  }
  /// The first entry or exit at or after `z`.
  std::optional<CurveCrossing> find_next(double z) const {
    std::optional<CurveCrossing> next;
    for (uint k = 0; k < count_; ++k) {
      const CurveCrossing& crossing = entry_[k].z >= z ? entry_[k] : exit_[k];
      if (crossing.z >= z && (!next || crossing.z < next->z)) next = crossing;
    }
    return next;
  }

 private:
  static constexpr uint capacity = 16;  // a line crosses the solid of a cubic only a few times
  CurveCrossing entry_[capacity], exit_[capacity];
  uint count_ = 0;
};

/// The first entry or exit at or after `near`, for a ray whose first entry is before `near`.
template <CurveShape shape>
[[gnu::noinline]] std::optional<CurveCrossing> find_crossing_after(Candidate<shape>& root, double near) {
  InsideIntervals intervals;
  visit_pieces(root, near, std::numeric_limits<double>::infinity(), [&](const Candidate<shape>& candidate) {
    Candidate<shape> reversed = candidate;
    reversed.curve.reverse_ray();
    CurveCrossing entry, exit;
    if (candidate.find_crossing(entry) && reversed.find_crossing(exit)) intervals.add(entry, {-exit.z, exit.u});
  });
  return intervals.find_next(near);
}

/// Ray and segment relative to a local origin: the point of the ray's line closest to the segment's first point. This
/// keeps precision far from the world's origin.
template <CurveShape shape>
struct LocalSegment {
  static constexpr uint count = CurveSegment<shape>::point_count;
  Vec offset[count];      ///< control points relative to the first one
  Vec base;               ///< from the local origin to the segment's first point
  double t_origin = 0.0;  ///< ray distance of the local origin, in units of the direction
  double scale = 0.0;     ///< piece units per unit of ray distance; the piece's unit is chosen to need no division
};

/// Fills `local` and `root`, the candidate that is the whole segment. False if the ray's line misses the segment, or if
/// a value is not finite.
template <CurveShape shape>
bool project_segment(const GMathBasicRay<double>& ray, const CurveSegment<shape>& segment, LocalSegment<shape>& local,
                     Candidate<shape>& root) {
  constexpr uint count = LocalSegment<shape>::count;
  // 1. Move the origin to the point of the ray closest to the first control point.
  const Vec& direction = ray.direction;
  const double speed2 = direction.dot(direction);
  const Vec to_first = segment.point[0].position - ray.origin;
  local.t_origin = to_first.dot(direction) / speed2;
  local.base = to_first - direction * local.t_origin;
  double radius = 0.0;
  for (uint k = 0; k < count; ++k) {
    local.offset[k] = segment.point[k].position - segment.point[0].position;
    radius = std::max(radius, segment.point[k].radius);
  }

  // 2. The y axis is at right angles to ray and chord. Reject the segment when its y range is more than a radius away.
  const Vec& chord = local.offset[count - 1];
  Vec y_axis = direction.cross(chord);
  double across2 = y_axis.dot(y_axis);
  const bool chord_across = across2 > 1e-8 * speed2 * chord.dot(chord);
  if (chord_across) {
    // Both ends have the same y. A cubic leaves it by at most 3/4 of the distance of its inner control points.
    const double first = y_axis.dot(local.base);
    double low = first, high = first;
    if constexpr (shape == CurveShape::cubic) {
      const double a = 0.75 * y_axis.dot(local.offset[1]), b = 0.75 * y_axis.dot(local.offset[2]);
      low += std::min(0.0, std::min(a, b));
      high += std::max(0.0, std::max(a, b));
    }
    const double reach2 = radius * radius * across2;
    if ((low > 0.0 && low * low >= reach2) || (high < 0.0 && high * high >= reach2)) return false;
  } else {
    // The chord is nearly parallel to the ray: any axis across the ray will do.
    const Vec size(std::abs(direction.x), std::abs(direction.y), std::abs(direction.z));
    y_axis = direction.cross(size.x <= size.y && size.x <= size.z ? Vec(1, 0, 0)
                             : size.y <= size.z                   ? Vec(0, 1, 0)
                                                                  : Vec(0, 0, 1));
    across2 = y_axis.dot(y_axis);
  }

  // 3. x and y of the control points. Reject by the closest approach of the curve.
  const double speed = std::sqrt(speed2), across = std::sqrt(across2), unit = speed * across;
  const Vec x_axis = y_axis.cross(direction);
  y_axis = y_axis * speed;
  CurvePiece<shape>& piece = root.piece;
  for (uint k = 0; k < count; ++k) {
    const Vec point = local.base + local.offset[k];
    piece.point[k][0] = x_axis.dot(point);
    piece.point[k][1] = y_axis.dot(point);
  }
  if constexpr (shape == CurveShape::cubic) {
    if (!chord_across) align(piece);
  }
  root.curve.set(piece, 0, 2);
  const std::optional<double> start = find_closest_parameter(piece, root.curve, radius * unit);
  if (!start) return false;
  root.start = *start;

  // 4. z and radius. The sum is finite only if every value is.
  local.scale = unit * speed;
  double sum = local.t_origin;
  for (uint k = 0; k < count; ++k) {
    piece.point[k][2] = direction.dot(local.base + local.offset[k]) * across;
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
  LocalSegment<shape> local;
  Candidate<shape> root;
  if (!project_segment(ray, segment, local, root)) return false;
  const double near = (t_near - local.t_origin) * local.scale, far = (t_far - local.t_origin) * local.scale;
  CurveCrossing crossing = find_first_entry(root, near, far);
  if (!(crossing.z < far)) return false;
  if (!(crossing.z >= near)) {
    const std::optional<CurveCrossing> next = find_crossing_after(root, near);
    if (!next) return false;
    crossing = *next;
  }
  const double step = crossing.z / local.scale, distance = local.t_origin + step;
  if (!(distance < t_far)) return false;
  hit.distance = std::max(distance, t_near);
  // The center of the ball, relative to the segment's first point.
  const double u = crossing.u, v = 1.0 - u;
  Vec center = local.offset[LocalSegment<shape>::count - 1];
  if constexpr (shape == CurveShape::linear)
    center = center * u;
  else
    center = (local.offset[1] * v + local.offset[2] * u) * (3.0 * u * v) + center * (u * u * u);
  const Vec normal = ray.direction * step - local.base - center;
  const GMathVec2<double> uv = curve_get_uv(segment, u, normal);
  hit.u = uv.x;
  hit.v = uv.y;
  return true;
}

template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::linear>&, double, double,
                                CurveHit&);
template bool curve_hit_segment(const GMathBasicRay<double>&, const CurveSegment<CurveShape::cubic>&, double, double,
                                CurveHit&);
