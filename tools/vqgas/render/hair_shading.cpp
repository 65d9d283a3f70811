#include "tools/vqgas/render/hair_shading.h"

#include <algorithm>
#include <cmath>
#include <numbers>

HairScattering scatter_at_hair(const GMathVec3<double>& tangent, const GMathVec3<double>& view,
                               const GMathVec3<double>& light) {
  constexpr double degree = std::numbers::pi / 180.0;
  constexpr double outer_tilt = -6.0 * degree, outer_width = 7.0 * degree;
  // Light that passes through the hair meets its tilted scales from inside, twice (Marschner et al.).
  constexpr double inner_tilt = -1.5 * outer_tilt, inner_width = 2.0 * outer_width;
  const auto lobe = [](double angle, double width) { return std::exp(-0.5 * angle * angle / (width * width)); };

  // Inclinations against the plane across the hair, and the angle between both directions within that plane.
  const double sin_light = std::clamp(tangent.dot(light), -1.0, 1.0),
               cos_light = std::sqrt(1.0 - sin_light * sin_light);
  const double sin_view = std::clamp(tangent.dot(view), -1.0, 1.0), cos_view = std::sqrt(1.0 - sin_view * sin_view);
  const double half_inclination = 0.5 * (std::asin(sin_light) + std::asin(sin_view));
  const GMathVec3<double> light_across = light - tangent * sin_light, view_across = view - tangent * sin_view;
  const double cos_azimuth =
      std::clamp(light_across.dot(view_across) / std::max(cos_light * cos_view, 1e-12), -1.0, 1.0);
  const double facing = std::sqrt(0.5 * (1.0 + cos_azimuth));  // cosine of half the azimuth: 0 when lit from behind

  HairScattering out;
  // Seen from the lit side a hair shows more of its lit half (Goldman 1997).
  out.diffuse = cos_light * (0.35 + 0.65 * facing);
  out.highlight = 0.35 * facing * cos_light * lobe(half_inclination - outer_tilt, outer_width);
  out.glow = 0.6 * facing * facing * cos_light * lobe(half_inclination - inner_tilt, inner_width);
  return out;
}
