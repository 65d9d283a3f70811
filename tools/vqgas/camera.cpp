#include "tools/vqgas/camera.h"

#include <numbers>

#include "tools/vqgas/input_error.h"
#include "tools/vqgas/number_list.h"

namespace {

struct CameraAxes {
  GMathVec3<double> forward, right, up;
};

CameraAxes get_axes(const Camera& camera) {
  CameraAxes axes;
  axes.forward = (camera.target - camera.eye).get_normalized();
  axes.right = axes.forward.cross(camera.up).get_normalized();
  axes.up = axes.right.cross(axes.forward);
  return axes;
}

double get_half_tangent(const Camera& camera) { return std::tan(camera.field_of_view * std::numbers::pi / 360.0); }

GMathVec3<double> read_vector(const std::string& text, const std::string& whole) {
  const std::vector<double> values = parse_numbers(text, ',');
  if (values.size() != 3) throw UsageError("--camera: '" + whole + "' is not ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  return {values[0], values[1], values[2]};
}

/// Direction from the target to the eye, and the up vector.
void get_view(const std::string& view, GMathVec3<double>& back, GMathVec3<double>& up) {
  up = {0.0, 1.0, 0.0};
  if (view == "front") {
    back = {0.0, 0.0, 1.0};
  } else if (view == "side") {
    back = {1.0, 0.0, 0.0};
  } else if (view == "top") {
    back = {0.0, 1.0, 0.0};
    up = {0.0, 0.0, -1.0};
  } else if (view == "three-quarter") {
    back = GMathVec3<double>(0.68, 0.46, 1.0).get_normalized();
  } else {
    throw UsageError("--view: '" + view + "' is none of front, side, top, three-quarter");
  }
}

}  // namespace

Camera parse_camera(const std::string& text) {
  const std::vector<std::string> parts = split_text(text, '/');
  if (parts.size() != 4) throw UsageError("--camera: '" + text + "' is not ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  Camera camera;
  camera.eye = read_vector(parts[0], text);
  camera.target = read_vector(parts[1], text);
  camera.up = read_vector(parts[2], text);
  const std::vector<double> fov = parse_numbers(parts[3], ',');
  if (fov.size() != 1 || !(fov[0] > 0.0 && fov[0] < 180.0))
    throw UsageError("--camera: the field of view must lie between 0 and 180 degrees");
  camera.field_of_view = fov[0];
  const CameraAxes axes = get_axes(camera);
  if (!(axes.forward.get_length() > 0.5)) throw UsageError("--camera: eye and target are the same point");
  if (!(axes.right.get_length() > 0.5)) throw UsageError("--camera: up lies along the view");
  return camera;
}

Camera frame_box(const std::string& view, const GMathBbox3<double>& box, double aspect) {
  Camera camera;
  GMathVec3<double> back;
  get_view(view, back, camera.up);
  camera.target = box.get_center();
  camera.eye = camera.target + back;
  const CameraAxes axes = get_axes(camera);
  constexpr double margin = 1.06;
  const double tangent_y = get_half_tangent(camera) / margin;
  const double tangent_x = tangent_y * aspect;
  // The eye steps back until the last corner is inside the picture.
  double distance = 0.0;
  for (uint corner = 0; corner < 8; ++corner) {
    const GMathVec3<double> offset = box.get_corner(corner) - camera.target;
    const double nearer = -offset.dot(axes.forward);
    distance = std::fmax(distance, nearer + std::fabs(offset.dot(axes.right)) / tangent_x);
    distance = std::fmax(distance, nearer + std::fabs(offset.dot(axes.up)) / tangent_y);
  }
  camera.eye = camera.target + back * (distance > 0.0 ? distance : 1.0);
  return camera;
}

CameraRays::CameraRays(const Camera& camera, uint width, uint height)
    : eye_(camera.eye), width_(width), height_(height), scale_(get_half_tangent(camera) / height) {
  const CameraAxes axes = get_axes(camera);
  forward_ = axes.forward;
  right_ = axes.right;
  up_ = axes.up;
}
