#include <numbers>

#include "tools/vqgas/demo/demo_forest.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr double turn = 2.0 * std::numbers::pi;

Point get_way(double angle) { return {std::cos(angle), 0.0, std::sin(angle)}; }

/// A leaf that rises from `foot` and droops outwards, two quads wide.
void add_frond(MeshBuilder& builder, const Point& foot, double angle, double length, double width, double droop,
               uint rows, uint group) {
  const Point out = get_way(angle), side = get_way(angle + 0.25 * turn);
  const auto place = [&](double u, double v) {
    const double half = width * (u - 0.5) * std::sin(0.25 + 2.8 * v), fold = 0.5 * std::fabs(half);
    return foot + out * (length * v * (0.35 + 0.65 * droop)) + side * half +
           Point(0.0, length * v * (1.0 - droop * v) + fold, 0.0);
  };
  add_sheet(builder, 2, rows, place, [&](double, double) { return group; });
}

/// Lumps by direction, different for each seed.
auto make_relief(uint seed, double strength) {
  return [seed, strength](const Point& p) {
    return 1.0 + strength * std::sin(5.0 * p.x + seed) * std::sin(4.5 * p.y + 2.0 * seed) * std::sin(5.5 * p.z) +
           0.5 * strength * std::sin(11.0 * p.x + 4.0 * p.y) * std::sin(10.0 * p.z + seed);
  };
}

}  // namespace

HairSource make_forest_grass(uint seed, uint color, bool has_ears) {
  constexpr uint blades = 30, points = 6;
  HairSource grass;
  CurveData& data = grass.data;
  grass.group_colors = {color_from_srgb(color), color_from_srgb(0xd9c48a)};
  data.group_names = {CoreString("grass"), CoreString("ears")};
  for (uint blade = 0; blade < blades; ++blade) {
    const uint own = hash_bits(blade + 64 * seed);
    const bool has_ear = has_ears && blade % 10 == 0;
    const double lean = (has_ear ? 0.35 : 0.9) * random_unit(own, 3), length = 0.16 + 0.14 * random_unit(own, 4);
    const Point push = get_way(turn * random_unit(own, 5)) * lean;
    Point at = get_way(turn * random_unit(own, 1)) * (0.11 * std::sqrt(random_unit(own, 2)));
    at.y = -0.03;
    for (uint k = 0; k < points; ++k) {
      const double s = k / (points - 1.0);
      const double radius = has_ear && k + 2 >= points ? 0.011 * (1.4 - s) + 0.004 : 0.0045 * (1.0 - 0.85 * s);
      data.points.push_back({GMathVec3<float>(at), static_cast<float>(radius)});
      at +=
          (Point(0.0, 1.0, 0.0) + push * (2.2 * s)).get_normalized() * ((has_ear ? 1.5 : 1.0) * length / (points - 1));
    }
    data.curve_sizes.push_back(points);
    data.curve_groups.push_back(has_ear ? 1 : 0);
  }
  return grass;
}

MeshSource make_forest_flower(const ForestColors& colors) {
  MeshBuilder builder;
  const uint green = builder.add_group("stem", color_from_srgb(0x67893f));
  const uint bloom = builder.add_group("bloom", color_from_srgb(colors.main));
  const uint heart = builder.add_group("heart", color_from_srgb(colors.second));
  add_lathe(builder, {}, {{0.009, -0.03}, {0.006, 0.26}}, 4, green);
  for (const double angle : {0.3, 3.1}) add_frond(builder, {}, angle, 0.16, 0.05, 0.45, 3, green);
  constexpr uint petals = 7;
  for (uint petal = 0; petal < petals; ++petal)
    add_frond(builder, {0.0, 0.255, 0.0}, turn * petal / petals, 0.075, 0.05, 0.75, 2, bloom);
  add_lathe(builder, {}, {{0.0, 0.25}, {0.024, 0.268}, {0.0, 0.284}}, 7, heart);
  return builder.finish();
}

MeshSource make_forest_fern(uint seed, uint color) {
  MeshBuilder builder;
  const uint green = builder.add_group("fronds", color_from_srgb(color));
  constexpr uint fronds = 9;
  for (uint k = 0; k < fronds; ++k) {
    const uint own = hash_bits(k + 32 * seed);
    add_frond(builder, {0.0, -0.02, 0.0}, turn * (k + 0.6 * random_unit(own, 1)) / fronds,
              0.34 + 0.16 * random_unit(own, 2), 0.11, 0.55 + 0.2 * random_unit(own, 3), 6, green);
  }
  return builder.finish();
}

MeshSource make_forest_bush(uint seed, uint color) {
  MeshBuilder builder;
  const uint leaves = builder.add_group("bush", color_from_srgb(color));
  for (uint k = 0; k < 4; ++k) {
    const uint own = hash_bits(k + 16 * seed);
    const double radius = 0.2 + 0.12 * random_unit(own, 1);
    Point middle = get_way(turn * (k + random_unit(own, 2)) / 4) * (0.2 * (k % 2 + 0.5));
    middle.y = 0.6 * radius + 0.1 * random_unit(own, 3);
    add_sphere(builder, middle, radius, 16, leaves, make_relief(seed + k, 0.22));
  }
  return builder.finish();
}

MeshSource make_forest_conifer(uint seed, const ForestColors& colors) {
  MeshBuilder builder;
  const uint bark = builder.add_group("bark", color_from_srgb(colors.second));
  const uint needles = builder.add_group("needles", color_from_srgb(colors.main));
  add_lathe(builder, {}, {{0.09, -0.15}, {0.06, 0.5}, {0.02, 2.2}}, 6, bark);
  constexpr uint tiers = 7;
  for (uint tier = 0; tier < tiers; ++tier) {
    const double s = tier / double(tiers), low = 0.4 + 2.05 * s, reach = 0.78 * std::pow(1.0 - s, 0.85) + 0.06;
    const double shift = seed + 1.7 * tier;
    const auto relief = [shift](double angle, double) {
      return 1.0 + 0.17 * std::sin(6.0 * angle + shift) + 0.1 * std::sin(3.0 * angle - 2.0 * shift);
    };
    add_lathe(builder, {}, {{0.25 * reach, low + 0.02}, {reach, low - 0.14 * reach}, {0.0, low + 0.75 - 0.25 * s}}, 18,
              needles, relief);
  }
  return builder.finish();
}

MeshSource make_forest_tree(uint seed, const ForestColors& colors) {
  MeshBuilder builder;
  const uint bark = builder.add_group("bark", color_from_srgb(colors.second));
  const uint leaves = builder.add_group("leaves", color_from_srgb(colors.main));
  add_lathe(builder, {}, {{0.1, -0.15}, {0.065, 0.5}, {0.05, 1.3}}, 7, bark);
  for (uint k = 0; k < 6; ++k) {
    const uint own = hash_bits(k + 16 * seed);
    Point middle = get_way(turn * (k + 0.5 * random_unit(own, 1)) / 5) * (k == 5 ? 0.0 : 0.34);
    middle.y = k == 5 ? 1.95 : 1.2 + 0.5 * random_unit(own, 2);
    add_sphere(builder, middle, 0.36 + 0.12 * random_unit(own, 3), 22, leaves, make_relief(seed + k, 0.2));
  }
  return builder.finish();
}

MeshSource make_forest_stone(uint seed) {
  MeshBuilder builder;
  const uint stone = builder.add_group("stone", color_from_srgb(seed % 2 == 0 ? 0x8f8d88 : 0x9d968a));
  add_sphere(builder, {0.0, 0.03, 0.0}, 0.18, 12, stone, [seed](const Point& p) {
    return 1.0 + 0.2 * std::sin(4.0 * p.x + seed) - 0.35 * std::fabs(p.y) + 0.12 * std::sin(9.0 * p.z + 2.0 * seed);
  });
  return builder.finish();
}
