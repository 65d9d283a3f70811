#include "tools/vqgas/render/select_picture.h"

#include <algorithm>
#include <cmath>

#include "tools/vqgas/render/camera.h"

namespace {

constexpr Color background(0.13f, 0.14f, 0.16f), gray(0.37f, 0.37f, 0.37f), border(1.0f, 0.85f, 0.2f),
    chosen(1.0f, 0.5f, 0.1f);

void draw_border(ScreenImage& image, const PictureRect& rect) {
  const uint thickness = 1 + image.width / 640;
  const auto last_x = static_cast<double>(image.width - 1), last_y = static_cast<double>(image.height - 1);
  const auto left = static_cast<uint>(std::clamp(rect.left, 0.0, last_x)),
             right = static_cast<uint>(std::clamp(rect.right - 1.0, 0.0, last_x)),
             top = static_cast<uint>(std::clamp(rect.top, 0.0, last_y)),
             bottom = static_cast<uint>(std::clamp(rect.bottom - 1.0, 0.0, last_y));
  for (uint y = top; y <= bottom; ++y) {
    for (uint x = left; x <= right; ++x) {
      const bool is_border =
          x < left + thickness || x + thickness > right || y < top + thickness || y + thickness > bottom;
      if (is_border) image.at(x, y) = border;
    }
  }
}

}  // namespace

bool Selection::contains(uint object, uint point) const {
  if (!has_points) return std::binary_search(objects.begin(), objects.end(), object);
  const auto is_before = [&](const ScenePoint& found, uint wanted) {
    return found.object != object ? found.object < object : found.point < wanted;
  };
  const auto found = std::lower_bound(points.begin(), points.end(), point, is_before);
  return found != points.end() && found->object == object && found->point == point;
}

ScreenImage make_select_picture(const Picture& picture, const Camera& camera, const Selection& selection,
                                const std::optional<PictureRect>& rect) {
  const std::vector<uint>& objects = picture.find(Layer::object)->channels[0].numbers;
  const std::vector<uint>& points = picture.find(Layer::point)->channels[0].numbers;
  const std::vector<PictureChannel>& normals = picture.find(Layer::normal)->channels;
  const CameraRays rays(camera, picture.width, picture.height);
  ScreenImage image{picture.width, picture.height, {}};
  image.pixels.assign(objects.size(), background);
  for (std::size_t pixel = 0; pixel < objects.size(); ++pixel) {
    if (objects[pixel] == no_number) continue;
    const GMathVec3<double> normal(normals[0].values[pixel], normals[1].values[pixel], normals[2].values[pixel]);
    const auto column = pixel % picture.width, row = pixel / picture.width;
    const GMathVec3<double> view = rays.get_direction(double(column) + 0.5, double(row) + 0.5);
    const double facing = normal.dot(normal) > 0.0 ? std::fabs(normal.dot(view.get_normalized())) : 0.7;
    const auto light = static_cast<float>(0.3 + 0.7 * facing);
    const bool is_selected = selection.contains(objects[pixel], points[pixel]);
    image.pixels[pixel] = (is_selected ? mix(chosen, hash_color(objects[pixel]), 0.4f) : gray) * light;
  }
  if (rect) draw_border(image, *rect);
  return image;
}
