// tools/vqgas/render/render.h
//
// Renders a scene with a camera to a picture. The picture is divided into tiles, each a task for the thread pool; each
// thread has its own shading context and packets. The picture is the same for any number of threads: rays and beams of
// a pixel do not depend on each other, and discs of points are drawn by the tile that they cover.
//
//   rays   -> surfaces -> layers
//   beams  -> samples [pixel] -> normals -> discs -> layers, in front of the surfaces
#pragma once
#include <vector>

#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/camera.h"
#include "tools/vqgas/render/tile_tasks.h"
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
  double point_size = 0.0;           ///< diameter of points in pixels; 0: their radius, or as suits their number
};

/// Number of rays by purpose.
struct RayCounts {
  u64 camera = 0, shadow = 0, ambient = 0, all_hits = 0, beams = 0;
  /// Without beams.
  u64 get_sum() const { return camera + shadow + ambient + all_hits; }
  void add(const RayCounts& more);
};

/// Data of one thread for rendering tiles.
struct RenderThread {
  CtxShader shader;
  GeometryRayPacket camera_rays, ambient_rays, shadow_rays;
  std::vector<GeometryRayVisits> visits;
  std::vector<GeometryRayFrustumBeam> beams;
  std::vector<GeometryRayFrustumRecord> records;
  RayCounts counts;
};

/// Renders all layers of the settings. Throws Interrupted after a signal.
/// @param progress  one step a pixel in each task, or null
Picture render_picture(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                       RayCounts& counts);

/// Renders the layer beauty for the pixels of one tile; incomplete after a signal.
void render_beauty(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                   RenderThread& thread, PictureLayer& layer);
/// Renders all other layers for the pixels of one tile.
void render_data_layers(const QueryScene& scene, const RenderSettings& settings, const RenderTile& tile,
                        RenderThread& thread, Picture& picture);
/// Draws the points of the scene into a picture of its surfaces.
/// @param threads  [index of a thread of the pool]
void render_points(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                   std::vector<RenderThread>& threads, Picture& picture);
