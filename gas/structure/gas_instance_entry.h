// gas/structure/gas_instance_entry.h
//
// What a query reads at a leaf of a structure over instances, in few cache lines.
//
//   GasInstanceLeaf   24 bytes, in the order of the tree     cluster | instance | local box, a byte a plane
//   GasInstance      192 bytes, one per accepted instance    matrix to the grid of these boxes | matrix | the rest
//
// The world box of a leaf is large if its instance is turned. So the ray is first tested against the cluster's box in
// the instance's space (gas_instance_ray.h): half of all leaves or more need no further work. What the test reads of an
// instance is one cache line. In a large scene a ray waits longer for it than the test takes; where every instance has
// one leaf, it is prefetched when the leaf's box is hit.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vq_gmath/gmath_matrix.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_simd/simd_float.h"

/// The grid of an instance's local boxes: 255 steps along the longest side of the box around them. The step is the same
/// on all axes, so that one bound of the rounding is a tight one on each.
struct GasInstanceGrid {
  float first[3] = {0.0f, 0.0f, 0.0f};  ///< in the instance's space
  float steps_per_unit = 0.0f;          ///< infinite for a point

  GasInstanceGrid() = default;
  explicit GasInstanceGrid(const GMathBbox3<float>& box) : first{box.min[0], box.min[1], box.min[2]} {
    steps_per_unit = 255.0f / std::max({box.max[0] - first[0], box.max[1] - first[1], box.max[2] - first[2]});
  }
  /// In steps.
  double get_place(double at, uint axis) const { return (at - double{first[axis]}) * double{steps_per_unit}; }
};

struct GasInstanceLeaf {
  u64 cluster = 0;
  u32 instance = 0;  ///< index of its GasInstance
  // Planes of the local box in the instance's grid: x, y, z, unused.
  u8 low[4] = {0, 0, 0, 0};
  u8 high[4] = {0, 0, 0, 0};
  bool has_box = false;  ///< the box holds the instance at rest; the same in all leaves of an instance

  /// Rounds outwards, except that the grid's last plane may be short by the rounding of its step. A bound of NaN
  /// becomes that of the grid.
  void set_box(const GasInstanceGrid& grid, const GMathBbox3<float>& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      const double from = std::floor(grid.get_place(box.min[axis], axis));
      const double to = std::ceil(grid.get_place(box.max[axis], axis));
      low[axis] = from > 0.0 ? static_cast<u8>(std::min(from, 255.0)) : u8{0};
      high[axis] = to < 255.0 ? static_cast<u8>(std::max(to, 0.0)) : u8{255};
    }
  }
};
static_assert(sizeof(GasInstanceLeaf) == 24);

/// Where a tree lies: rays are counted from its center before they are rounded to single precision.
struct GasTreeExtent {
  GMathVec3<double> center{0, 0, 0};
  double half = 0.0;  ///< of the longest side

  GasTreeExtent() = default;
  explicit GasTreeExtent(const GMathBbox3<float>& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      const double low = box.min[axis], high = box.max[axis];
      center[axis] = 0.5 * (low + high);
      half = std::max(half, 0.5 * (high - low));
    }
  }
};

/// Bound of all rounding between a ray in double precision and the comparison of two places in a grid, relative to the
/// terms of which a place is a sum. In units of 2^-24: 5 of a term and the sum, 2 where the slack and the plane come
/// in, 2 of the inverse and the product, 1 of the interval's end, 2 of the grid's step at its last plane. The rest of
/// the 16 is margin.
inline constexpr double gas_grid_error = 0x1p-20;
/// The same for a matrix that is inverted in single precision, relative to the products of the largest entries of two
/// columns. In units of 2^-24: 10 of the cofactors, 6 of the sums of products, 2 of their terms, 2 of the grid's first
/// plane, 12 of the slabs; all twice, because the way along the ray may be as long as the way to its origin, plus the
/// instance's size; of that, also 59 of the determinant and 36 of the scale and the grid: 2.25 times 64 holds 127.
inline constexpr double gas_moving_grid_error = 0x1p-18;
/// Entries of such a matrix must not be larger, products of two columns not smaller, or products of three would leave
/// the range of single precision.
inline constexpr double gas_entry_limit = 1e9;
inline constexpr float gas_least_column_product = 1e-20f;
/// Beyond it, terms could overflow: such an instance is not tested, a ray with such terms touches every box.
inline constexpr double gas_grid_limit = 1e18;

struct alignas(64) GasInstance {
  float to_grid[4][3] = {};  ///< outer space, from the tree's center on, to the grid: columns x, y, z, offset
  float slack = 0.0f;        ///< bound of a place's rounding, in units of GasOuterRay::reach
  uint accepted = 0;         ///< in the table
  void* inner = nullptr;     ///< for use by the structure: how it finds the inner structure

  GMathVec3<double> inverse[4];                    ///< of `matrix`: columns x, y, z, offset
  const GMathMatrix4x4<double>* matrix = nullptr;  ///< to the outer space, at rest
  GasInstanceGrid grid;                            ///< holds the local boxes of all leaves
  uint index = 0;                                  ///< in the input
  bool is_visible = true;                          ///< false: invisible to all queries

  void set_inverse(const GMathMatrix4x4<double>& matrix) {
    for (uint column = 0; column < 4; ++column)
      for (uint row = 0; row < 3; ++row) inverse[column][row] = matrix.m[row][column];
  }
  GMathMatrix4x4<double> get_inverse() const {
    GMathMatrix4x4<double> out;
    for (uint column = 0; column < 4; ++column)
      for (uint row = 0; row < 3; ++row) out.m[row][column] = inverse[column][row];
    return out;
  }
  /// The same bits as GMathBasicRay::transform() by the inverse matrix; by columns a processor takes two rows at once.
  void transform(const GMathBasicRay<double>& ray, GMathBasicRay<double>& to) const {
    const auto turn = [&](const GMathVec3<double>& v) {
      return inverse[0] * v.x + inverse[1] * v.y + inverse[2] * v.z;
    };
    to.set(turn(ray.origin) + inverse[3], turn(ray.direction));
  }
  /// Sets what the test against local boxes reads. False if the instance cannot be tested.
  bool set_to_grid(const GasTreeExtent& tree);
};
// The last column is read as four floats.
static_assert(sizeof(GasInstance) == 192 && offsetof(GasInstance, slack) == 48 && offsetof(GasInstance, inverse) == 64);

inline bool GasInstance::set_to_grid(const GasTreeExtent& tree) {
  double largest = 0.0;
  for (uint axis = 0; axis < 3; ++axis) {
    const GMathVec3<double> row(inverse[0][axis], inverse[1][axis], inverse[2][axis]);
    const double scale = grid.steps_per_unit;
    const double norm = (std::fabs(row.x) + std::fabs(row.y) + std::fabs(row.z)) * scale;
    const double offset = grid.get_place(row.dot(tree.center) + inverse[3][axis], axis);
    // So that NaN is refused.
    if (!(norm <= gas_grid_limit && std::fabs(offset) <= gas_grid_limit * tree.half)) return false;
    largest = std::max({largest, norm, std::fabs(offset) / tree.half});
    for (uint column = 0; column < 3; ++column) to_grid[column][axis] = static_cast<float>(row[column] * scale);
    to_grid[3][axis] = static_cast<float>(offset);
  }
  slack = static_cast<float>(largest * gas_grid_error);
  return true;
}

/// True if rays can be tested against the local boxes of an instance with this matrix at one of its motion samples.
inline bool gas_can_test_moving(const GasInstanceGrid& grid, const GMathMatrix4x4<double>& matrix) {
  bool is_small = true;  // false also for NaN
  for (uint row = 0; row < 3; ++row)
    for (uint column = 0; column < 3; ++column) is_small &= std::fabs(matrix.m[row][column]) <= gas_entry_limit;
  return is_small && matrix.is_affine() && double{grid.steps_per_unit} >= 1.0 / gas_grid_limit;
}

/// Prefetches all cache lines of a record.
template <class T>
[[gnu::always_inline]] inline void gas_prefetch(const T& record) {
  const auto first = reinterpret_cast<std::uintptr_t>(&record);
  for (std::size_t byte = 0; byte < sizeof(T); byte += 64) simd_prefetch(first + byte);
  simd_prefetch(first + sizeof(T) - 1);
}

/// Prefetches what a query reads of an instance after the test against a local box.
[[gnu::always_inline]] inline void gas_prefetch_rest(const GasInstance& instance) {
  const auto first = reinterpret_cast<std::uintptr_t>(&instance);
  simd_prefetch(first + 64);
  simd_prefetch(first + 128);
}
