// host/vq_gas_base/gas_bvh_split_frame.cpp
#include "vq_gas_base/gas_bvh_split_frame.h"

#include <cmath>

namespace {

/// More items do not change the mean noticeably.
constexpr uint most_samples = 64;

using Vec = GMathVec3<double>;

/// A sum of outer products v v^T. v and -v give the same product, so that the sign of a direction does not matter.
struct Scatter {
  double xx = 0.0, yy = 0.0, zz = 0.0, xy = 0.0, xz = 0.0, yz = 0.0;

  void add(const Vec& v, double weight) {
    xx += weight * v.x * v.x;
    yy += weight * v.y * v.y;
    zz += weight * v.z * v.z;
    xy += weight * v.x * v.y;
    xz += weight * v.x * v.z;
    yz += weight * v.y * v.z;
  }
  double get_trace() const { return xx + yy + zz; }
  Vec apply(const Vec& v) const {
    return {xx * v.x + xy * v.y + xz * v.z, xy * v.x + yy * v.y + yz * v.z, xz * v.x + yz * v.y + zz * v.z};
  }
  /// Scaled to trace 1 and squared: squares the ratio of the largest eigenvalue to the others.
  Scatter get_square() const {
    const double scale = 1.0 / get_trace();
    const Vec x = Vec(xx, xy, xz) * scale, y = Vec(xy, yy, yz) * scale, z = Vec(xz, yz, zz) * scale;
    return {x.dot(x), y.dot(y), z.dot(z), x.dot(y), x.dot(z), y.dot(z)};
  }
  /// The eigenvector of the largest eigenvalue: the mean direction of the vectors. 0 without vectors.
  Vec get_main_axis() const {
    Scatter power = *this;
    for (uint k = 0; k < 6; ++k) power = power.get_square();
    // A column is the axis times one of its coordinates: the largest is the most exact.
    if (power.xx >= power.yy && power.xx >= power.zz) return Vec(power.xx, power.xy, power.xz).get_normalized();
    if (power.yy >= power.zz) return Vec(power.xy, power.yy, power.yz).get_normalized();
    return Vec(power.xz, power.yz, power.zz).get_normalized();
  }
};

bool is_finite(const Vec& v) { return std::isfinite(v.x + v.y + v.z); }

Vec get_any_perpendicular(const Vec& v) {
  return (std::fabs(v.x) < 0.6 ? v.cross({1.0, 0.0, 0.0}) : v.cross({0.0, 1.0, 0.0})).get_normalized();
}

/// @param x       unit length
/// @param second  its component at right angles to `x` becomes the second axis
GMathLinearSpace3<float> make_space(const Vec& x, const Vec& second) {
  Vec y = second + x * -x.dot(second);
  const double length = y.get_length();
  y = length > 1e-6 * second.get_length() && std::isfinite(length) ? y * (1.0 / length) : get_any_perpendicular(x);
  y = (y + x * -x.dot(y)).get_normalized();
  return GMathLinearSpace3<float>(GMathLinearSpace3<double>(x, y, x.cross(y)));
}

struct SetScatter {
  Scatter directions;
  Scatter ends;         ///< of the items' ends about their mean
  Vec bend;             ///< second axis of the longest item
  uint item_count = 0;  ///< those that are finite

  SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set);
  /// The direction at right angles to `x` in which the ends spread most.
  Vec get_widest(const Vec& x) const;
};

SetScatter::SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  const uint samples = set.count < most_samples ? set.count : most_samples;
  Vec origin, sum;
  double longest = 0.0;
  for (uint k = 0; k < samples; ++k) {
    const uint item = ctx.order[set.first + static_cast<uint>(u64{k} * set.count / samples)];
    const GMathLinearSpace3<float>& space = ctx.item_spaces[item];
    const GMathBbox3<double> box(ctx.item_boxes[item]);
    const Vec direction = Vec(space.axis[0]).get_normalized(), center = box.get_center();
    const double length = box.get_extent().get_length();
    if (!is_finite(direction) || !is_finite(center) || !(length > 0.0) || !std::isfinite(length * length)) continue;
    if (item_count++ == 0) origin = center;
    if (length > longest) {
      longest = length;
      bend = Vec(space.axis[1]);
    }
    directions.add(direction, length);
    const Vec at = center - origin;
    sum += at;
    ends.add(at, 1.0);
    ends.add(direction * length, 0.25);
  }
  if (item_count > 0) ends.add(sum, -1.0 / item_count);
}

Vec SetScatter::get_widest(const Vec& x) const {
  const Vec u = get_any_perpendicular(x), v = x.cross(u), along_u = ends.apply(u), along_v = ends.apply(v);
  const double uu = u.dot(along_u), uv = u.dot(along_v), vv = v.dot(along_v);
  // A single straight item, or several in one line, spread only by rounding.
  if (!(uu + vv > 1e-9 * ends.get_trace())) return bend;
  const double angle = 0.5 * std::atan2(2.0 * uv, uu - vv);
  return u * std::cos(angle) + v * std::sin(angle);
}

}  // namespace

GasBvhSplitFrame gas_bvh_split_find_frame(const GasBvhSplitCtx& ctx, const GasBvhSplitSet& set) {
  GasBvhSplitFrame frame;
  const SetScatter scatter(ctx, set);
  const Vec x = scatter.directions.get_main_axis();
  if (scatter.item_count == 0 || !(x.dot(x) > 0.5)) {
    const auto get_hint = [&ctx](uint k) {
      const float* hint = ctx.direction_hints[k];
      return Vec(hint[0], hint[1], hint[2]);
    };
    const Vec hint = get_hint(0).get_normalized();
    frame.space = hint.dot(hint) > 0.5 ? make_space(hint, get_hint(1)) : GMathLinearSpace3<float>();
    return frame;
  }
  frame.space = make_space(x, scatter.get_widest(x));
  frame.agreement = static_cast<float>(x.dot(scatter.directions.apply(x)) / scatter.directions.get_trace());
  return frame;
}
