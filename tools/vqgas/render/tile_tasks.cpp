#include "tools/vqgas/render/tile_tasks.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "tools/vqgas/support/interrupt.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

/// Large enough to hide the fixed cost of a packet, small enough that the last tiles end together.
constexpr uint tile_size = 32;

struct TileJob {
  const std::function<void(const RenderTile&, uint thread)>& work;
  AppProgressBar* progress;
  std::atomic<uint> pixels_done = 0;
};

class TileTask final : public SysThreadTask {
 public:
  TileTask(TileJob& job, const RenderTile& tile) : job_(job), tile_(tile) { flags = counted | for_waiter; }

  void run(const uint& thread_index) override {
    if (is_interrupted()) return;
    job_.work(tile_, thread_index);
    const uint done = job_.pixels_done += tile_.get_pixel_count();
    if (job_.progress != nullptr) job_.progress->step(done);
  }

 private:
  TileJob& job_;
  const RenderTile tile_;
};

}  // namespace

void run_tiles(const OfApp& application, uint width, uint height, AppProgressBar* progress,
               const std::function<void(const RenderTile&, uint thread)>& work) {
  TileJob job{work, progress, {}};
  if (progress != nullptr) progress->set_step_count(width * height);
  std::vector<std::unique_ptr<TileTask>> tasks;
  for (uint top = 0; top < height; top += tile_size) {
    for (uint left = 0; left < width; left += tile_size) {
      const RenderTile tile{left, top, std::min(left + tile_size, width), std::min(top + tile_size, height)};
      tasks.push_back(std::make_unique<TileTask>(job, tile));
    }
  }
  SysThreadTaskManager group(application.get_thread_manager());
  for (const auto& task : tasks) group.add_task(task.get());
  group.wait_until_completed(true);
  throw_if_interrupted();
}
