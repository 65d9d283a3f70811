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

/// A sum of outer products v v^T, as the rows of a matrix; the fourth lane is unused.
struct Scatter {
  SimdF row[3] = {SimdF(0.0f), SimdF(0.0f), SimdF(0.0f)};

  void add(const SimdF& v, const SimdF& weight) {
    const SimdF weighted = v * weight;
    row[0] = row[0] + weighted * broadcast<0>(v);
    row[1] = row[1] + weighted * broadcast<1>(v);
    row[2] = row[2] + weighted * broadcast<2>(v);
  }
};

/// Two unit vectors at right angles to the unit vector `v` and to each other (Duff et al. 2017, "Building an
/// Orthonormal Basis, Revisited").
void get_perpendiculars(const Vec& v, Vec& first, Vec& second) {
  const double sign = std::copysign(1.0, v.z), a = -1.0 / (sign + v.z), b = v.x * v.y * a;
  first = {1.0 + sign * v.x * v.x * a, sign * b, -sign * v.x};
  second = {b, sign + v.y * v.y * a, -v.y};
}

Vec get_any_perpendicular(const Vec& v) {
  Vec first, second;
  get_perpendiculars(v, first, second);
  return first;
}

/// The direction of the component of `v` at right angles to the unit vector `x`; any such direction without one.
Vec get_across(const Vec& v, const Vec& x) {
  const Vec rough = v - x * x.dot(v);
  if (!(rough.dot(rough) > 1e-12 * v.dot(v)) || !std::isfinite(rough.dot(rough))) return get_any_perpendicular(x);
  return (rough - x * x.dot(rough)).get_normalized();  // rounding of a small component is not at right angles
}

/// @param x, y  unit length, at right angles
GMathLinearSpace3<float> make_space(const Vec& x, const Vec& y) {
  return GMathLinearSpace3<float>(GMathLinearSpace3<double>(x, y, x.cross(y)));
}

/// Reads the items of a set, in coordinates relative to the set's box and in units of its size.
class Samples {
 public:
  Samples(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) : ctx_(ctx), set_(set) {
    const GMathVec3<float> extent = set.box.get_extent();
    scale_ = SimdF(1.0f / std::max({extent.x, extent.y, extent.z}));
    origin_ = GasSimdBox::load(set.box).get_center_sum();
  }

  /// Calls use(direction, length, center, space) for every item that is finite and has a direction of unit length.
  /// Vectors have lanes x, y and z, `length` is in all lanes.
  template <class Use>
  void for_each(const Use& use) const {
    const SimdF zero(0.0f), half(0.5f), two(2.0f), limit(100.0f);
    const uint* items = ctx_.order + set_.first;
    const bool is_small = set_.count <= most_samples;
    for (uint k = 0; k < (is_small ? set_.count : most_samples); ++k) {
      const uint item = items[is_small ? k : u64{k} * set_.count / most_samples];
      const GasSimdBox box = GasSimdBox::load(ctx_.item_boxes[item]);
      const GMathLinearSpace3<float>& space = ctx_.item_spaces[item];
      const SimdF direction = SimdF::load_unaligned(&space.axis[0].x);
      const SimdF center = (box.get_center_sum() - origin_) * scale_ * half, extent = (box.high - box.low) * scale_;
      const SimdF length = sqrt(sum_lanes(extent * extent)), size = sum_lanes(direction * direction);
      const auto usable = (half <= size) & (size <= two) & (length > zero) & (length <= limit) &
                          (sum_lanes(center * center) <= limit);  // also false for NaN
      if ((usable.get_bits() & 1u) != 0) use(direction, length, center, space);
    }
  }

 private:
  const GasBvhSplitCtx& ctx_;
  const GasBvhSplitSetGeom& set_;
  SimdF scale_, origin_;
};

struct SetScatter {
  SimdF direction{0.0f};  ///< sum of the directions, weighted by length, each turned to agree with those before it
  Scatter ends;           ///< of the items' ends about their mean
  Vec bend;               ///< second axis of the longest item

  SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set);
  /// The direction at right angles to the unit vector `x` in which the ends spread most.
  Vec get_widest(const Vec& x) const;
};

SetScatter::SetScatter(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  const GMathLinearSpace3<float>* longest_space = nullptr;
  SimdF sum(0.0f), longest(0.0f);
  float count = 0.0f;
  Samples(ctx, set).for_each(
      [&](const SimdF& axis, const SimdF& length, const SimdF& center, const GMathLinearSpace3<float>& space) {
        count += 1.0f;
        if (((length > longest).get_bits() & 1u) != 0) longest_space = &space;
        longest = max(length, longest);
        const SimdF along = axis * length;
        direction = direction + along * copy_sign(SimdF(1.0f), sum_lanes(direction * axis));
        sum = sum + center;
        ends.add(center, SimdF(1.0f));
        ends.add(along, SimdF(0.25f));
      });
  if (longest_space == nullptr) return;
  bend = Vec(longest_space->axis[1]);
  ends.add(sum, SimdF(-1.0f / count));
}

Vec SetScatter::get_widest(const Vec& x) const {
  const Vec rows[3] = {get_vec(ends.row[0]), get_vec(ends.row[1]), get_vec(ends.row[2])};
  const auto apply = [&](const Vec& v) { return Vec(rows[0].dot(v), rows[1].dot(v), rows[2].dot(v)); };
  Vec u, v;
  get_perpendiculars(x, u, v);
  const Vec along_u = apply(u);
  const double uu = u.dot(along_u), uv = v.dot(along_u), vv = v.dot(apply(v));
  // A single straight item, or several in one line, spread only by rounding.
  if (!(uu + vv > 1e-6 * (rows[0].x + rows[1].y + rows[2].z))) return get_across(bend, x);
  const double difference = uu - vv, root = std::sqrt(difference * difference + 4.0 * uv * uv);
  if (!(root > 0.0)) return u;  // they spread equally in all directions
  const Vec widest =
      difference >= 0.0 ? u * (difference + root) + v * (2.0 * uv) : u * (2.0 * uv) + v * (root - difference);
  return widest.get_normalized();
}

/// Whether the axes are as exact as floats can be: rounding an exact space gives errors of 1.5e-7 at most.
bool is_orthonormal(const GMathLinearSpace3<float>& space) {
  constexpr double error = 0x1p-22;
  const Vec x(space.axis[0]), y(space.axis[1]), z = Vec(space.axis[2]) - x.cross(y);
  return std::fabs(x.dot(x) - 1.0) < error && std::fabs(y.dot(y) - 1.0) < error && std::fabs(x.dot(y)) < error &&
         z.dot(z) < error * error;
}

}  // namespace

GMathLinearSpace3<float> gas_bvh_split_find_space(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set) {
  if (set.count == 1) {
    const GMathLinearSpace3<float>& own = ctx.item_spaces[ctx.order[set.first]];
    if (is_orthonormal(own)) return own;
  }
  const SetScatter scatter(ctx, set);
  const Vec x = get_vec(scatter.direction).get_normalized();
  if (x.dot(x) > 0.5) return make_space(x, scatter.get_widest(x));
  const auto get_hint = [&ctx](uint k) {
    const float* hint = ctx.direction_hints[k];
    return Vec(hint[0], hint[1], hint[2]);
  };
  const Vec hint = get_hint(0).get_normalized();
  return hint.dot(hint) > 0.5 ? make_space(hint, get_across(get_hint(1), hint)) : GMathLinearSpace3<float>();
}

float gas_bvh_split_get_agreement(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set,
                                  const GMathVec3<float>& axis) {
  const SimdF x(axis.x, axis.y, axis.z, 0.0f);
  SimdF weight(0.0f), agreement(0.0f);
  Samples(ctx, set).for_each([&](const SimdF& direction, const SimdF& length, const SimdF& /*center*/,
                                 const GMathLinearSpace3<float>& /*space*/) {
    const SimdF cosine = sum_lanes(direction * x);
    weight = weight + length;
    agreement = agreement + length * cosine * cosine;
  });
  float result;
  (agreement / max(weight, SimdF(std::numeric_limits<float>::min()))).store_first(&result);
  return result;
}
