#include "tools/vqgas/image/color.h"

#include <array>

#include "tools/vqgas/support/random.h"

Color color_from_srgb(unsigned int rgb) {
  const auto channel = [&](unsigned int shift) {
    return decode_srgb(static_cast<float>((rgb >> shift) & 0xff) / 255.0f);
  };
  return {channel(16), channel(8), channel(0)};
}

Color tone_map(const Color& linear) {
  const auto curve = [](float x) {
    constexpr float a = 0.22f, b = 0.30f, c = 0.10f, d = 0.20f, e = 0.01f, f = 0.30f;
    return (x * (a * x + c * b) + d * e) / (x * (a * x + b) + d * f) - e / f;
  };
  constexpr float exposure = 1.75f, white = 9.0f;
  const float scale = 1.0f / curve(white);
  const auto map = [&](float x) { return std::clamp(curve(std::max(x, 0.0f) * exposure) * scale, 0.0f, 1.0f); };
  return {map(linear.x), map(linear.y), map(linear.z)};
}

Color false_color(float t) {
  static constexpr std::array<Color, 8> stops = {
      Color{0.04f, 0.03f, 0.16f}, {0.14f, 0.11f, 0.46f}, {0.12f, 0.33f, 0.62f}, {0.09f, 0.55f, 0.57f},
      {0.33f, 0.72f, 0.40f},      {0.85f, 0.83f, 0.27f}, {0.98f, 0.90f, 0.62f}, {1.0f, 1.0f, 1.0f}};
  const float at = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(stops.size() - 1);
  const std::size_t first = std::min(static_cast<std::size_t>(at), stops.size() - 2);
  return mix(stops[first], stops[first + 1], at - static_cast<float>(first));
}

Color palette_color(unsigned int index) {
  static constexpr std::array<unsigned int, 10> colors = {0xc9bfb1, 0x5b84b1, 0xd98e5f, 0x7fa878, 0xb8626b,
                                                          0xe0c068, 0x8d79b0, 0x64a6a6, 0xa3765a, 0x8f9aa8};
  return color_from_srgb(colors[index % colors.size()]);
}

Color hash_color(unsigned int number) {
  const unsigned int bits = hash_bits(number + 1);
  const auto channel = [&](unsigned int shift) {
    return 0.15f + 0.8f * static_cast<float>((bits >> shift) & 0xff) / 255.0f;
  };
  return {channel(0), channel(8), channel(16)};
}
