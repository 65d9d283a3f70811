// tools/vqgas/render/render_data.cpp
#include <cmath>
#include <initializer_list>
#include <optional>

#include "tools/vqgas/render/grid_parts.h"
#include "tools/vqgas/render/render.h"

namespace {

void put(PictureLayer& layer, std::size_t pixel, std::initializer_list<double> values) {
  std::size_t channel = 0;
  for (const double value : values) layer.channels[channel++].values[pixel] = static_cast<float>(value);
}

void put_path(PictureLayer& layer, std::size_t pixel, std::span<const GeometryIntersectionPathElement> path) {
  const std::size_t depth = std::min(path.size(), layer.channels.size());
  for (std::size_t level = 0; level < depth; ++level) layer.channels[level].numbers[pixel] = path[level].object_index;
}

/// Writes a layer's value of the nearest surface of a pixel.
void put_surface(PictureLayer& layer, std::size_t pixel, const SceneHit& hit, const GeometrySurfacePoint& point) {
  switch (layer.layer) {
    case Layer::depth:
      put(layer, pixel, {hit.record->distance});
      break;
    case Layer::normal:
      put(layer, pixel, {point.normal.x, point.normal.y, point.normal.z});
      break;
    case Layer::position:
      put(layer, pixel, {point.position.x, point.position.y, point.position.z});
      break;
    case Layer::uv:
      put(layer, pixel, {point.uv.x, point.uv.y});
      break;
    case Layer::primitive:
      layer.channels[0].numbers[pixel] = hit.get_primitive();
      break;
    case Layer::group:
      layer.channels[0].numbers[pixel] = hit.get_group();
      break;
    case Layer::object:
    case Layer::instance_path:
      put_path(layer, pixel, hit.path);
      break;
    case Layer::instance:
      layer.channels[0].numbers[pixel] = hit.get_instance().value_or(no_number);
      break;
    case Layer::instance_depth:
      layer.channels[0].numbers[pixel] = hit.record->depth;
      break;
    case Layer::beauty:
    case Layer::motion:
    case Layer::heat:
    case Layer::count:
    case Layer::parts:
    case Layer::weight:
    case Layer::point:
      break;
  }
}

/// Motion of the point on the picture over the whole shutter, at its velocity at the ray's time.
void put_motion(const QueryScene& scene, const RenderSettings& settings, const CameraRays& camera, double time,
                const SceneHit& hit, const GeometrySurfacePoint& point, PictureLayer& layer, std::size_t pixel) {
  double end_time = 0.0;
  const GMathVec3<double> end = scene.get_end_position(hit, time, end_time);
  const double scale = end_time > time ? (settings.shutter_close - settings.shutter_open) / (end_time - time) : 0.0;
  const GMathVec2<double> from = camera.get_picture_point(point.position), to = camera.get_picture_point(end);
  const double x = (to.x - from.x) * scale, y = (to.y - from.y) * scale;
  // A point in the plane of the eye has no projection.
  if (std::isfinite(x) && std::isfinite(y)) put(layer, pixel, {x, y});
}

void render_nearest(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile, double time,
                    RenderThread& thread, Picture& picture) {
  const CameraRays camera(settings.camera, settings.width, settings.height);
  GeometryRayPacket& packet = thread.camera_rays;
  PictureLayer* heat = picture.find(Layer::heat);
  PictureLayer* parts = picture.find(Layer::parts);
  PictureLayer* motion = scene.get_motion_blur() != nullptr ? picture.find(Layer::motion) : nullptr;
  thread.visits.assign(packet.get_count(), {});
  scene.find_nearest(thread.shader, packet, heat != nullptr ? thread.visits.data() : nullptr, motion != nullptr);
  thread.counts.camera += packet.get_count();
  for (uint ray = 0; ray < packet.get_count(); ++ray) {
    const std::size_t pixel = tile.get_pixel(ray, picture.width);
    const GeometryRayVisits& visits = thread.visits[ray];
    if (heat != nullptr) put(*heat, pixel, {double(visits.nodes), double(visits.leaves)});
    const std::optional<SceneHit> hit = scene.get_nearest(packet, ray);
    if (!hit) continue;
    const GeometrySurfacePoint point = scene.get_surface_point(*hit, time);
    for (PictureLayer& layer : picture.layers) put_surface(layer, pixel, *hit, point);
    if (parts != nullptr) {
      parts->channels[0].numbers[pixel] = settings.parts->get_part(*hit);
      const GMathVec3<double> direction = packet.get_ray(ray).direction.get_normalized();
      parts->channels[1].values[pixel] = static_cast<float>(std::fabs(point.normal.dot(direction)));
    }
    if (motion != nullptr) put_motion(scene, settings, camera, time, *hit, point, *motion, pixel);
  }
}

void render_count(const QueryScene& scene, const RenderTile& tile, RenderThread& thread, PictureLayer& layer,
                  uint width) {
  GeometryRayPacket& packet = thread.camera_rays;
  scene.find_all(thread.shader, packet);
  thread.counts.all_hits += packet.get_count();
  std::vector<uint>& numbers = layer.channels[0].numbers;
  for (uint ray = 0; ray < packet.get_count(); ++ray) numbers[tile.get_pixel(ray, width)] = 0;
  for (const GeometryHit& hit : packet.get_hits().get_hits()) ++numbers[tile.get_pixel(hit.ray, width)];
}

}  // namespace

void render_data_layers(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                        RenderThread& thread, Picture& picture) {
  const CameraRays camera(settings.camera, settings.width, settings.height);
  const double time = 0.5 * (settings.shutter_open + settings.shutter_close);
  thread.camera_rays.resize(tile.get_pixel_count());
  for (uint ray = 0; ray < tile.get_pixel_count(); ++ray) {
    const double x = tile.get_x(ray) + 0.5, y = tile.get_y(ray) + 0.5;
    thread.camera_rays.set_ray(ray, camera.get_eye(), camera.get_direction(x, y), 0.0, DBL_MAX, time);
  }
  bool has_nearest = false;
  for (PictureLayer& layer : picture.layers) {
    if (layer.layer == Layer::count) render_count(scene, tile, thread, layer, picture.width);
    has_nearest |= layer.layer != Layer::beauty && layer.layer != Layer::count;
  }
  if (has_nearest) render_nearest(scene, settings, tile, time, thread, picture);
}
