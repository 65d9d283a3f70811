// tools/vqgas/render_beauty.cpp
//
// Beauty: per sample one ray through a random point of the pixel, at a random time of the shutter; from the surface
// that it sees one ray to the sun (any hit ends it) and one into the sky around the normal (nearest hit: what it finds
// lends its colour). Each kind of ray goes to the structure as one packet for the whole tile.
#include "tools/vqgas/daylight.h"
#include "tools/vqgas/random.h"
#include "tools/vqgas/render.h"

namespace {

using Vector = GMathVec3<double>;

/// A surface point that a camera ray sees, ready to be lit.
struct ShadePoint {
  uint ray = 0;  // of the camera packet
  Vector position, normal, face_normal, view;
  Color albedo;
  double time = 0.0;
  float haze = 0.0f;    // how much of the sky's colour lies over it
  Color light;          // gathered so far
  Vector sun, ambient;  // directions of its rays
};

class BeautyTile {
 public:
  BeautyTile(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile, RenderThread& thread)
      : scene_(scene),
        settings_(settings),
        tile_(tile),
        thread_(thread),
        camera_(settings.camera, settings.width, settings.height),
        daylight_(settings.camera),
        box_(scene.get_bbox()),
        radius_(0.5 * box_.get_extent().get_length()),
        sums_(tile.get_pixel_count()),
        coverage_(tile.get_pixel_count(), 0.0f) {
    thread_.shadow_rays.set_stop_rule(1);
  }

  void render(PictureLayer& layer) {
    for (uint sample = 0; sample < settings_.samples; ++sample) {
      trace_camera(sample);
      trace_shadows();
      trace_ambient();
      for (const ShadePoint& point : points_) {
        const Vector& direction = thread_.camera_rays.get_ray(point.ray).direction;
        sums_[point.ray] += mix(multiply(point.albedo, point.light), Daylight::get_sky(direction), point.haze);
      }
    }
    const float scale = 1.0f / static_cast<float>(settings_.samples);
    for (uint ray = 0; ray < tile_.get_pixel_count(); ++ray) {
      const std::size_t pixel = tile_.get_pixel(ray, settings_.width);
      layer.channels[0].values[pixel] = sums_[ray].x * scale;
      layer.channels[1].values[pixel] = sums_[ray].y * scale;
      layer.channels[2].values[pixel] = sums_[ray].z * scale;
      layer.channels[3].values[pixel] = coverage_[ray] * scale;
    }
  }

 private:
  /// A random number of the pixel's own, the same for all its samples.
  double get_shift(uint ray, uint dimension) const {
    return random_unit(hash_bits(tile_.get_y(ray) * 65536u + tile_.get_x(ray)), dimension);
  }
  /// An evenly spread pair of numbers for one purpose of one sample.
  void get_pair(uint ray, uint sample, uint purpose, double& x, double& y) const {
    get_even_sample(sample, get_shift(ray, 2 * purpose), get_shift(ray, 2 * purpose + 1), x, y);
  }

  void trace_camera(uint sample) {
    GeometryRayPacket& packet = thread_.camera_rays;
    packet.resize(tile_.get_pixel_count());
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      double x, y;
      get_pair(ray, sample, 0, x, y);
      // The golden ratio's multiples spread the times of a pixel's samples evenly over the shutter.
      double moment = get_shift(ray, 9) + sample * 0.6180339887498949;
      moment -= std::floor(moment);
      const double time = std::lerp(settings_.shutter_open, settings_.shutter_close, moment);
      packet.set_ray(ray, camera_.get_eye(), camera_.get_direction(tile_.get_x(ray) + x, tile_.get_y(ray) + y), 0.0,
                     DBL_MAX, time);
    }
    scene_.find_nearest(thread_.shader, packet);
    thread_.counts.camera += packet.get_count();
    points_.clear();
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      ShadePoint point;
      if (!find_point(ray, point)) {
        sums_[ray] += Daylight::get_sky(packet.get_ray(ray).direction);
        continue;
      }
      double x, y;
      get_pair(ray, sample, 1, x, y);
      point.sun = daylight_.sample_sun(x, y);
      get_pair(ray, sample, 2, x, y);
      point.ambient = sample_cosine(point.normal, x, y);
      points_.push_back(point);
    }
  }

  bool find_point(uint ray, ShadePoint& point) {
    const GMathRay& source = thread_.camera_rays.get_ray(ray);
    const GeometryIntersection& hit = thread_.camera_rays.get_nearest(ray);
    point.ray = ray;
    point.time = source.time;
    point.view = -source.direction.get_normalized();
    double floor_distance = DBL_MAX;
    if (settings_.has_floor && source.direction.y < 0.0 && source.origin.y > box_.min.y)
      floor_distance = (box_.min.y - source.origin.y) / source.direction.y;
    if (floor_distance < hit.distance) return find_floor_point(source.get_point(floor_distance), point);
    if (hit.geometry == nullptr) return false;

    const GeometrySurfacePoint surface = scene_.get_surface_point(hit, source.time);
    const bool from_behind = surface.normal.dot(point.view) < 0.0;
    point.face_normal = from_behind ? -surface.normal : surface.normal;
    point.normal = from_behind ? -surface.shading_normal : surface.shading_normal;
    if (!(point.normal.dot(point.face_normal) > 0.0)) point.normal = point.face_normal;
    point.position = surface.position + point.face_normal * (1e-5 * radius_);
    point.albedo = scene_.get_group_color(hit.shading_group);
    coverage_[ray] += 1.0f;
    return true;
  }

  bool find_floor_point(const Vector& position, ShadePoint& point) const {
    const double away = (position - box_.get_center()).get_length() / (5.0 * radius_);
    point.position = position + Vector(0.0, 1e-5 * radius_, 0.0);
    point.normal = point.face_normal = {0.0, 1.0, 0.0};
    point.albedo = floor_color;
    point.haze = static_cast<float>(1.0 - std::exp(-away * away));
    return true;
  }

  void trace_shadows() {
    GeometryRayPacket& packet = thread_.shadow_rays;
    packet.resize(static_cast<uint>(points_.size()));
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      const ShadePoint& point = points_[ray];
      // A surface that faces away from the sun is dark without asking; its ray is closed.
      const bool faces_sun = point.face_normal.dot(point.sun) > 0.0 && point.normal.dot(point.sun) > 0.0;
      packet.set_ray(ray, point.position, point.sun, 0.0, faces_sun ? DBL_MAX : -1.0, point.time, GMathRay::shadow);
      thread_.counts.shadow += faces_sun;
    }
    scene_.find_all(thread_.shader, packet);
    is_lit_.assign(points_.size(), 1);
    for (const GeometryHit& hit : packet.get_hits().get_hits()) is_lit_[hit.ray] = 0;
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      ShadePoint& point = points_[ray];
      if (is_lit_[ray] == 0 || packet.get_ray(ray).tfar < 0.0) continue;
      const Vector half = (point.view + daylight_.sun_direction).get_normalized();
      const double cosine = point.normal.dot(point.sun.get_normalized());
      const double gloss = 0.25 * std::pow(std::fmax(0.0, point.normal.dot(half)), 48.0);
      point.light += daylight_.sun_color * static_cast<float>(cosine + gloss);
    }
  }

  void trace_ambient() {
    GeometryRayPacket& packet = thread_.ambient_rays;
    packet.resize(static_cast<uint>(points_.size()));
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      const ShadePoint& point = points_[ray];
      packet.set_ray(ray, point.position, point.ambient, 0.0, DBL_MAX, point.time, GMathRay::diffuse);
    }
    scene_.find_nearest(thread_.shader, packet);
    thread_.counts.ambient += packet.get_count();
    for (uint ray = 0; ray < packet.get_count(); ++ray) points_[ray].light += get_ambient_light(ray);
  }

  /// Sky where the way is free; else a little of the colour of what stands in it, as light that it passes on.
  Color get_ambient_light(uint ray) {
    constexpr float passed_on = 0.3f;
    const GMathRay& source = thread_.ambient_rays.get_ray(ray);
    const GeometryIntersection& hit = thread_.ambient_rays.get_nearest(ray);
    if (hit.geometry != nullptr) return scene_.get_group_color(hit.shading_group) * passed_on;
    if (settings_.has_floor && source.direction.y < 0.0) return floor_color * (2.0f * passed_on);
    return Daylight::get_sky(source.direction);
  }

  static constexpr Color floor_color{0.62f, 0.60f, 0.57f};

  const QueryScene& scene_;
  const RenderSettings& settings_;
  const RenderTile& tile_;
  RenderThread& thread_;
  const CameraRays camera_;
  const Daylight daylight_;
  const GMathBbox3<double> box_;
  const double radius_;
  std::vector<Color> sums_;
  std::vector<float> coverage_;
  std::vector<ShadePoint> points_;
  std::vector<u8> is_lit_;
};

}  // namespace

void render_beauty(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                   RenderThread& thread, PictureLayer& layer) {
  BeautyTile(scene, settings, tile, thread).render(layer);
}
