// tools/vqgas/render/render_points.cpp
//
// One beam a pixel finds the nearest point in front of the surface there: a sample. A sample is drawn as a disc that
// faces the eye, tile by tile; the nearest disc of a pixel is seen.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "tools/vqgas/render/point_shading.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_app_base/app_progress_scope.h"

namespace {

constexpr double least_radius = 0.5;

struct PointSample {
  GMathVec3<float> place;  ///< to the right, upwards, depth, from the eye
  float radius = 0.0f;     ///< of the disc, in pixels; 0 until it is chosen for points without a radius
  float weight = 0.0f;
  uint object = no_number, point = 0;

  bool is_found() const { return object != no_number; }
};

class PointPicture {
 public:
  PointPicture(const QueryScene& scene, const RenderSettings& settings, std::vector<RenderThread>& threads,
               Picture& picture)
      : scene_(scene),
        settings_(settings),
        threads_(threads),
        picture_(picture),
        camera_(settings.camera, settings.width, settings.height),
        daylight_(settings.camera),
        samples_(std::size_t{settings.width} * settings.height) {
    if (scene.has_surfaces()) limits_.assign(samples_.size(), no_depth);
  }

  void render(AppProgressBar* progress) {
    run("Find points", 0.7, progress, &PointPicture::find_samples);
    note_radii();
    note_depths();
    if (picture_.find(Layer::beauty) != nullptr || picture_.find(Layer::normal) != nullptr) {
      surfaces_.resize(samples_.size());
      run("Estimate normals", 0.2, progress, &PointPicture::fit_surfaces);
    }
    run("Draw points", 0.1, progress, &PointPicture::draw);
  }

 private:
  using Work = void (PointPicture::*)(const RenderTile&, uint thread);

  void run(const char* task, double weight, AppProgressBar* progress, Work work) {
    const AppProgressScope stage(progress, task, weight);
    run_tiles(scene_.get_application(), settings_.width, settings_.height, progress,
              [&](const RenderTile& tile, uint thread) { (this->*work)(tile, thread); });
  }

  /// Calls `visit` with the samples of the pixels around (x, y), itself among them.
  template <class Visit>
  void visit_window(uint x, uint y, uint reach, const Visit& visit) const {
    for (uint row = y - std::min(y, reach); row <= std::min(y + reach, settings_.height - 1); ++row)
      for (uint column = x - std::min(x, reach); column <= std::min(x + reach, settings_.width - 1); ++column)
        visit(samples_[std::size_t{row} * settings_.width + column]);
  }

  /// Depths of the surfaces through the centers of the pixels.
  void find_limits(const RenderTile& tile, RenderThread& thread) {
    GeometryRayPacket& packet = thread.camera_rays;
    packet.resize(tile.get_pixel_count());
    const double time = 0.5 * (settings_.shutter_open + settings_.shutter_close);
    for (uint ray = 0; ray < packet.get_count(); ++ray)
      packet.set_ray(ray, camera_.get_eye(), camera_.get_direction(tile.get_x(ray) + 0.5, tile.get_y(ray) + 0.5), 0.0,
                     DBL_MAX, time);
    scene_.find_nearest(thread.shader, packet);
    thread.counts.camera += packet.get_count();
    for (uint ray = 0; ray < packet.get_count(); ++ray)
      if (scene_.get_nearest(packet, ray))
        limits_[tile.get_pixel(ray, settings_.width)] = static_cast<float>(packet.get_nearest(ray).distance);
  }

  void set_beam(uint x, uint y, double limit, GeometryRayFrustumBeam& beam) const {
    const GMathVec3<double> corners[4] = {camera_.get_direction(x, y), camera_.get_direction(x + 1.0, y),
                                          camera_.get_direction(x + 1.0, y + 1.0), camera_.get_direction(x, y + 1.0)};
    beam.set_perspective(camera_.get_eye(), camera_.get_direction(x + 0.5, y + 0.5), corners, 0.0, limit);
  }

  void find_samples(const RenderTile& tile, uint index) {
    RenderThread& thread = threads_[index];
    if (!limits_.empty()) find_limits(tile, thread);
    const uint count = tile.get_pixel_count();
    thread.beams.resize(count);
    thread.records.resize(count);
    for (uint beam = 0; beam < count; ++beam) {
      const float limit = limits_.empty() ? no_depth : limits_[tile.get_pixel(beam, settings_.width)];
      set_beam(tile.get_x(beam), tile.get_y(beam), std::isfinite(limit) ? double(limit) : DBL_MAX, thread.beams[beam]);
    }
    GeometryRayFrustumCtx query;
    query.begin(thread.beams.data(), thread.records.data(), count);
    scene_.find_points(thread.shader, query);
    thread.counts.beams += count;
    for (uint beam = 0; beam < count; ++beam) {
      const std::optional<ScenePoint> point = scene_.get_point(thread.records[beam]);
      if (point) set_sample(*point, thread.records[beam], samples_[tile.get_pixel(beam, settings_.width)]);
    }
  }

  void set_sample(const ScenePoint& point, const GeometryRayFrustumRecord& record, PointSample& sample) const {
    const GMathVec3<double> place = camera_.get_place(point.position);
    if (!(place.z > 1e-30)) return;  // at the eye: it has no place in the picture
    double radius = 0.5 * settings_.point_size;
    if (point.cloud->has_radii && !(settings_.point_size > 0.0)) {
      const GMathMatrix4x4<double>& matrix = scene_.get_objects().objects[point.object]->get_global_matrix();
      radius = point.cloud->particles->get_radius(point.point) * std::cbrt(std::fabs(matrix.get_determinant())) /
               (place.z * camera_.get_pixel_width());
      if (!(radius > least_radius)) radius = least_radius;  // also if it is NaN
    }
    sample = {GMathVec3<float>(place), static_cast<float>(radius), static_cast<float>(record.weight), point.object,
              point.point};
  }

  /// The part of pixels with a sample around a pixel with one; at a third of the latter it is less.
  double measure_density() const {
    constexpr uint reach = 4, most_tests = 20000;
    std::vector<uint> found;
    for (uint pixel = 0; pixel < samples_.size(); ++pixel)
      if (samples_[pixel].is_found()) found.push_back(pixel);
    std::vector<double> parts;
    for (std::size_t k = 0; k < found.size(); k += 1 + found.size() / most_tests) {
      double pixels = 0.0, filled = 0.0;
      visit_window(found[k] % settings_.width, found[k] / settings_.width, reach, [&](const PointSample& sample) {
        pixels += 1.0;
        filled += sample.is_found() ? 1.0 : 0.0;
      });
      parts.push_back(filled / pixels);
    }
    if (parts.empty()) return 0.0;
    const auto third = parts.begin() + static_cast<std::ptrdiff_t>(parts.size() / 3);
    std::nth_element(parts.begin(), third, parts.end());
    return *third;
  }

  /// Diameter of points without a radius, in pixels: discs of points that are spread at random over a surface then
  /// cover 95 % of it.
  double choose_size() const {
    constexpr double covered = 0.95, most = 6.0;
    const double points_per_pixel = -std::log1p(-std::fmin(measure_density(), 0.999));
    return std::clamp(std::sqrt(-std::log1p(-covered) / (0.25 * std::numbers::pi * points_per_pixel)), 1.0, most);
  }

  /// Sorts samples with large discs by depth: tiles look through all of them, and stop once they are covered.
  void note_radii() {
    constexpr float large = 16.0f;
    const auto chosen = static_cast<float>(0.5 * choose_size());
    for (PointSample& sample : samples_)
      if (!(sample.radius > 0.0f)) sample.radius = chosen;
    float reach = 0.0f;
    for (uint pixel = 0; pixel < samples_.size(); ++pixel) {
      if (samples_[pixel].radius > large) {
        large_.push_back(pixel);
      } else {
        reach = std::max(reach, samples_[pixel].radius);
      }
    }
    reach_ = static_cast<uint>(std::ceil(reach)) + 1;
    std::stable_sort(large_.begin(), large_.end(),
                     [&](uint a, uint b) { return samples_[a].place.z < samples_[b].place.z; });
  }

  /// The range of depths for colors, without outliers.
  void note_depths() {
    std::vector<float> depths;
    for (const PointSample& sample : samples_)
      if (sample.is_found()) depths.push_back(sample.place.z);
    if (depths.empty()) return;
    const auto find = [&](double part) {
      const auto place = depths.begin() + static_cast<std::ptrdiff_t>(part * double(depths.size() - 1));
      std::nth_element(depths.begin(), place, depths.end());
      return *place;
    };
    nearest_ = find(0.005);
    farthest_ = find(0.995);
  }

  /// Estimates the normals of the samples of a tile from those around each.
  void fit_surfaces(const RenderTile& tile, uint /*thread*/) {
    if (is_interrupted()) return;
    for (uint k = 0; k < tile.get_pixel_count(); ++k) {
      const std::size_t pixel = tile.get_pixel(k, settings_.width);
      if (samples_[pixel].is_found()) surfaces_[pixel] = fit_surface(tile.get_x(k), tile.get_y(k), samples_[pixel]);
    }
  }

  PointPlane::Surface fit_surface(uint x, uint y, const PointSample& sample) const {
    constexpr uint least = 3, most = 8;
    const uint reach = std::clamp(static_cast<uint>(3.0f * std::fmin(sample.radius, most)), least, most);
    // Samples this much nearer or farther belong to other surfaces.
    constexpr double steepest = 3.0;
    const double most_depth = steepest * reach * camera_.get_pixel_width() * double(sample.place.z);
    PointPlane plane;
    visit_window(x, y, reach, [&](const PointSample& other) {
      const GMathVec3<double> offset(other.place - sample.place);
      if (other.is_found() && std::fabs(offset.z) <= most_depth) plane.add(offset);
    });
    return plane.fit();
  }

  /// The part of the picture that one tile draws: the sample seen in each pixel.
  struct Canvas {
    const RenderTile& tile;
    std::vector<uint> seen;     ///< [pixel of the tile] a sample, or none
    std::vector<float> depths;  ///< [pixel of the tile]
    uint free_count;            ///< pixels without a sample
  };

  void draw(const RenderTile& tile, uint /*thread*/) {
    const uint count = tile.get_pixel_count();
    Canvas canvas{tile, std::vector<uint>(count, no_number), std::vector<float>(count, no_depth), count};
    if (!limits_.empty())
      for (uint k = 0; k < count; ++k) canvas.depths[k] = limits_[tile.get_pixel(k, settings_.width)];
    for (const uint pixel : large_) {
      if (canvas.free_count == 0) break;
      draw_disc(pixel, canvas);
    }
    const uint bottom = std::min(tile.bottom + reach_, settings_.height),
               right = std::min(tile.right + reach_, settings_.width);
    for (uint row = tile.top - std::min(tile.top, reach_); row < bottom && !is_interrupted(); ++row) {
      for (uint column = tile.left - std::min(tile.left, reach_); column < right; ++column) {
        const std::size_t pixel = std::size_t{row} * settings_.width + column;
        if (samples_[pixel].is_found()) draw_disc(static_cast<uint>(pixel), canvas);
      }
    }
    for (uint k = 0; k < count; ++k)
      if (canvas.seen[k] != no_number) put(tile.get_pixel(k, settings_.width), canvas.seen[k]);
  }

  void draw_disc(uint pixel, Canvas& canvas) const {
    const PointSample& sample = samples_[pixel];
    const double scale = 1.0 / (camera_.get_pixel_width() * double(sample.place.z)), radius = double(sample.radius);
    const double x = 0.5 * settings_.width + double(sample.place.x) * scale,
                 y = 0.5 * settings_.height - double(sample.place.y) * scale;
    const RenderTile& tile = canvas.tile;
    // The first and last pixel whose center may lie in the disc.
    const auto first = [](double low, uint bound) { return static_cast<uint>(std::clamp(low, double(bound), 1e9)); };
    const auto end = [](double high, uint bound) { return static_cast<uint>(std::clamp(high, 0.0, double(bound))); };
    const uint right = end(x + radius + 1.0, tile.right), bottom = end(y + radius + 1.0, tile.bottom);
    for (uint row = first(y - radius - 0.5, tile.top); row < bottom; ++row) {
      for (uint column = first(x - radius - 0.5, tile.left); column < right; ++column) {
        const double dx = column + 0.5 - x, dy = row + 0.5 - y;
        const bool is_own = std::size_t{row} * settings_.width + column == pixel;
        if (!is_own && dx * dx + dy * dy > radius * radius) continue;
        const uint k = (row - tile.top) * (tile.right - tile.left) + column - tile.left;
        if (!(sample.place.z < canvas.depths[k])) continue;
        if (canvas.seen[k] == no_number) --canvas.free_count;
        canvas.seen[k] = pixel;
        canvas.depths[k] = sample.place.z;
      }
    }
  }

  /// Writes what all layers show of a sample to a pixel.
  void put(std::size_t pixel, uint seen) {
    const PointSample& sample = samples_[seen];
    for (PictureLayer& layer : picture_.layers) {
      // They count what rays do, which pass points.
      if (layer.layer == Layer::heat || layer.layer == Layer::count) continue;
      clear_pixel(layer, pixel);
      const auto put_values = [&](const GMathVec3<double>& values) {
        for (uint axis = 0; axis < 3; ++axis) layer.channels[axis].values[pixel] = static_cast<float>(values[axis]);
      };
      switch (layer.layer) {
        case Layer::beauty:
          put_values(GMathVec3<double>(get_color(seen)));
          layer.channels[3].values[pixel] = 1.0f;
          break;
        case Layer::depth:
          layer.channels[0].values[pixel] = sample.place.z;
          break;
        case Layer::normal:
          put_values(camera_.get_world_direction(GMathVec3<double>(surfaces_[seen].normal)));
          break;
        case Layer::position:
          put_values(camera_.get_eye() + camera_.get_world_direction(GMathVec3<double>(sample.place)));
          break;
        case Layer::weight:
          layer.channels[0].values[pixel] = sample.weight;
          break;
        case Layer::point:
          layer.channels[0].numbers[pixel] = sample.point;
          break;
        case Layer::object:
        case Layer::instance_path:
          layer.channels[0].numbers[pixel] = sample.object;
          break;
        default:
          break;
      }
    }
  }

  Color get_color(uint seen) const {
    const PointSample& sample = samples_[seen];
    const SceneCloud& cloud = *scene_.get_cloud(sample.object);
    const PointPlane::Surface& surface = surfaces_[seen];
    const Color light =
        get_point_light(daylight_, camera_.get_world_direction(GMathVec3<double>(surface.normal)), surface.flatness);
    const Color albedo = cloud.colors.empty() ? get_depth_color((sample.place.z - nearest_) / (farthest_ - nearest_))
                                              : color_from_srgb(cloud.colors[sample.point]);
    return multiply(albedo, light);
  }

  const QueryScene& scene_;
  const RenderSettings& settings_;
  std::vector<RenderThread>& threads_;
  Picture& picture_;
  const CameraRays camera_;
  const Daylight daylight_;
  std::vector<PointSample> samples_;           ///< [pixel]
  std::vector<float> limits_;                  ///< [pixel] depth of the surface; empty for a scene without surfaces
  std::vector<PointPlane::Surface> surfaces_;  ///< [pixel] of the sample
  std::vector<uint> large_;                    ///< pixels of samples with large discs, nearest first
  uint reach_ = 0;                             ///< pixels that the other discs reach
  float nearest_ = 0.0f, farthest_ = 1.0f;     ///< depths
};

}  // namespace

void render_points(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                   std::vector<RenderThread>& threads, Picture& picture) {
  PointPicture(scene, settings, threads, picture).render(progress);
}
