#include "tools/vqgas/render/render.h"

#include "vq_app_base/app_progress_scope.h"

namespace {

/// Behind scenes that are points alone.
constexpr Color backdrop(0.0022f, 0.0024f, 0.0032f);

void fill_backdrop(PictureLayer& beauty) {
  for (uint channel = 0; channel < 3; ++channel) {
    std::vector<float>& values = beauty.channels[channel].values;
    values.assign(values.size(), backdrop[channel]);
  }
}

}  // namespace

void RayCounts::add(const RayCounts& more) {
  camera += more.camera;
  shadow += more.shadow;
  ambient += more.ambient;
  all_hits += more.all_hits;
  beams += more.beams;
}

Picture render_picture(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                       RayCounts& counts) {
  Picture picture(settings.width, settings.height, settings.layers);
  const OfApp& application = scene.get_application();
  // Threads use the entry of their index, which no other uses at the same time: no lock.
  std::vector<RenderThread> threads(application.get_thread_manager().get_index_count());
  for (RenderThread& thread : threads) scene.prepare(thread.shader);
  PictureLayer* beauty = picture.find(Layer::beauty);
  const bool has_rays = scene.has_surfaces() || settings.has_floor || picture.find(Layer::count) != nullptr;
  if (beauty != nullptr && !scene.has_surfaces() && !settings.has_floor) {
    fill_backdrop(*beauty);
    beauty = nullptr;
  }
  if (has_rays) {
    const AppProgressScope stage(progress, "Render", scene.has_points() ? 0.5 : 1.0);
    run_tiles(application, settings.width, settings.height, progress, [&](const RenderTile& tile, uint index) {
      if (beauty != nullptr) render_beauty(scene, settings, tile, threads[index], *beauty);
      render_data_layers(scene, settings, tile, threads[index], picture);
    });
  }
  if (scene.has_points()) {
    const AppProgressScope stage(progress, "Render points", has_rays ? 0.5 : 1.0);
    render_points(scene, settings, progress, threads, picture);
  }
  for (const RenderThread& thread : threads) counts.add(thread.counts);
  return picture;
}
