// tools/vqgas/image/color.h
//
// Colors as three linear values (1 is a white surface in full light), and their conversion for a screen.
#pragma once
#include <algorithm>
#include <cmath>
#include <vector>

#include "vq_gmath/gmath_vec.h"

using Color = GMathVec3<float>;

inline Color multiply(const Color& a, const Color& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
inline Color mix(const Color& a, const Color& b, float t) { return a * (1.0f - t) + b * t; }

/// Linear light to the sRGB curve, in [0, 1] (IEC 61966-2-1).
inline float encode_srgb(float linear) {
  const float x = std::clamp(linear, 0.0f, 1.0f);
  return x <= 0.0031308f ? 12.92f * x : 1.055f * std::pow(x, 1.0f / 2.4f) - 0.055f;
}
inline float decode_srgb(float encoded) {
  const float x = std::clamp(encoded, 0.0f, 1.0f);
  return x <= 0.04045f ? x / 12.92f : std::pow((x + 0.055f) / 1.055f, 2.4f);
}
/// A color given as 0xRRGGBB on the sRGB curve.
Color color_from_srgb(unsigned int rgb);

/// Compresses highlights like photographic film and leaves shadows nearly linear (Hable 2010, "Filmic Tonemapping").
Color tone_map(const Color& linear);

/// A ramp from dark blue over green and yellow to white for t in [0, 1]; lightness increases monotonically, so it can
/// be read without color. Returned on the sRGB curve.
Color false_color(float t);

/// Surface colors for shading groups, not saturated.
Color palette_color(unsigned int index);
/// A saturated color from a number, on the sRGB curve; consecutive numbers differ strongly.
Color hash_color(unsigned int number);
