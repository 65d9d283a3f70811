#include "vq_gas_base/gas_bvh_split_frame.h"

#include <cmath>

#include "vq_gas_base/gas_bvh_split_cost.h"

namespace {

/// More items do not change the mean noticeably.
constexpr uint most_samples = 16;

using Vec = GMathVec3<double>;

/// The sum of lanes x, y and z, in all lanes.
SimdF sum_lanes(const SimdF& v) { return broadcast<0>(v + rotate_lanes(v) + swap_pairs(v)); }

Vec get_vec(const SimdF& v) {
  float lanes[4];
  v.store_unaligned(lanes);
  return {lanes[0], lanes[1], lanes[2]};
}

/// A sum of outer products v v^T, as the rows of a matrix; the fourth lane is unused. v and -v give the same product,
/// so that the sign of a direction does not matter.
struct Scatter {
  SimdF row[3] = {SimdF(0.0f), SimdF(0.0f), SimdF(0.0f)};

  void add(const SimdF& v, const SimdF& weight) {
    const SimdF weighted = v * weight;
    row[0] = row[0] + weighted * broadcast<0>(v);
    row[1] = row[1] + weighted * broadcast<1>(v);
    row[2] = row[2] + weighted * broadcast<2>(v);
  }
  /// In all lanes.
  SimdF get_trace() const { return broadcast<0>(row[0] + rotate_lanes(row[1]) + swap_pairs(row[2])); }
  SimdF apply(const SimdF& v) const {
    return row[0] * broadcast<0>(v) + row[1] * broadcast<1>(v) + row[2] * broadcast<2>(v);
  }
  /// Scaled to trace 1 and squared: squares the ratio of the largest eigenvalue to the others.
  Scatter get_square() const {
    const SimdF scale = SimdF(1.0f) / get_trace();
    Scatter scaled{{row[0] * scale, row[1] * scale, row[2] * scale}};
    return {{scaled.apply(scaled.row[0]), scaled.apply(scaled.row[1]), scaled.apply(scaled.row[2])}};
  }
  /// The eigenvector of the largest eigenvalue: the mean direction of the vectors. 0 without vectors.
  Vec get_main_axis() const {
    Scatter power = *this;
    for (uint k = 0; k < 5; ++k) power = power.get_square();
    // A row is the axis times one of its coordinates: the largest is the most exact.
    const Vec x = get_vec(power.row[0]), y = get_vec(power.row[1]), z = get_vec(power.row[2]);
    if (x.x >= y.y && x.x >= z.z) return x.get_normalized();
    return y.y >= z.z ? y.get_normalized() : z.get_normalized();
  }
};

/// Two unit vectors at right angles to the unit vector `v` and to each other (Duff et al. 2017, "Building an
/// Orthonormal Basis, Revisited").
void get_perpendiculars(const Vec& v, Vec& first, Vec& second) {
  const double sign = std::copysign(1.0, v.z), a = -1.0 / (sign + v.z), b = v.x * v.y * a;
  first = {1.0 + sign * v.x * v.x * a, sign * b, -sign * v.x};
  second = {b, sign + v.y * v.y * a, -v.y};
}

/// @param x       unit length
/// @param second  its component at right angles to `x` becomes the second axis
GMathLinearSpace3<float> make_space(const Vec& x, const Vec& second) {
  Vec y = second - x * x.dot(second);
  const double length = y.get_length();
  if (length > 1e-6 * second.get_length() && std::isfinite(length)) {
    y = y * (1.0 / length);
    y = (y - x * x.dot(y)).get_normalized();  // rounding of a small component is not at right angles
  } else {
    Vec unused;
    get_perpendiculars(x, y, unused);
  }
  return GMathLinearSpace3<float>(GMathLinearSpace3<double>(x, y, x.cross(y)));
}

/// Coordinates are relative to the set's box and in units of its size.
struct SetScatter {
  Scatter directions;   ///< weighted by length
  Scatter ends;         ///< of the items' ends about their mean
  Vec bend;             ///< second axis of the longest item
  uint item_count = 0;  ///< those that are finite

  SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set);
  /// The direction at right angles to `x` in which the ends spread most; not of unit length.
  Vec get_widest(const Vec& x) const;
};

SetScatter::SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  const GMathVec3<float> extent = set.box.get_extent();
  const SimdF scale(1.0f / std::max({extent.x, extent.y, extent.z}));
  const SimdF origin = GasBvhSplitBox::load(set.box).get_center_sum();
  const SimdF zero(0.0f), half(0.5f), one(1.0f), quarter(0.25f), limit(100.0f);
  const uint samples = set.count < most_samples ? set.count : most_samples;
  const GMathLinearSpace3<float>* longest_space = nullptr;
  SimdF sum = zero;
  float longest = 0.0f;
  for (uint k = 0; k < samples; ++k) {
    const uint item = ctx.order[set.first + static_cast<uint>(u64{k} * set.count / samples)];
    const GasBvhSplitBox box = GasBvhSplitBox::load(ctx.item_boxes[item]);
    const SimdF direction = SimdF::load_unaligned(&ctx.item_spaces[item].axis[0].x);
    const SimdF at = (box.get_center_sum() - origin) * (scale * half), extents = (box.high - box.low) * scale;
    const SimdF length = sqrt(sum_lanes(extents * extents)), size = sum_lanes(direction * direction);
    // Also false for NaN.
    const auto usable =
        (half <= size) & (size <= SimdF(2.0f)) & (length > zero) & (length <= limit) & (sum_lanes(at * at) <= limit);
    if ((usable.get_bits() & 1u) == 0) continue;
    ++item_count;
    float new_length;
    length.store_first(&new_length);
    if (new_length > longest) {
      longest = new_length;
      longest_space = &ctx.item_spaces[item];
    }
    directions.add(direction, length);
    sum = sum + at;
    ends.add(at, one);
    ends.add(direction * length, quarter);
  }
  if (item_count == 0) return;
  bend = Vec(longest_space->axis[1]);
  ends.add(sum, SimdF(-1.0f / static_cast<float>(item_count)));
}

Vec SetScatter::get_widest(const Vec& x) const {
  const Vec rows[3] = {get_vec(ends.row[0]), get_vec(ends.row[1]), get_vec(ends.row[2])};
  const auto apply = [&](const Vec& v) { return Vec(rows[0].dot(v), rows[1].dot(v), rows[2].dot(v)); };
  Vec u, v;
  get_perpendiculars(x, u, v);
  const Vec along_u = apply(u);
  const double uu = u.dot(along_u), uv = v.dot(along_u), vv = v.dot(apply(v));
  // A single straight item, or several in one line, spread only by rounding.
  if (!(uu + vv > 1e-6 * (rows[0].x + rows[1].y + rows[2].z))) return bend;
  const double difference = uu - vv, root = std::sqrt(difference * difference + 4.0 * uv * uv);
  return difference >= 0.0 ? u * (difference + root) + v * (2.0 * uv) : u * (2.0 * uv) + v * (root - difference);
}

/// Whether the axes are as exact as floats can be.
bool is_orthonormal(const GMathLinearSpace3<float>& space) {
  constexpr double error = 0x1p-21;
  const Vec x(space.axis[0]), y(space.axis[1]), z = Vec(space.axis[2]) - x.cross(y);
  return std::fabs(x.dot(x) - 1.0) < error && std::fabs(y.dot(y) - 1.0) < error && std::fabs(x.dot(y)) < error &&
         z.dot(z) < error * error;
}

}  // namespace

GasBvhSplitFrame gas_bvh_split_find_frame(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  if (set.count == 1) {
    const GMathLinearSpace3<float>& own = ctx.item_spaces[ctx.order[set.first]];
    if (is_orthonormal(own)) return {own, 1.0f};
  }
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
  const SimdF axis(static_cast<float>(x.x), static_cast<float>(x.y), static_cast<float>(x.z), 0.0f);
  (sum_lanes(axis * scatter.directions.apply(axis)) / scatter.directions.get_trace()).store_first(&frame.agreement);
  return frame;
}
