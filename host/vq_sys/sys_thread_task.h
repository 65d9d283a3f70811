// host/vq_sys/sys_thread_task.h
//
// One piece of work for the thread pool. It carries its own range and its own results; the pool may run tasks in any
// order, so the caller combines results in the order of its tasks.
#pragma once
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class VQ_EXPORT SysThreadTask {
 public:
  static constexpr unsigned short counted = 0x0001;     ///< wait_until_completed() waits for this task
  static constexpr unsigned short for_waiter = 0x0100;  ///< the waiting thread may run it as well as the workers

  virtual ~SysThreadTask();
  /// Does the work. `thread_index` is the index under which this thread runs it: below the thread count for a worker
  /// and for the manager's creator, beyond for a guest. No two threads run under one index at a time.
  virtual void run(const uint& thread_index) = 0;

  /// The flags above. A task class sets both (0x0101) in its constructor; they must not change after the task was
  /// added.
  unsigned short flags = 0;

 private:
  friend class SysThreadTaskManager;
  SysThreadTask* next_ = nullptr;  // in its group's queue, so that queueing needs no memory
};
