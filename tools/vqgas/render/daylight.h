// tools/vqgas/render/daylight.h
//
// The light of beauty pictures: a sun behind the viewer's left shoulder and a clear sky. Not physical, chosen to look
// natural.
#pragma once
#include "tools/vqgas/image/color.h"
#include "tools/vqgas/render/camera.h"

struct Daylight {
  GMathVec3<double> sun_direction;  ///< towards the sun, unit length
  Color sun_color{2.05f, 1.86f, 1.58f};

  explicit Daylight(const Camera& camera);
  /// A direction to a random point of the sun, which is larger than the real one for soft shadows.
  GMathVec3<double> sample_sun(double x, double y) const;
  /// Color of a ray that leaves the scene: sky above, dim ground below.
  Color get_sky(const GMathVec3<double>& direction) const;

 private:
  uint up_axis_;
};
