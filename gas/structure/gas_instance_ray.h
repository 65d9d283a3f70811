// gas/structure/gas_instance_ray.h
//
// The test of a ray against the local box of an instance's leaf, in single precision from the outer ray on:
//
//   GasOuterRay      the ray from the tree's center on, set once a ray
//   GasInstanceRay   the ray in the grid of an instance; touches() tests it against the box of a leaf
//
// It never misses a box that the ray in double precision touches, and that one is only computed where it does not miss;
// except by rays whose direction is shorter than 1e-37: its inverse overflows.
// For this the planes of the boxes are moved outwards by a bound of the rounding (gas_grid_error). A point of the ray
// that lies in the tree is a sum of terms of origin, direction and offset. `reach` bounds those of the outer space, the
// largest row of the matrix what they become in the grid. Roundings of distances move the point by as little. In a
// scene of 10 km the box of an object of 1 m grows by up to 4 cm a side.
#pragma once
#include <limits>

#include "gas/structure/gas_instance_entry.h"
#include "vq_gas_base/gas_slab_ray.h"

/// A ray of the outer space, each component in all lanes.
struct GasOuterRay {
  SimdF origin[3], direction[3];
  SimdF reach;  ///< bounds the sum of a point's terms, of all points of the ray in the tree; NaN beyond gas_grid_limit
  float first = 0.0f;  ///< start of the interval

  void set(const GMathBasicRay<double>& ray, double tnear, const GasTreeExtent& tree) {
    const GMathVec3<double> from = ray.origin - tree.center;
    const SimdF at = SimdF::load_doubles(&from.x), along = SimdF::load_doubles(&ray.direction.x);
    spread(at, origin);
    spread(along, direction);
    // The terms of a point: the origin; the way to the point, at most origin and tree; the offset, at most the tree.
    const SimdF terms = (get_largest(abs(at)) + SimdF(static_cast<float>(tree.half))) * SimdF(2.0f);
    const SimdF limit(float{gas_grid_limit}), none(std::numeric_limits<float>::quiet_NaN());
    reach = select((terms <= limit) & (get_largest(abs(along)) <= limit), terms, none);
    first = static_cast<float>(tnear);
  }

 private:
  static SimdF get_largest(const SimdF& v) { return max(max(broadcast<0>(v), broadcast<1>(v)), broadcast<2>(v)); }
  static void spread(const SimdF& v, SimdF (&lanes)[3]) {
    lanes[0] = broadcast<0>(v);
    lanes[1] = broadcast<1>(v);
    lanes[2] = broadcast<2>(v);
  }
};

/// A ray in an instance's grid: lanes x, y, z, -.
class GasInstanceRay {
 public:
  /// An instance at rest.
  [[gnu::always_inline]] void set(const GasOuterRay& ray, const GasInstance& instance) {
    // The fourth lane has a value of the next column, or the slack.
    const SimdF x = SimdF::load_unaligned(instance.to_grid[0]), y = SimdF::load_unaligned(instance.to_grid[1]);
    const SimdF z = SimdF::load_unaligned(instance.to_grid[2]), offset = SimdF::load_unaligned(instance.to_grid[3]);
    const SimdF origin = (x * ray.origin[0] + y * ray.origin[1]) + (z * ray.origin[2] + offset);
    const SimdF direction = x * ray.direction[0] + y * ray.direction[1] + z * ray.direction[2];
    set(origin, direction, SimdF(instance.slack) * ray.reach + SimdF(float(255 * gas_grid_error)), ray.first);
  }
  /// A moving instance.
  /// @param ray  in the instance's space
  void set(const GMathBasicRay<double>& ray, double tnear, const GasInstanceGrid& grid) {
    const double scale = grid.steps_per_unit;
    const GMathVec3<double> at(grid.get_place(ray.origin.x, 0), grid.get_place(ray.origin.y, 1),
                               grid.get_place(ray.origin.z, 2));
    const GMathVec3<double> along = ray.direction * scale;
    const double terms = 2.0 * get_largest(at) + 2 * 255;
    const bool is_tested = terms <= gas_grid_limit && get_largest(along) <= gas_grid_limit;
    const double slack = is_tested ? terms * gas_grid_error : std::numeric_limits<double>::quiet_NaN();
    set(SimdF::load_doubles(&at.x), SimdF::load_doubles(&along.x), SimdF(static_cast<float>(slack)),
        static_cast<float>(tnear));
  }
  /// False if the ray misses the leaf's box within its interval.
  [[gnu::always_inline]] bool touches(const GasInstanceLeaf& leaf, double limit) const {
    const SimdF a = (SimdF::load_bytes(leaf.low) - low_origin_) * inverse_;
    const SimdF b = (SimdF::load_bytes(leaf.high) - high_origin_) * inverse_;
    // An axis of NaN is left out: max() and min() return their second operand then. 0 * infinity, on one plane only,
    // may be a miss: the ray is as far away as the slack then, and the bound of its rounding is smaller.
    const SimdF entry = max(min(a, b), SimdF(first_)), exit = min(max(a, b), SimdF(gas_clamp_limit(limit)));
    const SimdF last_entry = max(max(entry, rotate_lanes(entry)), swap_pairs(entry));
    const SimdF first_exit = min(min(exit, rotate_lanes(exit)), swap_pairs(exit));
    return ((last_entry <= first_exit).get_bits() & 1) != 0;  // lane 0: x, y, z
  }

 private:
  static double get_largest(const GMathVec3<double>& v) {
    return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
  }
  [[gnu::always_inline]] void set(const SimdF& origin, const SimdF& direction, const SimdF& slack, float first) {
    low_origin_ = origin + slack;
    high_origin_ = origin - slack;
    inverse_ = SimdF(1.0f) / direction;
    first_ = first;
  }

  SimdF low_origin_, high_origin_;  ///< the origin against low planes and high ones, which are moved outwards
  SimdF inverse_;
  float first_ = 0.0f;
};
