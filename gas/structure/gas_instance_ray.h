// gas/structure/gas_instance_ray.h
//
// The test of a ray against the local box of an instance's leaf, in single precision from the outer ray on:
//
//   GasOuterRay      the ray from the tree's center on, set once a ray
//   GasInstanceRay   the ray in the grid of an instance; touches() tests it against the box of a leaf
//
// It never misses a box that the ray in double precision touches, and that one is only computed where it does not miss;
// except by rays whose direction is shorter than 1e-37: its inverse overflows.
// For this the planes of the boxes are moved outwards by a bound of the rounding. A point of the ray that lies in the
// tree is a sum of terms of origin, direction and offset. `reach` bounds those of the outer space, the largest row of
// the matrix what they become in the grid. Roundings of distances move the point by as little. In a scene of 10 km the
// box of an object of 1 m grows by up to 4 cm a side.
//
// A moving instance has another matrix for each ray, which is inverted in single precision (gas_moving_grid_error). The
// terms are counted from the instance's origin: the way to it and the instance's size. `part` bounds the rows of the
// inverse.
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
  static SimdF cross(const SimdF& a, const SimdF& b) { return rotate_axes(a * rotate_axes(b) - rotate_axes(a) * b); }
  static SimdF add_axes(const SimdF& v) { return broadcast<0>(v) + broadcast<1>(v) + broadcast<2>(v); }

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
  /// A moving instance, by its matrix at the ray's time. The matrix is not inverted: its cofactors, divided by the
  /// determinant, are the columns of the inverse.
  /// @param origin  of the ray
  /// @param matrix  blended of matrices that gas_can_test_moving() accepts
  void set(const GasOuterRay& ray, const GMathVec3<double>& origin, const GMathMatrix4x4<double>& matrix,
           const GasInstanceGrid& grid) {
    // Lanes are the instance's axes.
    const SimdF rows[3] = {SimdF::load_doubles(matrix.m[0]), SimdF::load_doubles(matrix.m[1]),
                           SimdF::load_doubles(matrix.m[2])};
    const SimdF sizes[3] = {abs(rows[0]), abs(rows[1]), abs(rows[2])};
    const SimdF x = cross(rows[1], rows[2]), y = cross(rows[2], rows[0]), z = cross(rows[0], rows[1]);
    const SimdF inverse = SimdF(1.0f) / add_axes(rows[0] * x), steps(grid.steps_per_unit), scale = steps * inverse;
    const SimdF first = SimdF(grid.first[0], grid.first[1], grid.first[2], 0.0f) * steps;
    const auto get_way = [&](uint axis) { return SimdF(static_cast<float>(origin[axis] - matrix.m[axis][3])); };
    const SimdF way[3] = {get_way(0), get_way(1), get_way(2)};  // from the instance's origin
    // No entry of a column is larger, and no cofactor larger than twice the product of the others.
    const SimdF column = max(max(sizes[0], sizes[1]), sizes[2]), next = rotate_axes(column);
    const SimdF others = next * rotate_axes(next), part = others * abs(inverse) * SimdF(float{gas_moving_grid_error});
    const SimdF distance = abs(way[0]) + abs(way[1]) + abs(way[2]);
    const SimdF size = add_axes((sizes[0] + sizes[1] + sizes[2]) * (abs(first) + SimdF(255.0f)));
    const auto is_tested = (others * abs(scale) <= SimdF(float{gas_grid_limit})) &
                           (SimdF(gas_least_column_product) <= others) & (part * column <= SimdF(0.25f)) &
                           (max(distance, ray.reach) <= SimdF(2.0f * float{gas_grid_limit}));
    const bool are_tested = (is_tested.get_bits() & 7) == 7;
    const SimdF slack =
        are_tested ? part * (distance * steps + size * SimdF(2.25f)) : SimdF(std::numeric_limits<float>::quiet_NaN());
    const SimdF to_x = x * scale, to_y = y * scale, to_z = z * scale;
    set(to_x * way[0] + to_y * way[1] + to_z * way[2] - first,
        to_x * ray.direction[0] + to_y * ray.direction[1] + to_z * ray.direction[2], slack, ray.first);
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
