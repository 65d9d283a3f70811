#include "tools/vqgas/support/parallel.h"

#include <algorithm>
#include <vector>

#include "tools/vqgas/support/interrupt.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

class SliceTask final : public SysThreadTask {
 public:
  SliceTask(const std::function<void(uint, uint)>& work, uint first, uint end) : work_(work), first_(first), end_(end) {
    flags = counted | for_waiter;
  }
  void run(const uint& /*thread_index*/) override {
    if (!is_interrupted()) work_(first_, end_);
  }

 private:
  const std::function<void(uint, uint)>& work_;
  const uint first_, end_;
};

}  // namespace

void run_slices(OfApp* application, uint count, uint length, const std::function<void(uint first, uint end)>& work) {
  std::vector<SliceTask> tasks;
  for (uint first = 0; first < count; first += std::min(length, count - first))
    tasks.emplace_back(work, first, first + std::min(length, count - first));
  if (application == nullptr) {
    for (SliceTask& task : tasks) task.run(0);
  } else {
    SysThreadTaskManager group(application->get_thread_manager());
    for (SliceTask& task : tasks) group.add_task(&task);
    group.wait_until_completed(true);
  }
  throw_if_interrupted();
}
