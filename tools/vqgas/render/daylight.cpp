#include "tools/vqgas/render/daylight.h"

#include <numbers>

Daylight::Daylight(const Camera& camera) : up_axis_(camera.up_axis) {
  GMathVec3<double> up;
  up[up_axis_] = 1.0;
  const GMathVec3<double> forward = (camera.target - camera.eye).get_normalized();
  const GMathVec3<double> right = forward.cross(camera.up).get_normalized();
  GMathVec3<double> level_right = (right - up * right.dot(up)).get_normalized();
  if (!(level_right.get_length() >= 0.5)) level_right = {up.y + up.z, up.x, 0.0};
  const GMathVec3<double> back = level_right.cross(up);
  sun_direction = (level_right * -0.75 + up * 0.95 + back * 0.45).get_normalized();
}

GMathVec3<double> Daylight::sample_sun(double x, double y) const {
  constexpr double spread = 0.035;  // radius of the disc at distance 1
  const GMathVec3<double> side = sun_direction.cross({0.31, 0.17, 0.93}).get_normalized();
  const GMathVec3<double> other = sun_direction.cross(side);
  const double radius = spread * std::sqrt(y), angle = 2.0 * std::numbers::pi * x;
  return sun_direction + side * (radius * std::cos(angle)) + other * (radius * std::sin(angle));
}

Color Daylight::get_sky(const GMathVec3<double>& direction) const {
  constexpr Color zenith(0.26f, 0.43f, 0.74f), horizon(0.80f, 0.86f, 0.92f), ground(0.46f, 0.45f, 0.44f);
  const double length = direction.get_length();
  const double height = length > 0.0 ? direction[up_axis_] / length : 0.0;
  if (height >= 0.0) return mix(horizon, zenith, static_cast<float>(std::pow(height, 0.55)));
  return mix(horizon, ground, static_cast<float>(1.0 - std::exp(4.0 * height)));
}
