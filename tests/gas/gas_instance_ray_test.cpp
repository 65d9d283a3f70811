// The single-precision test of a ray against an instance's local box, against the exact ray in extended precision.
#include "gas/structure/gas_instance_ray.h"

#include <gtest/gtest.h>

#include <array>

#include "support/random_values.h"
#include "support/test_scale.h"

namespace {

using Matrix = GMathMatrix4x4<double>;
using Vec = GMathVec3<double>;

/// A leaf of an instance somewhere in a tree, and rays that graze its box.
struct GrazedLeaf {
  GMathBbox3<float> tree_box, box;
  Matrix matrix, inverse;
  GasInstance instance;
  GasInstanceLeaf leaf;
  bool is_tested = false;

  enum class Shape { any, even };

  /// @param half   of the tree
  /// @param shape  any: the matrix may be nearly singular
  GrazedLeaf(RandomValues& random, double half, double size, Shape shape) {
    const double away = random.get_index(3) == 0 ? 100 * half : 0.0, shear = shape == Shape::any ? 1.0 : 0.2;
    set_boxes(random, half, away, size);
    for (uint axis = 0; axis < 3; ++axis) {
      const double stretch = shape == Shape::any && random.get_index(4) == 0 ? 1e-3 : 1.0;
      for (uint row = 0; row < 3; ++row)
        matrix.m[row][axis] = ((row == axis ? 1.0 : 0.0) + random.get(-shear, shear)) * stretch;
    }
    const Vec middle = (Vec(box.min) + Vec(box.max)) * 0.5;
    const Vec offset = random.get_vec(0.9 * half) + Vec(away, away, away) - matrix.transform_point(middle);
    for (uint axis = 0; axis < 3; ++axis) matrix.m[axis][3] = offset[axis];
    inverse = matrix.get_inverse();
    instance.set_inverse(inverse);
    tree_box.add(gmath_round_outwards(matrix.transform_box(GMathBbox3<double>(box))));
    is_tested = instance.set_to_grid(GasTreeExtent(tree_box));
    leaf.set_box(instance.grid, box);
  }

  /// A ray through a point of the box's surface: of a face, an edge or a corner.
  GMathBasicRay<double> aim(RandomValues& random, double distance) const {
    Vec point;
    for (uint axis = 0; axis < 3; ++axis) {
      const uint side = random.get_index(3);
      const double at = side == 0 ? 0.0 : side == 1 ? 1.0 : random.get(0.0, 1.0);
      point[axis] = box.min[axis] + at * (double{box.max[axis]} - box.min[axis]);
    }
    const Vec target = matrix.transform_point(point);
    Vec direction = random.get_vec(distance);
    // Origins whose coordinates are about 0 in the tree or in the grid: only the way to the box rounds.
    const uint start = random.get_index(6);
    if (start == 0) direction = target - GasTreeExtent(tree_box).center;
    if (start == 1) {
      const float(&first)[3] = instance.grid.first;
      direction = target - matrix.transform_point({first[0], first[1], first[2]});
    }
    if (random.get_index(4) == 0) direction[random.get_index(3)] = 0.0;
    if (direction == Vec(0, 0, 0)) direction.z = distance;
    return {target - direction, direction * random.get(0.01, 3.0)};
  }

 private:
  /// The box lies up to ten times its size from the instance's origin, in a grid that holds other leaves too.
  void set_boxes(RandomValues& random, double half, double away, double size) {
    for (uint axis = 0; axis < 3; ++axis) {
      tree_box.min[axis] = static_cast<float>(away - half);
      tree_box.max[axis] = static_cast<float>(away + half);
      const double at = random.get(-10.0, 10.0) * size;
      box.min[axis] = static_cast<float>(at);
      box.max[axis] = static_cast<float>(at + (random.get_index(4) == 0 ? 0.0 : random.get(0.1, 1.0) * size));
    }
    GMathBbox3<float> all = box;
    if (random.get_index(2) == 0) all.max[random.get_index(3)] += static_cast<float>(size);
    instance.grid = GasInstanceGrid(all);
  }
};

/// The interval of a ray inside a box, in extended precision; empty: first > last.
struct ExactInterval {
  long double first = -INFINITY, last = INFINITY;

  ExactInterval(const GMathBasicRay<double>& ray, const Matrix& m, const GMathBbox3<float>& box) {
    for (uint row = 0; row < 3; ++row) {
      long double at = m.m[row][3], along = 0.0L;
      for (uint axis = 0; axis < 3; ++axis) {
        at += static_cast<long double>(m.m[row][axis]) * ray.origin[axis];
        along += static_cast<long double>(m.m[row][axis]) * ray.direction[axis];
      }
      if (along == 0.0L) {
        if (at < box.min[row] || at > box.max[row]) first = INFINITY;
        continue;
      }
      const long double a = (box.min[row] - at) / along, b = (box.max[row] - at) / along;
      first = std::max(first, std::min(a, b));
      last = std::min(last, std::max(a, b));
    }
  }
  bool has_part_in(double tnear, double limit) const {
    return std::max<long double>(first, tnear) <= std::min<long double>(last, limit);
  }
};

/// The test at rest and the one that moving instances use.
std::array<bool, 2> get_answers(const GrazedLeaf& grazed, const GMathBasicRay<double>& ray, double tnear,
                                double limit) {
  GasOuterRay outer;
  outer.set(ray, tnear, GasTreeExtent(grazed.tree_box));
  GasInstanceRay still, moving;
  still.set(outer, grazed.instance);
  moving.set(outer, ray.origin, grazed.matrix, grazed.instance.grid);
  return {still.touches(grazed.leaf, limit), moving.touches(grazed.leaf, limit)};
}

}  // namespace

TEST(GasInstanceRay, touches_every_box_that_the_exact_ray_touches) {
  RandomValues random(1);
  uint touched = 0, missed = 0;
  for (const double half : {1e-3, 1.0, 1e3, 1e6}) {
    for (const double size : {0.5 * half, 1e-2 * half, 1e-4 * half}) {
      for (uint k = 0; k < scaled(20'000, 1000); ++k) {
        const GrazedLeaf grazed(random, half, size, GrazedLeaf::Shape::any);
        if (!grazed.is_tested) continue;  // a point, or a matrix that is nearly singular
        const double distance = (random.get_index(2) == 0 ? 1.0 : 20.0) * half;
        const GMathBasicRay<double> ray = grazed.aim(random, distance);
        const ExactInterval exact(ray, grazed.inverse, grazed.box);
        // Intervals that end, or begin, where the box does.
        double tnear = random.get_index(2) == 0 ? -2.0 : 0.0, limit = DBL_MAX;
        const uint kind = random.get_index(4);
        if (kind == 0) limit = std::nextafter(static_cast<double>(exact.first), INFINITY);
        if (kind == 1) tnear = std::nextafter(static_cast<double>(exact.last), -INFINITY);
        const auto [still, moving] = get_answers(grazed, ray, tnear, limit);
        // The local ray of a moving instance is rounded in double precision; its primitives are tested against it.
        GMathBasicRay<double> local;
        grazed.instance.transform(ray, local);
        const bool is_touched = exact.has_part_in(tnear, limit);
        const bool is_touched_locally = ExactInterval(local, Matrix(), grazed.box).has_part_in(tnear, limit);
        ASSERT_TRUE((still || !is_touched) && (moving || !is_touched_locally))
            << "half " << half << ", size " << size << ", ray " << k << ", interval " << tnear << " to " << limit;
        (is_touched ? touched : missed) += 1;
      }
    }
  }
  EXPECT_GT(touched, missed / 2);
  EXPECT_GT(missed, touched / 2);
}

TEST(GasInstanceRay, misses_boxes_that_the_exact_ray_clearly_misses) {
  RandomValues random(2);
  uint missed = 0;
  for (uint k = 0; k < scaled(20'000, 1000); ++k) {
    const GrazedLeaf grazed(random, 1e3, 1.0, GrazedLeaf::Shape::even);
    if (!grazed.is_tested) continue;
    const GMathBasicRay<double> grazing = grazed.aim(random, 1e3);
    const GMathBasicRay<double> ray(grazing.origin + random.get_vec(1.0), grazing.direction);
    GMathBbox3<float> enlarged = grazed.box;
    for (uint axis = 0; axis < 3; ++axis) {
      enlarged.min[axis] -= 0.05f;
      enlarged.max[axis] += 0.05f;
    }
    const ExactInterval exact(ray, grazed.inverse, enlarged);
    if (exact.first <= exact.last) continue;
    const auto [still, moving] = get_answers(grazed, ray, 0.0, DBL_MAX);
    ASSERT_FALSE(still || moving) << "ray " << k;
    ++missed;
  }
  EXPECT_GT(missed, scaled(20'000, 1000) / 5);
}

TEST(GasInstanceRay, touches_where_it_cannot_tell) {
  RandomValues random(3);
  const GrazedLeaf grazed(random, 1.0, 0.5, GrazedLeaf::Shape::even);
  ASSERT_TRUE(grazed.is_tested);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double huge : {1e20, 1e39, 1e300, double(INFINITY), nan}) {
    for (const double sign : {1.0, -1.0}) {
      const auto [still, moving] = get_answers(grazed, {Vec(sign * huge, 0, 0), Vec(-sign, 1e-3, 1e-3)}, 0.0, DBL_MAX);
      EXPECT_TRUE(still && moving) << sign * huge;
    }
  }
  // Through the middle, so long that its inverse in the grid is 0.
  const Vec middle = grazed.matrix.transform_point((Vec(grazed.box.min) + Vec(grazed.box.max)) * 0.5);
  for (const double length : {1e30, 1e37, 1e39, 1e200}) {
    const auto [still, moving] =
        get_answers(grazed, {middle - Vec(2, 0, 0), Vec(length, 0, 0)}, 1e-3 / length, DBL_MAX);
    EXPECT_TRUE(still && moving) << length;
  }
  GasInstance instance = grazed.instance;
  const GasTreeExtent tree(grazed.tree_box);
  GasOuterRay outer;
  const Vec origin = middle + Vec(9, 9, 9);
  outer.set({origin, Vec(0, 0, 1)}, 0.0, tree);
  for (const double bad : {1e30, double(INFINITY), nan}) {
    instance.inverse[1].z = bad;
    EXPECT_FALSE(instance.set_to_grid(tree)) << bad;
    Matrix matrix = grazed.matrix;
    matrix.m[1][0] = bad;
    EXPECT_FALSE(gas_can_test_moving(grazed.instance.grid, matrix)) << bad;
    matrix = grazed.matrix;
    matrix.m[1][3] = bad;
    GasInstanceRay moving;
    moving.set(outer, origin, matrix, grazed.instance.grid);
    EXPECT_TRUE(moving.touches(grazed.leaf, DBL_MAX)) << bad;
  }
  // Two axes that are nearly the same.
  for (const double part : {0.0, 1e-7, 1e-5}) {
    Matrix matrix;
    matrix.m[0][1] = 1.0;
    matrix.m[1][1] = part;
    GasInstanceRay moving;
    moving.set(outer, origin, matrix, grazed.instance.grid);
    EXPECT_TRUE(moving.touches(grazed.leaf, DBL_MAX)) << part;
  }
}
