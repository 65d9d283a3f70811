#include <array>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint cells = 512;  // a side
constexpr double side = 10.0;
constexpr double water_level = -0.62;

/// A random number in [-1, 1] at each lattice point.
double get_lattice_value(int x, int z) {
  return 2.0 * random_unit(static_cast<uint>(x) * 7919u + 12u, static_cast<uint>(z)) - 1.0;
}

/// Smooth noise between the lattice points (Perlin 1985, with lattice values in place of slopes).
double get_noise(double x, double z) {
  const int ix = static_cast<int>(std::floor(x)), iz = static_cast<int>(std::floor(z));
  const auto ease = [](double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); };
  const double u = ease(x - ix), v = ease(z - iz);
  const double near_row = std::lerp(get_lattice_value(ix, iz), get_lattice_value(ix + 1, iz), u);
  const double far_row = std::lerp(get_lattice_value(ix, iz + 1), get_lattice_value(ix + 1, iz + 1), u);
  return std::lerp(near_row, far_row, v);
}

/// Ridges that branch: each octave is strong where the one before it was high (Musgrave 1993).
double get_height(double x, double z) {
  double height = 0.9 * get_noise(0.21 * x + 3.7, 0.21 * z + 1.3), weight = 1.0, frequency = 0.42, amplitude = 0.95;
  for (uint octave = 0; octave < 9; ++octave) {
    const double c = std::cos(octave * 1.3), s = std::sin(octave * 1.3);
    const double ridge =
        1.0 - std::fabs(get_noise(frequency * (c * x - s * z) + 17.0 * octave, frequency * (s * x + c * z)));
    const double signal = ridge * ridge * weight;
    height += amplitude * (signal - 0.45);
    weight = std::clamp(1.6 * signal, 0.0, 1.0);
    frequency *= 2.03;
    amplitude *= 0.48;
  }
  return height;
}

}  // namespace

MeshSource make_demo_terrain() {
  MeshBuilder builder;
  const uint water = builder.add_group("water", color_from_srgb(0x4f7f96));
  const uint grass = builder.add_group("grass", color_from_srgb(0x7c8f5a));
  const uint rock = builder.add_group("rock", color_from_srgb(0x8d8378));
  const uint snow = builder.add_group("snow", color_from_srgb(0xf1f3f5));
  std::vector<double> heights;
  uint first_uv = 0;
  for (uint row = 0; row <= cells; ++row) {
    for (uint column = 0; column <= cells; ++column) {
      const double u = double(column) / cells, v = double(row) / cells;
      const double x = (u - 0.5) * side, z = (v - 0.5) * side;
      heights.push_back(std::max(get_height(x, z), water_level));
      builder.add_vertex({x, heights.back(), z});
      const uint uv = builder.add_uv({float(u), float(v), 0.0f});
      if (heights.size() == 1) first_uv = uv;
    }
  }
  const auto choose_group = [&](uint a, uint b, uint c) {
    const double low = std::min({heights[a], heights[b], heights[c]}),
                 high = std::max({heights[a], heights[b], heights[c]});
    const double steepness = (high - low) / (side / cells);
    if (high <= water_level) return water;
    const double ragged = 0.12 * get_noise(0.13 * a, 0.013 * b);
    if (steepness > 1.35) return rock;
    return low > 0.8 + ragged ? snow : low > 0.4 + ragged ? rock : grass;
  };
  for (uint row = 0; row < cells; ++row) {
    for (uint column = 0; column < cells; ++column) {
      const uint a = row * (cells + 1) + column, b = a + 1, c = a + cells + 1, d = c + 1;
      const std::array<std::array<uint, 3>, 2> triangles = {{{a, c, d}, {a, d, b}}};
      for (const auto& t : triangles) {
        const u32 uvs[] = {first_uv + t[0], first_uv + t[1], first_uv + t[2]};
        builder.add_polygon(t, choose_group(t[0], t[1], t[2]), {}, uvs);
      }
    }
  }
  return builder.finish();
}
