#include "support/curve_oracle.h"

#include <algorithm>

namespace {

using Vec = GMathVec3<double>;
using Ball = CurveOracle::Ball;
using Interval = std::pair<double, double>;

Ball mix(const Ball& a, const Ball& b, double f) {
  return {a.position * (1.0 - f) + b.position * f, a.radius * (1.0 - f) + b.radius * f};
}

Ball get_input_point(const CurveData& data, std::size_t point, double time) {
  const auto widen = [&](const CurvePoint<float>& p) { return Ball{Vec(p.position), std::max(p.radius, 0.0f)}; };
  const std::size_t samples = data.motion_points.size();
  if (samples == 0 || std::isnan(time)) return widen(data.points[point]);
  const double place = std::clamp((time - data.motion_begin) / data.motion_step, 0.0, samples - 1.0);
  const std::size_t before = static_cast<std::size_t>(place), after = std::min(before + 1, samples - 1);
  return mix(widen(data.motion_points[before][point]), widen(data.motion_points[after][point]),
             place - static_cast<double>(before));
}

/// How much each of the segment's input points counts at `u`.
void get_weights(CurveBasis basis, double u, double (&weight)[4]) {
  const double v = 1.0 - u;
  switch (basis) {
    case CurveBasis::linear:
      weight[0] = v, weight[1] = u, weight[2] = weight[3] = 0.0;
      return;
    case CurveBasis::bezier:
      weight[0] = v * v * v, weight[1] = 3 * u * v * v, weight[2] = 3 * u * u * v, weight[3] = u * u * u;
      return;
    case CurveBasis::bspline:
      weight[0] = v * v * v / 6, weight[1] = (4 + u * u * (3 * u - 6)) / 6;
      weight[2] = (4 + v * v * (3 * v - 6)) / 6, weight[3] = u * u * u / 6;
      return;
    case CurveBasis::catmull_rom:
      weight[0] = -u * v * v / 2, weight[1] = (2 + u * u * (3 * u - 5)) / 2;
      weight[2] = (2 + v * v * (3 * v - 5)) / 2, weight[3] = -v * u * u / 2;
      return;
  }
}

std::vector<Ball> sample(CurveBasis basis, const Ball (&points)[4], uint count, uint pieces) {
  std::vector<Ball> balls(pieces + 1);
  for (uint k = 0; k <= pieces; ++k) {
    double weight[4];
    get_weights(basis, double(k) / pieces, weight);
    for (uint p = 0; p < count; ++p) {
      balls[k].position += points[p].position * weight[p];
      balls[k].radius += points[p].radius * weight[p];
    }
  }
  return balls;
}

CurveOracle::Segment make_segment(CurveBasis basis, const Ball (&points)[4], uint count) {
  CurveOracle::Segment segment;
  double size = 0.0, finite = 0.0, radius = 0.0;
  for (uint k = 0; k < count; ++k) {
    for (uint axis = 0; axis < 3; ++axis) size = std::max(size, std::fabs(points[k].position[axis]));
    finite += points[k].position.dot(points[k].position) + points[k].radius;
    radius = std::max(radius, points[k].radius);
  }
  if (!std::isfinite(finite)) return segment;
  // An arc bulges out of its chord by an eighth of its second difference; twice that is surely enough.
  for (uint pieces = count == 2 ? 1 : 16;; pieces *= 2) {
    segment.balls = sample(basis, points, count, pieces);
    double bulge = 0.0;
    for (uint k = 1; k < pieces; ++k) {
      const Ball &a = segment.balls[k - 1], &b = segment.balls[k], &c = segment.balls[k + 1];
      bulge = std::max(bulge, (a.position - b.position * 2.0 + c.position).get_length() +
                                  std::fabs(a.radius - 2.0 * b.radius + c.radius));
    }
    segment.band = bulge / 4.0 + 0x1p-48 * size;
    if (segment.band <= 1e-3 * radius || pieces == 512 || count == 2) break;
  }
  if (basis == CurveBasis::bspline || basis == CurveBasis::catmull_rom) segment.band += 0x1p-22 * (size + radius);
  segment.around.position = segment.balls[segment.balls.size() / 2].position;
  for (const Ball& ball : segment.balls)
    segment.around.radius = std::max(
        segment.around.radius, (ball.position - segment.around.position).get_length() + ball.radius + segment.band);
  return segment;
}

/// Where a convex function is smallest: golden section, or one of the ends.
template <class F>
double find_lowest(double first, double last, const F& f) {
  double low = first, high = last;
  constexpr double ratio = 0.6180339887498949;
  double a = high - (high - low) * ratio, b = low + (high - low) * ratio, at_a = f(a), at_b = f(b);
  for (uint k = 0; k < 45; ++k) {
    if (at_a < at_b) {
      high = b, b = a, at_b = at_a;
      at_a = f(a = high - (high - low) * ratio);
    } else {
      low = a, a = b, at_a = at_b;
      at_b = f(b = low + (high - low) * ratio);
    }
  }
  const double middle = (low + high) / 2.0, lowest = f(middle);
  return f(first) < lowest ? first : f(last) < lowest ? last : middle;
}

/// Where the line meets the hull of the two balls, whose radii are changed by `more`. False when it does not.
bool meet_hull(const Vec& origin, const Vec& unit, const Ball& a, const Ball& b, double more, Interval& interval) {
  if (a.radius + more < 0.0 && b.radius + more < 0.0) return false;
  struct Place {
    double along, square, radius;
  };
  const auto look = [&](double u) {
    const Ball ball = mix(a, b, u);
    const Vec way = ball.position - origin;
    const double along = way.dot(unit);
    const Vec aside = way - unit * along;
    return Place{along, aside.dot(aside), ball.radius + more};
  };
  const auto gap = [&](double u) {
    const Place p = look(u);
    return std::sqrt(p.square) - p.radius;
  };
  const double deepest = find_lowest(0.0, 1.0, gap);
  if (gap(deepest) > 0.0) return false;
  const auto find_border = [&](double inside, double outside) {
    if (gap(outside) <= 0.0) return outside;
    for (uint k = 0; k < 45; ++k) {
      const double middle = (inside + outside) / 2.0;
      (gap(middle) <= 0.0 ? inside : outside) = middle;
    }
    return inside;
  };
  const double first = find_border(deepest, 0.0), last = find_border(deepest, 1.0);
  const auto reach = [&](double u, double sign) {
    const Place p = look(u);
    return sign * p.along - std::sqrt(std::max(p.radius * p.radius - p.square, 0.0));
  };
  const auto enter = [&](double u) { return reach(u, 1.0); };
  const auto leave = [&](double u) { return reach(u, -1.0); };
  interval = {enter(find_lowest(first, last, enter)), -leave(find_lowest(first, last, leave))};
  return true;
}

struct Crossing {
  enum Kind { none, in, out } kind = none;
  double at = 0.0;
};

/// The first crossing at `from` or behind it, of the segment with radii changed by `more`.
Crossing find_crossing(const CurveOracle::Segment& segment, const Vec& origin, const Vec& unit, double from,
                       double more) {
  std::vector<Interval> intervals;
  for (std::size_t k = 0; k + 1 < segment.balls.size(); ++k) {
    const Ball &a = segment.balls[k], &b = segment.balls[k + 1];
    const Vec way = (a.position + b.position) * 0.5 - origin;
    const double reach = (b.position - a.position).get_length() + std::max(a.radius, b.radius) + std::fabs(more);
    Interval interval;
    if ((way - unit * way.dot(unit)).get_length() <= reach && meet_hull(origin, unit, a, b, more, interval))
      intervals.push_back(interval);
  }
  std::sort(intervals.begin(), intervals.end());
  for (std::size_t k = 0; k < intervals.size();) {
    double end = intervals[k].second;
    const double begin = intervals[k].first;
    for (++k; k < intervals.size() && intervals[k].first <= end; ++k) end = std::max(end, intervals[k].second);
    if (begin >= from) return {Crossing::in, begin};
    if (end >= from) return {Crossing::out, end};
  }
  return {};
}

}  // namespace

CurveOracle::CurveOracle(const CurveData& data, double time) {
  const uint count = data.basis == CurveBasis::linear ? 2 : 4, step = data.basis == CurveBasis::bezier ? 3 : 1;
  std::size_t first = 0;
  for (const u32 size : data.curve_sizes) {
    for (u32 at = 0; at + count <= size; at += step) {
      Ball points[4];
      for (uint k = 0; k < count; ++k) points[k] = get_input_point(data, first + at + k, time);
      segments_.push_back(make_segment(data.basis, points, count));
    }
    first += size;
  }
}

CurveCrossing CurveOracle::intersect(const TestRay& ray, uint number) const {
  const Segment& segment = segments_[number];
  const double length = ray.direction.get_length(), from = std::max(ray.tnear, 0.0);
  if (segment.balls.empty() || !(length > 0.0) || !(from < ray.tfar)) return {};
  const Vec unit = ray.direction * (1.0 / length), way = segment.around.position - ray.origin;
  const double band = segment.band + 0x1p-47 * way.get_length();
  if ((way - unit * way.dot(unit)).get_length() > segment.around.radius + band) return {};
  const Crossing thick = find_crossing(segment, ray.origin, unit, from * length, band);
  if (thick.kind == Crossing::none || (thick.kind == Crossing::in && thick.at >= ray.tfar * length)) return {};
  const Crossing thin = find_crossing(segment, ray.origin, unit, from * length, -band);
  CurveCrossing out{SureAnswer::close, std::min(thick.at, thin.at) / length, std::max(thick.at, thin.at) / length};
  if (thin.kind != thick.kind) return out;
  if (out.low >= ray.tfar) return {};
  if (out.high < ray.tfar) out.answer = SureAnswer::hit;
  return out;
}
