#include "tools/vqgas/render/render.h"

#include <memory>

#include "tools/vqgas/support/interrupt.h"
#include "vq_app_base/app_base.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

/// Large enough to hide the fixed cost of a packet, small enough that the last tiles end together.
constexpr uint tile_size = 32;

/// Data shared by the tiles. Threads use the entry of their index, which no other uses at the same time: no lock.
struct RenderJob {
  const QueryScene& scene;
  const RenderSettings& settings;
  Picture& picture;
  AppProgressBar* progress;
  std::vector<std::unique_ptr<RenderThread>> threads;
  std::atomic<uint> pixels_done = 0;
};

class TileTask final : public SysThreadTask {
 public:
  TileTask(RenderJob& job, const RenderTile& tile) : job_(job), tile_(tile) { flags = counted | for_waiter; }

  void run(const uint& thread_index) override {
    if (is_interrupted()) return;
    std::unique_ptr<RenderThread>& thread = job_.threads[thread_index];
    if (thread == nullptr) {
      thread = std::make_unique<RenderThread>();
      job_.scene.prepare(thread->shader);
    }
    if (PictureLayer* beauty = job_.picture.find(Layer::beauty))
      render_beauty(job_.scene, job_.settings, tile_, *thread, *beauty);
    render_data_layers(job_.scene, job_.settings, tile_, *thread, job_.picture);
    const uint done = job_.pixels_done += tile_.get_pixel_count();
    if (job_.progress != nullptr) job_.progress->step(done);
  }

 private:
  RenderJob& job_;
  const RenderTile tile_;
};

}  // namespace

void RayCounts::add(const RayCounts& more) {
  camera += more.camera;
  shadow += more.shadow;
  ambient += more.ambient;
  all_hits += more.all_hits;
}

Picture render_picture(const QueryScene& scene, const RenderSettings& settings, AppProgressBar* progress,
                       RayCounts& counts) {
  Picture picture(settings.width, settings.height, settings.layers);
  SysThreadManager& pool = scene.get_application().get_thread_manager();
  RenderJob job{scene, settings, picture, progress, {}, {}};
  job.threads.resize(pool.get_index_count());
  if (progress != nullptr) {
    progress->begin_task("Render", 1.0);
    progress->set_step_count(settings.width * settings.height);
  }

  std::vector<std::unique_ptr<TileTask>> tasks;
  for (uint top = 0; top < settings.height; top += tile_size) {
    for (uint left = 0; left < settings.width; left += tile_size) {
      const RenderTile tile{left, top, std::min(left + tile_size, settings.width),
                            std::min(top + tile_size, settings.height)};
      tasks.push_back(std::make_unique<TileTask>(job, tile));
    }
  }
  SysThreadTaskManager group(pool);
  for (const auto& task : tasks) group.add_task(task.get());
  group.wait_until_completed(true);
  throw_if_interrupted();

  if (progress != nullptr) progress->end_task();
  for (const auto& thread : job.threads) {
    if (thread != nullptr) counts.add(thread->counts);
  }
  return picture;
}
