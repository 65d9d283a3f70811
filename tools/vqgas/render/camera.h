// tools/vqgas/render/camera.h
#pragma once
#include <string>
#include <vector>

#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_ray.h"

/// A pinhole camera.
struct Camera {
  GMathVec3<double> eye, target, up{0.0, 1.0, 0.0};
  double field_of_view = 35.0;  ///< vertical, in degrees
  uint up_axis = 1;             ///< of the scene, for its light and floor: 0 x, 1 y, 2 z
};

/// Reads "ex,ey,ez/tx,ty,tz/ux,uy,uz/fov", the value of `option`. Throws UsageError.
Camera parse_camera(const std::string& text, const std::string& option = "--camera");

/// The camera in the form that parse_camera() reads.
std::string print_camera(const Camera& camera);

inline constexpr const char* view_names = "front, back, left, right (or side), top, bottom, three-quarter";

/// Direction from the target to the eye and the up vector of a view, y up: front is from +z, right from +x, top from
/// +y; "azimuth,elevation" is turned from the front to the right, and raised, in degrees. False for any other text.
bool find_view(const std::string& view, GMathVec3<double>& back, GMathVec3<double>& up);

/// A camera that frames all boxes as large as possible. With z up, front is from -y and right from +x; with x up, front
/// is from +y and right from +z. Throws UsageError when there is no such view. `aspect` is width over height.
Camera frame_boxes(const std::string& view, uint up_axis, const std::vector<GMathBbox3<double>>& boxes, double aspect);

/// The rays of a camera through a picture.
class CameraRays {
 public:
  CameraRays(const Camera& camera, uint width, uint height);
  /// Direction through picture point (x, y), in pixels from the upper left corner. Its component along the view is 1,
  /// so a distance along the ray is a depth.
  GMathVec3<double> get_direction(double x, double y) const {
    return forward_ + right_ * ((2.0 * x - width_) * scale_) + up_ * ((height_ - 2.0 * y) * scale_);
  }
  /// Of the picture at depth 1.
  double get_pixel_width() const { return 2.0 * scale_; }
  /// Coordinates of a point as seen from the eye: to the right, upwards, depth along the view.
  GMathVec3<double> get_place(const GMathVec3<double>& point) const {
    const GMathVec3<double> way = point - eye_;
    return {way.dot(right_), way.dot(up_), way.dot(forward_)};
  }
  /// A direction with these coordinates.
  GMathVec3<double> get_world_direction(const GMathVec3<double>& place) const {
    return right_ * place.x + up_ * place.y + forward_ * place.z;
  }
  const GMathVec3<double>& get_eye() const { return eye_; }
  /// Along the view, of unit length.
  const GMathVec3<double>& get_forward() const { return forward_; }
  /// Projects a point in front of the eye to the picture; infinite or NaN for a point in the plane of the eye.
  GMathVec2<double> get_picture_point(const GMathVec3<double>& point) const;

 private:
  GMathVec3<double> eye_, forward_, right_, up_;
  double width_, height_, scale_;
};
