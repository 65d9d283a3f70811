// tools/vqgas/render/render.h
//
// From a scene and a camera to a picture. The picture is cut into tiles, each a task for the thread pool; a thread
// works with a shading context and packets of its own. Every pixel depends on its own place only, so that the picture
// is the same for any number of threads.
#pragma once
#include <atomic>
#include <vector>

#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/camera.h"
#include "tools/vqgas/scene/query_scene.h"

struct RenderSettings {
  uint width = 0, height = 0;
  uint samples = 16;  ///< rays per pixel of beauty; the other layers show the middle of the pixel
  std::vector<Layer> layers;
  Camera camera;
  double shutter_open = 0.0, shutter_close = 0.0;
  bool has_floor = false;  ///< beauty stands on an endless floor
};

/// How many rays were asked for what.
struct RayCounts {
  u64 camera = 0, shadow = 0, ambient = 0, all_hits = 0;
  u64 get_sum() const { return camera + shadow + ambient + all_hits; }
  void add(const RayCounts& more);
};

/// What one thread needs to render tiles.
struct RenderThread {
  CtxShader shader;
  GeometryRayPacket camera_rays, ambient_rays, shadow_rays;
  std::vector<GeometryRayVisits> visits;
  RayCounts counts;
};

struct RenderTile {
  uint left, top, right, bottom;
  uint get_pixel_count() const { return (right - left) * (bottom - top); }
  // Ray r of the tile's packet belongs to the r-th pixel, row by row.
  uint get_x(uint ray) const { return left + ray % (right - left); }
  uint get_y(uint ray) const { return top + ray / (right - left); }
  /// Into the channels of a picture `width` wide.
  std::size_t get_pixel(uint ray, uint width) const { return std::size_t{get_y(ray)} * width + get_x(ray); }
};

/// Renders all wanted layers. `progress` steps once a pixel; null for none.
Picture render_picture(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                       RayCounts& counts);

/// Adds the samples of `beauty` to the picture's layer, for the pixels of one tile.
void render_beauty(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                   RenderThread& thread, PictureLayer& layer);
/// Fills all layers but beauty, for the pixels of one tile.
void render_data_layers(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                        RenderThread& thread, Picture& picture);
