#include "tools/vqgas/render/point_shading.h"

void PointPlane::add(const GMathVec3<double>& offset) {
  count_ += 1.0;
  sum_ += offset;
  xx_ += offset.x * offset.x;
  xy_ += offset.x * offset.y;
  yy_ += offset.y * offset.y;
  xz_ += offset.x * offset.z;
  yz_ += offset.y * offset.z;
  zz_ += offset.z * offset.z;
}

PointPlane::Surface PointPlane::fit() const {
  constexpr double least_count = 6.0;
  if (count_ < least_count) return {};
  // Covariances about the mean; the depth is right * x + up * y + constant.
  const auto covariance = [&](double product, double a, double b) { return product - a * b / count_; };
  const double xx = covariance(xx_, sum_.x, sum_.x), xy = covariance(xy_, sum_.x, sum_.y),
               yy = covariance(yy_, sum_.y, sum_.y), xz = covariance(xz_, sum_.x, sum_.z),
               yz = covariance(yz_, sum_.y, sum_.z), zz = covariance(zz_, sum_.z, sum_.z);
  const double determinant = xx * yy - xy * xy;
  if (!(determinant > 1e-6 * (xx + yy) * (xx + yy))) return {};  // all in one line
  const double right = (xz * yy - yz * xy) / determinant, up = (yz * xx - xz * xy) / determinant;
  const double square = 1.0 + right * right + up * up, residual = std::fmax(0.0, zz - right * xz - up * yz) / square;
  // The thickness of the layer of points, relative to its width: of points that fill space about 1.
  constexpr double flat = 0.3, thick = 0.9;
  const double thickness = std::sqrt(2.0 * residual / (xx + yy));
  const double place = std::clamp((thick - thickness) / (thick - flat), 0.0, 1.0);
  const GMathVec3<double> normal = GMathVec3<double>(right, up, -1.0) * (1.0 / std::sqrt(square));
  return {GMathVec3<float>(normal), static_cast<float>(place * place * (3.0 - 2.0 * place))};
}

Color get_point_light(const Daylight& daylight, const GMathVec3<double>& normal, float flatness) {
  constexpr Color flat_light(1.3f, 1.3f, 1.3f), below(0.30f, 0.29f, 0.28f), above(0.55f, 0.63f, 0.78f);
  if (flatness == 0.0f) return flat_light;
  const auto height = static_cast<float>(0.5 + 0.5 * normal.y);
  const auto sun = static_cast<float>(std::fmax(0.0, normal.dot(daylight.sun_direction)));
  return mix(flat_light, mix(below, above, height) + daylight.sun_color * sun, flatness);
}

Color get_depth_color(float place) {
  const Color ramp = false_color(0.88f - 0.7f * std::clamp(place, 0.0f, 1.0f));
  return {decode_srgb(ramp.x), decode_srgb(ramp.y), decode_srgb(ramp.z)};
}
