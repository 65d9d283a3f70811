// tools/vqgas/render/render.h
//
// Renders a scene with a camera to a picture. The picture is divided into tiles, each a task for the thread pool; each
// thread has its own shading context and packets. Pixels do not depend on each other, so the picture is the same for
// any number of threads.
#pragma once
#include <atomic>
#include <vector>

#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/camera.h"
#include "tools/vqgas/scene/query_scene.h"

class GridParts;

struct RenderSettings {
  uint width = 0, height = 0;
  uint samples = 16;  ///< rays per pixel of beauty; the other layers use one through its center
  std::vector<Layer> layers;
  Camera camera;
  double shutter_open = 0.0, shutter_close = 0.0;
  const GridParts* parts = nullptr;  ///< for the layer parts
  bool has_floor = false;            ///< beauty stands on an endless floor
};

/// Number of rays by purpose.
struct RayCounts {
  u64 camera = 0, shadow = 0, ambient = 0, all_hits = 0;
  u64 get_sum() const { return camera + shadow + ambient + all_hits; }
  void add(const RayCounts& more);
};

/// Data of one thread for rendering tiles.
struct RenderThread {
  CtxShader shader;
  GeometryRayPacket camera_rays, ambient_rays, shadow_rays;
  std::vector<GeometryRayVisits> visits;
  RayCounts counts;
};

struct RenderTile {
  uint left, top, right, bottom;
  uint get_pixel_count() const { return (right - left) * (bottom - top); }
  // Ray r of the tile's packet is that of its r-th pixel, row by row.
  uint get_x(uint ray) const { return left + ray % (right - left); }
  uint get_y(uint ray) const { return top + ray / (right - left); }
  /// Index into the channels of a picture `width` wide.
  std::size_t get_pixel(uint ray, uint width) const { return std::size_t{get_y(ray)} * width + get_x(ray); }
};

/// Renders all layers of the settings. Throws Interrupted after a signal.
/// @param progress  one step a pixel, or null
Picture render_picture(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                       RayCounts& counts);

/// Renders the layer beauty for the pixels of one tile; incomplete after a signal.
void render_beauty(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                   RenderThread& thread, PictureLayer& layer);
/// Renders all other layers for the pixels of one tile.
void render_data_layers(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                        RenderThread& thread, Picture& picture);
