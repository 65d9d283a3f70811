// tools/vqgas/render/point_shading.h
//
// Light on points. Points that lie on a surface are shaded by its normal, which is estimated from their neighbors
// in the picture; points that fill space are not shaded.
#pragma once
#include "tools/vqgas/image/color.h"
#include "tools/vqgas/render/daylight.h"

/// The plane through points that is nearest to their depths, by least squares.
class PointPlane {
 public:
  /// Adds a point: its offset to the right, upwards and in depth from the point whose normal is estimated.
  void add(const GMathVec3<double>& offset);

  struct Surface {
    GMathVec3<float> normal;  ///< towards the eye, of unit length, in coordinates of the camera
    float flatness = 0.0f;    ///< 1: the points lie in a plane, 0: they fill space, or are too few
  };
  Surface fit() const;

 private:
  double count_ = 0.0, zz_ = 0.0;
  GMathVec3<double> sum_;
  double xx_ = 0.0, xy_ = 0.0, yy_ = 0.0, xz_ = 0.0, yz_ = 0.0;
};

/// Light that reaches a point.
/// @param normal  in the world
Color get_point_light(const Daylight& daylight, const GMathVec3<double>& normal, float flatness);

/// Colors of points by their depth, for clouds without colors: 0 is the nearest point, 1 the farthest.
Color get_depth_color(float place);
