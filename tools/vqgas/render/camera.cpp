#include "tools/vqgas/render/camera.h"

#include <cmath>
#include <numbers>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/number_list.h"

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

GMathVec3<double> read_vector(const std::string& text, const std::string& whole, const std::string& option) {
  const std::vector<double> values = parse_numbers(text, ',');
  if (values.size() != 3) throw UsageError(option + ": '" + whole + "' is not ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  const GMathVec3<double> vector(values[0], values[1], values[2]);
  if (!std::isfinite(vector.x) || !std::isfinite(vector.y) || !std::isfinite(vector.z))
    throw UsageError(option + ": '" + whole + "' has a number that is not finite");
  return vector;
}

/// From the axes of a scene with y up to those of another.
GMathVec3<double> turn_up(const GMathVec3<double>& v, uint up_axis) {
  if (up_axis == 2) return {v.x, -v.z, v.y};
  if (up_axis == 0) return {v.y, v.z, v.x};
  return v;
}

}  // namespace

Camera parse_camera(const std::string& text, const std::string& option) {
  const std::vector<std::string> parts = split_text(text, '/');
  if (parts.size() != 4) throw UsageError(option + ": '" + text + "' is not ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  Camera camera;
  camera.eye = read_vector(parts[0], text, option);
  camera.target = read_vector(parts[1], text, option);
  camera.up = read_vector(parts[2], text, option);
  const std::vector<double> fov = parse_numbers(parts[3], ',');
  if (fov.size() != 1 || !(fov[0] > 0.0 && fov[0] < 180.0))
    throw UsageError(option + ": the field of view must lie between 0 and 180 degrees");
  camera.field_of_view = fov[0];
  const CameraAxes axes = get_axes(camera);
  if (!(axes.forward.get_length() > 0.5)) throw UsageError(option + ": eye and target are the same point");
  if (!(axes.right.get_length() > 0.5)) throw UsageError(option + ": up lies along the view");
  return camera;
}

std::string print_camera(const Camera& camera) {
  const auto print = [](const GMathVec3<double>& v) {
    return print_number(v.x) + "," + print_number(v.y) + "," + print_number(v.z) + "/";
  };
  return print(camera.eye) + print(camera.target) + print(camera.up) + print_number(camera.field_of_view);
}

bool find_view(const std::string& view, GMathVec3<double>& back, GMathVec3<double>& up) {
  struct NamedView {
    const char* name;
    double azimuth, elevation;
  };
  constexpr NamedView views[] = {{"front", 0.0, 0.0},  {"back", 180.0, 0.0}, {"right", 90.0, 0.0},  {"side", 90.0, 0.0},
                                 {"left", -90.0, 0.0}, {"top", 0.0, 90.0},   {"bottom", 0.0, -90.0}};
  up = {0.0, 1.0, 0.0};
  if (view == "three-quarter") {
    back = GMathVec3<double>(0.68, 0.46, 1.0).get_normalized();
    return true;
  }
  std::vector<double> angles = parse_numbers(view, ',');
  for (const NamedView& named : views)
    if (view == named.name) angles = {named.azimuth, named.elevation};
  if (angles.size() != 2 || !std::isfinite(angles[0]) || !(std::fabs(angles[1]) <= 90.0)) return false;
  // Right angles are exact, so that faces along the axes are seen edge-on.
  const auto turn = [](double degrees, double& cosine, double& sine) {
    const double rest = std::remainder(degrees, 360.0);
    cosine = std::fabs(rest) == 90.0 ? 0.0 : std::cos(rest * std::numbers::pi / 180.0);
    sine = std::fabs(rest) == 180.0 ? 0.0 : std::sin(rest * std::numbers::pi / 180.0);
  };
  double cos_azimuth, sin_azimuth, cos_elevation, sin_elevation;
  turn(angles[0], cos_azimuth, sin_azimuth);
  turn(angles[1], cos_elevation, sin_elevation);
  back = {sin_azimuth * cos_elevation, sin_elevation, cos_azimuth * cos_elevation};
  if (cos_elevation == 0.0) up = GMathVec3<double>(sin_azimuth, 0.0, cos_azimuth) * -sin_elevation;
  return true;
}

Camera frame_boxes(const std::string& view, uint up_axis, const std::vector<GMathBbox3<double>>& boxes, double aspect) {
  Camera camera;
  GMathVec3<double> back;
  if (!find_view(view, back, camera.up)) throw UsageError("--view: '" + view + "' is none of " + view_names);
  camera.up = turn_up(camera.up, up_axis);
  camera.up_axis = up_axis;
  camera.eye = turn_up(back, up_axis);
  const CameraAxes axes = get_axes(camera);
  constexpr double margin = 1.06;
  const double tangent_y = get_half_tangent(camera) / margin;
  const double tangent_x = tangent_y * aspect;
  // Each edge of the picture is a plane that touches the boxes: along an axis a with tangent k, the largest a + k z on
  // one side and the largest -a + k z on the other (z towards the eye). The eye lies where the two planes meet.
  double right = -DBL_MAX, left = -DBL_MAX, top = -DBL_MAX, bottom = -DBL_MAX;
  for (const GMathBbox3<double>& box : boxes) {
    for (uint corner = 0; corner < 8; ++corner) {
      const GMathVec3<double> p = box.get_corner(corner);
      const double x = p.dot(axes.right), y = p.dot(axes.up), z = -p.dot(axes.forward);
      right = std::fmax(right, x + tangent_x * z);
      left = std::fmax(left, -x + tangent_x * z);
      top = std::fmax(top, y + tangent_y * z);
      bottom = std::fmax(bottom, -y + tangent_y * z);
    }
  }
  const double x = 0.5 * (right - left), y = 0.5 * (top - bottom);
  double z = std::fmax((right + left) / (2.0 * tangent_x), (top + bottom) / (2.0 * tangent_y));
  GMathBbox3<double> whole;
  for (const GMathBbox3<double>& box : boxes) whole.add(box);
  const double center_z = -whole.get_center().dot(axes.forward);
  if (!(z > center_z)) z = center_z + 1.0;  // a single point: any distance shows it
  camera.eye = axes.right * x + axes.up * y - axes.forward * z;
  camera.target = camera.eye + axes.forward * (z - center_z);
  return camera;
}

CameraRays::CameraRays(const Camera& camera, uint width, uint height)
    : eye_(camera.eye), width_(width), height_(height), scale_(get_half_tangent(camera) / height) {
  const CameraAxes axes = get_axes(camera);
  forward_ = axes.forward;
  right_ = axes.right;
  up_ = axes.up;
}

GMathVec2<double> CameraRays::get_picture_point(const GMathVec3<double>& point) const {
  const GMathVec3<double> way = point - eye_;
  const double scale = 1.0 / (way.dot(forward_) * scale_);
  return {0.5 * (width_ + way.dot(right_) * scale), 0.5 * (height_ - way.dot(up_) * scale)};
}
