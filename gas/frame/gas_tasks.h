// gas/frame/gas_tasks.h
//
// Parallel stages: a range is divided into slices, each slice is a task, the caller waits for all tasks and reads the
// results in the order of the slices.
#pragma once
#include <algorithm>
#include <vector>

#include "gas/frame/gas_guard.h"
#include "vq_core/core_types.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

/// Items per slice when `count` items are divided into about four slices per thread: at least 1.
inline uint gas_get_slice_length(uint count, uint thread_count) {
  const u64 slices = u64{4} * thread_count;
  const u64 length = (count + slices - 1) / slices;
  return length > 0 ? static_cast<uint>(length) : 1;
}

/// The number of slices of `length` items that cover `count` items.
inline uint gas_get_slice_count(uint count, uint length) {
  return static_cast<uint>((u64{count} + length - 1) / length);
}

/// Base of the library's tasks: waited for, and allowed to run on the waiting thread. An exception is kept as the
/// task's outcome until the stage ends.
class GasTask : public SysThreadTask {
 public:
  GasTask() { flags = counted | for_waiter; }
  void run(const uint& thread_index) final {
    outcome_ = gas_try([&] { work(thread_index); });
  }
  GasOutcome get_outcome() const { return outcome_; }

 protected:
  virtual void work(const uint& thread_index) = 0;

 private:
  GasOutcome outcome_ = GasOutcome::done;
};

/// Runs an array of tasks on the application's threads, waits for all, and throws the exception of the first that
/// failed.
template <class Tasks>
void gas_run_tasks(SysThreadTaskManager& manager, Tasks& tasks) {
  for (auto& task : tasks) manager.add_task(&task);
  manager.wait_until_completed(true);
  for (const auto& task : tasks) gas_rethrow(task.get_outcome());
}

/// Sets `first` and `end` of each task to its slice of `length` of the `count` items, calls prepare(task) for the other
/// members, and runs the tasks with gas_run_tasks().
/// @param tasks  gas_get_slice_count() tasks; an empty array does nothing
template <class Tasks, class Prepare>
void gas_run_slices_in(Tasks& tasks, SysThreadTaskManager& manager, uint count, uint length, const Prepare& prepare) {
  uint first = 0;
  for (auto& task : tasks) {
    task.first = first;
    task.end = first = std::min(first + length, count);
    prepare(task);
  }
  gas_run_tasks(manager, tasks);
}

/// The same with an array of tasks that it creates.
/// @return the tasks in the order of their slices, with their results
template <class Task, class Prepare>
std::vector<Task> gas_run_slices(SysThreadTaskManager& manager, uint count, uint length, const Prepare& prepare) {
  std::vector<Task> tasks(gas_get_slice_count(count, length));
  gas_run_slices_in(tasks, manager, count, length, prepare);
  return tasks;
}
