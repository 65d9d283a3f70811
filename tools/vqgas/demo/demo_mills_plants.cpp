#include <numbers>

#include "tools/vqgas/demo/demo_mills.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr double full_turn = 2.0 * std::numbers::pi;

constexpr uint pinwheel_colors[mills_colors][2] = {
    {0xd9694f, 0xf0b89c}, {0xe0b04a, 0xf2ddA0}, {0x4f8fa8, 0xb4d3da}, {0xa87a9c, 0xe0c4d4}};
constexpr uint tulip_colors[mills_colors] = {0xc9574f, 0xecc45a, 0xf3ede2, 0x957ab5};

/// A narrow leaf in two bent halves, from the origin upwards and outwards.
void add_leaf(MeshBuilder& builder, double turn, double length, double width, double droop, uint group) {
  const Point out(std::cos(turn), 0.0, -std::sin(turn)), side(std::sin(turn), 0.0, std::cos(turn));
  const auto place = [&](double u, double v) {
    const double away = length * (0.15 + 0.85 * v) * droop * v, half = width * (u - 0.5) * std::sin(0.15 + 2.95 * v);
    return out * (0.01 + away + 0.25 * width * std::fabs(u - 0.5)) + side * half +
           Point(0.0, length * v * (1.0 - 0.45 * droop * v), 0.0);
  };
  add_sheet(builder, 2, 5, place, [&](double, double) { return group; });
}

double get_leafy_relief(const Point& p) {
  return 1.0 + 0.10 * std::sin(6.0 * p.x + 1.0) * std::sin(5.0 * p.y) * std::sin(6.0 * p.z + 2.0) +
         0.06 * std::sin(13.0 * p.x + 3.0 * p.y) * std::sin(12.0 * p.z + 4.0 * p.y);
}

}  // namespace

MeshSource make_mills_pole() {
  MeshBuilder builder;
  const uint wood = builder.add_group("pole", color_from_srgb(0xe9e0cf));
  add_lathe(builder, {}, {{0, -0.1}, {0.018, -0.1}, {0.013, 0.68}, {0, 0.69}}, 8, wood);
  return builder.finish();
}

MeshSource make_mills_pinwheel(uint color) {
  MeshBuilder builder;
  const uint groups[2] = {builder.add_group("blades", color_from_srgb(pinwheel_colors[color][0])),
                          builder.add_group("pale blades", color_from_srgb(pinwheel_colors[color][1]))};
  constexpr uint blades = 6;
  for (uint blade = 0; blade < blades; ++blade) {
    const double begin = full_turn * blade / blades;
    const auto place = [&](double u, double v) {
      const double away = 0.03 + 0.25 * u, angle = begin + v * (1.0 - 0.3 * u * u);
      return Point(away * std::cos(angle), away * std::sin(angle), 0.11 * u * v * (1.4 - 0.6 * v));
    };
    add_sheet(builder, 5, 5, place, [&](double, double) { return groups[blade % 2]; });
  }
  add_sphere(builder, {0.0, 0.0, 0.03}, 0.04, 12, groups[1]);
  return builder.finish();
}

MeshSource make_mills_tulip(uint color) {
  MeshBuilder builder;
  const uint green = builder.add_group("leaves", color_from_srgb(0x6f9150));
  const uint petals = builder.add_group("petals", color_from_srgb(tulip_colors[color]));
  add_lathe(builder, {}, {{0.009, -0.02}, {0.007, 0.2}}, 5, green);
  for (const double turn : {0.4, 2.9}) add_leaf(builder, turn, 0.17, 0.055, 0.5, green);
  const std::vector<GMathVec2<double>> cup = {{0, 0.185},    {0.034, 0.195}, {0.052, 0.218}, {0.057, 0.243},
                                              {0.053, 0.27}, {0.041, 0.295}, {0.022, 0.312}};
  add_lathe(builder, {}, cup, 14, petals, [](double angle, double height) {
    return 1.0 + (0.06 + 12.0 * std::fmax(0.0, height - 0.28)) * std::cos(3.0 * angle);
  });
  return builder.finish();
}

MeshSource make_mills_tuft() {
  MeshBuilder builder;
  const uint grass = builder.add_group("tuft", color_from_srgb(0xa9bb6e));
  for (uint leaf = 0; leaf < 7; ++leaf)
    add_leaf(builder, full_turn * (leaf + 0.7 * random_unit(leaf, 1)) / 7, 0.12 + 0.09 * random_unit(leaf, 2), 0.022,
             0.35 + 0.4 * random_unit(leaf, 3), grass);
  return builder.finish();
}

MeshSource make_mills_round_tree() {
  MeshBuilder builder;
  const uint bark = builder.add_group("bark", color_from_srgb(0x75604a));
  const uint leaves = builder.add_group("round crown", color_from_srgb(0x6d8f55));
  add_lathe(builder, {}, {{0.09, -0.1}, {0.06, 0.3}, {0.05, 0.7}}, 10, bark);
  const struct {
    Point middle;
    double radius;
  } balls[] = {{{0, 0.95, 0}, 0.42}, {{0.26, 0.78, 0.1}, 0.27}, {{-0.24, 0.8, 0.14}, 0.29}, {{0.02, 0.8, -0.26}, 0.28}};
  for (const auto& ball : balls) add_sphere(builder, ball.middle, ball.radius, 28, leaves, get_leafy_relief);
  return builder.finish();
}

MeshSource make_mills_tall_tree() {
  MeshBuilder builder;
  const uint bark = builder.add_group("bark", color_from_srgb(0x75604a));
  const uint leaves = builder.add_group("tall crown", color_from_srgb(0x557a52));
  add_lathe(builder, {}, {{0.06, -0.1}, {0.045, 0.4}}, 10, bark);
  std::vector<GMathVec2<double>> crown;
  for (uint row = 0; row <= 24; ++row) {
    const double s = row / 24.0;
    crown.push_back({row % 24 == 0 ? 0.0 : 0.25 * std::sin(3.1416 * std::pow(s, 0.65)), 0.18 + 1.75 * s});
  }
  add_lathe(builder, {}, crown, 28, leaves, [](double angle, double height) {
    return 1.0 + 0.10 * std::sin(7.0 * angle + 9.0 * height) + 0.07 * std::sin(4.0 * angle - 15.0 * height);
  });
  return builder.finish();
}
