// tools/vqgas/render/render_beauty.cpp
//
// Beauty: per sample one ray through a random point of the pixel, at a random time of the shutter; from the surface
// point it hits, one ray to the sun (any hit is a shadow) and one around the normal (the nearest hit's color is
// indirect light). All rays of one kind in a tile are one packet.
//
// Hair too thin to look round scatters light like a thin cylinder (hair_shading.h); hair many pixels wide is shaded as
// a surface. In between each sample chooses one at random.
#include "tools/vqgas/render/daylight.h"
#include "tools/vqgas/render/hair_shading.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/random.h"

namespace {

using Vector = GMathVec3<double>;

/// A surface point hit by a camera ray, with its light so far.
struct ShadePoint {
  uint ray = 0;     // of the camera packet
  Vector position;  // on the smooth surface
  Vector normal, face_normal, view;
  Color albedo;
  double time = 0.0;
  float haze = 0.0f;    // blend weight of the sky's color
  Color light, gloss;   // light so far: multiplied by the albedo, and added as it is
  Vector sun, ambient;  // directions of its rays
  bool is_thin_hair = false;
  Vector tangent;  // of a hair
  double hair_radius = 0.0;
};

double get_hair_radius(const CurveSet& curves, const GeometryIntersection& hit, double time) {
  const double u = std::clamp(hit.u, 0.0, 1.0);  // the round ends lie beyond
  const CurveSet::MotionBlend blend = curves.get_motion_blend(time);
  const double radius = curves.get_shape() == CurveShape::linear
                            ? curves.get_segment<CurveShape::linear>(hit.primitive, blend).get_ball(u).radius
                            : curves.get_segment<CurveShape::cubic>(hit.primitive, blend).get_ball(u).radius;
  return std::fmax(radius, 0.0);
}

class BeautyTile {
 public:
  BeautyTile(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile, RenderThread& thread)
      : scene_(scene),
        settings_(settings),
        tile_(tile),
        thread_(thread),
        camera_(settings.camera, settings.width, settings.height),
        daylight_(settings.camera),
        pixel_(camera_.get_direction(1.0, 0.0) - camera_.get_direction(0.0, 0.0)),
        box_(scene.get_bbox()),
        radius_(0.5 * box_.get_extent().get_length()),
        sums_(tile.get_pixel_count()),
        coverage_(tile.get_pixel_count(), 0.0f) {}

  void render(PictureLayer& layer) {
    for (uint sample = 0; sample < settings_.samples && !is_interrupted(); ++sample) {
      trace_camera(sample);
      trace_shadows();
      trace_ambient();
      for (const ShadePoint& point : points_) {
        const Vector& direction = thread_.camera_rays.get_ray(point.ray).direction;
        const Color color = multiply(point.albedo, point.light) + point.gloss;
        sums_[point.ray] += mix(color, daylight_.get_sky(direction), point.haze);
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
  /// A random number by pixel, the same for all its samples.
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
        sums_[ray] += daylight_.get_sky(packet.get_ray(ray).direction);
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
    const double distance = thread_.camera_rays.get_nearest(ray).distance;
    point.ray = ray;
    point.time = source.time;
    point.view = -source.direction.get_normalized();
    double floor_distance = DBL_MAX;
    const uint up = settings_.camera.up_axis;
    if (settings_.has_floor && source.direction[up] < 0.0 && source.origin[up] > box_.min[up])
      floor_distance = (box_.min[up] - source.origin[up]) / source.direction[up];
    if (floor_distance < distance) return find_floor_point(source.get_point(floor_distance), point);
    const std::optional<SceneHit> hit = scene_.get_nearest(thread_.camera_rays, ray);
    if (!hit) return false;

    const GeometrySurfacePoint surface = scene_.get_surface_point(*hit, source.time);
    const bool from_behind = surface.normal.dot(point.view) < 0.0;
    point.face_normal = from_behind ? -surface.normal : surface.normal;
    point.normal = from_behind ? -surface.shading_normal : surface.shading_normal;
    if (!(point.normal.dot(point.face_normal) > 0.0)) point.normal = point.face_normal;
    point.position = scene_.get_smooth_position(*hit, source.time, from_behind) + point.face_normal * (1e-5 * radius_);
    point.albedo = scene_.get_group_colors()[hit->get_group()];
    coverage_[ray] += 1.0f;
    if (hit->shape->hair != nullptr) find_hair(*hit, surface, point);
    return true;
  }

  void find_hair(const SceneHit& found, const GeometrySurfacePoint& surface, ShadePoint& point) const {
    const TubeMeshFast& hair = *found.shape->hair;
    const GeometryIntersection& hit = *found.record;
    const double time = scene_.get_shape_time(point.time);
    point.hair_radius = get_hair_radius(hair.get_curves(), hit, time);
    point.tangent = hair.get_tangent(hit, time);
    if (found.transform != nullptr) {
      const GMathMatrix4x4<double>& matrix = found.transform->matrix;
      point.hair_radius *= std::cbrt(std::fabs(matrix.get_determinant()));
      point.tangent = matrix.transform_vector(point.tangent).get_normalized();
    }
    // The offset for surfaces may be wider than a hair.
    point.position = surface.position + point.face_normal * std::fmin(1e-5 * radius_, 0.02 * point.hair_radius);
    const uint strand = hair.get_curves().get_curve(hit.primitive);
    point.albedo = point.albedo * static_cast<float>(0.75 + 0.5 * random_unit(strand, 21));
    const double width = 2.0 * point.hair_radius / (hit.distance * pixel_.get_length());
    const double roundness = (width - 2.0) / 4.0;
    const uint chance = hash_bits(static_cast<uint>(std::fabs(hit.v) * 0x1p31) ^ hit.primitive);
    point.is_thin_hair = random_unit(chance, 22) >= roundness;
  }

  bool find_floor_point(const Vector& position, ShadePoint& point) const {
    const double away = (position - box_.get_center()).get_length() / (5.0 * radius_);
    Vector up;
    up[settings_.camera.up_axis] = 1.0;
    point.position = position + up * (1e-5 * radius_);
    point.normal = point.face_normal = up;
    point.albedo = floor_color;
    point.haze = static_cast<float>(1.0 - std::exp(-away * away));
    return true;
  }

  void trace_shadows() {
    GeometryRayPacket& packet = thread_.shadow_rays;
    packet.resize(static_cast<uint>(points_.size()));
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      const ShadePoint& point = points_[ray];
      // A surface that faces away from the sun is in shadow; its ray has an empty interval. A face of a smooth surface
      // may face away where the surface does not.
      const bool faces_sun = point.is_thin_hair || point.normal.dot(point.sun) > 0.0;
      const Vector origin = point.is_thin_hair ? get_sunny_side(point) : point.position;
      packet.set_ray(ray, origin, point.sun, 0.0, faces_sun ? DBL_MAX : -1.0, point.time, GMathRay::shadow);
      thread_.counts.shadow += faces_sun;
    }
    scene_.find_any(thread_.shader, packet);
    for (uint ray = 0; ray < packet.get_count(); ++ray) {
      if (!packet.has_hit(ray) && packet.get_ray(ray).tfar >= 0.0) add_sun(points_[ray]);
    }
  }

  /// Origin of the shadow ray: where the ray to the sun leaves the hair that the camera ray hit, so that the hair
  /// does not shadow itself.
  static Vector get_sunny_side(const ShadePoint& point) {
    const Vector axis = point.position - point.face_normal * point.hair_radius;
    const Vector across = (point.sun - point.tangent * point.tangent.dot(point.sun)).get_normalized();
    return axis + across * (1.05 * point.hair_radius);
  }

  void add_sun(ShadePoint& point) const {
    const Vector sun = point.sun.get_normalized();
    if (point.is_thin_hair) {
      const HairScattering scattering = scatter_at_hair(point.tangent, point.view, sun);
      point.light += daylight_.sun_color * static_cast<float>(scattering.diffuse + scattering.glow);
      point.gloss += daylight_.sun_color * static_cast<float>(scattering.highlight);
      return;
    }
    const Vector half = (point.view + daylight_.sun_direction).get_normalized();
    const double gloss = 0.25 * std::pow(std::fmax(0.0, point.normal.dot(half)), 48.0);
    point.light += daylight_.sun_color * static_cast<float>(point.normal.dot(sun) + gloss);
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

  /// The sky's color for a miss; else a part of the hit surface's color, as indirect light.
  Color get_ambient_light(uint ray) {
    constexpr float reflected_part = 0.3f;
    const GMathRay& source = thread_.ambient_rays.get_ray(ray);
    const std::optional<SceneHit> hit = scene_.get_nearest(thread_.ambient_rays, ray);
    if (hit) return scene_.get_group_colors()[hit->get_group()] * reflected_part;
    if (settings_.has_floor && source.direction[settings_.camera.up_axis] < 0.0)
      return floor_color * (2.0f * reflected_part);
    return daylight_.get_sky(source.direction);
  }

  static constexpr Color floor_color{0.62f, 0.60f, 0.57f};

  const QueryScene& scene_;
  const RenderSettings& settings_;
  const RenderTile& tile_;
  RenderThread& thread_;
  const CameraRays camera_;
  const Daylight daylight_;
  const Vector pixel_;  // its side at distance 1
  const GMathBbox3<double> box_;
  const double radius_;
  std::vector<Color> sums_;
  std::vector<float> coverage_;
  std::vector<ShadePoint> points_;
};

}  // namespace

void render_beauty(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                   RenderThread& thread, PictureLayer& layer) {
  BeautyTile(scene, settings, tile, thread).render(layer);
}
