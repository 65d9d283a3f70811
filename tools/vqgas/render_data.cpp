// tools/vqgas/render_data.cpp
#include <initializer_list>

#include "tools/vqgas/render.h"

namespace {

void put(PictureLayer& layer, std::size_t pixel, std::initializer_list<double> values) {
  std::size_t channel = 0;
  for (const double value : values) layer.channels[channel++].values[pixel] = static_cast<float>(value);
}

/// What the nearest surface of a pixel says.
void put_surface(PictureLayer& layer, std::size_t pixel, const GeometryIntersection& hit, uint primitive,
                 const GeometrySurfacePoint& point) {
  switch (layer.layer) {
    case Layer::depth:
      put(layer, pixel, {hit.distance});
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
      layer.channels[0].numbers[pixel] = primitive;
      break;
    case Layer::group:
      layer.channels[0].numbers[pixel] = hit.shading_group;
      break;
    case Layer::beauty:
    case Layer::heat:
    case Layer::count:
      break;
  }
}

void render_nearest(const QueryScene& scene, const RenderTile& tile, double time, RenderThread& thread,
                    Picture& picture) {
  GeometryRayPacket& packet = thread.camera_rays;
  PictureLayer* heat = picture.find(Layer::heat);
  thread.visits.assign(packet.get_count(), {});
  scene.find_nearest(thread.shader, packet, heat != nullptr ? thread.visits.data() : nullptr);
  thread.counts.camera += packet.get_count();
  for (uint ray = 0; ray < packet.get_count(); ++ray) {
    const std::size_t pixel = tile.get_pixel(ray, picture.width);
    const GeometryRayVisits& visits = thread.visits[ray];
    if (heat != nullptr) put(*heat, pixel, {double(visits.nodes), double(visits.leaves)});
    const GeometryIntersection& hit = packet.get_nearest(ray);
    if (hit.geometry == nullptr) continue;
    const GeometrySurfacePoint point = scene.get_surface_point(hit, time);
    for (PictureLayer& layer : picture.layers) put_surface(layer, pixel, hit, scene.get_primitive(hit), point);
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
  bool wants_nearest = false;
  for (PictureLayer& layer : picture.layers) {
    if (layer.layer == Layer::count) render_count(scene, tile, thread, layer, picture.width);
    wants_nearest |= layer.layer != Layer::beauty && layer.layer != Layer::count;
  }
  if (wants_nearest) render_nearest(scene, tile, time, thread, picture);
}
