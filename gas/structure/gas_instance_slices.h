// gas/structure/gas_instance_slices.h
//
// The build stages of a structure over instances: a slice of the instances is a task.
#pragma once
#include "gas/frame/gas_tasks.h"
#include "vq_core/core_array.h"

/// Runs `count` instances in tasks, at most four per thread of the application, and returns the tasks in the order of
/// their instances. Throws std::bad_alloc or AppStopped.
/// @param prepare  sets the members of a task, except first and end
template <class Task, class Prepare>
CoreArray<Task> gas_run_instance_slices(const AppBase& app, uint count, const Prepare& prepare) {
  const uint slice_count = std::min(4 * app.get_max_thread_count(), count);
  const uint length = slice_count > 0 ? (count + slice_count - 1) / slice_count : 1;
  CoreArray<Task> tasks(gas_get_slice_count(count, length));
  gas_need(count == 0 || !tasks.is_empty());
  SysThreadTaskManager manager(app.get_thread_manager());
  gas_run_slices_in(tasks, manager, count, length, prepare);
  return tasks;
}
