// host/vq_sys/sys_thread_task_manager.h
//
// A group of tasks that one caller adds and waits for. A waiting thread runs queued tasks of this group only. It must
// run them: it may hold a lock on which every worker is blocked, and then no other thread could. It must not run tasks
// of another group: such a task might wait for the same lock, which would be a deadlock.
#pragma once
#include <condition_variable>
#include <mutex>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class SysThreadManager;
class SysThreadTask;

class VQ_EXPORT SysThreadTaskManager {
 public:
  explicit SysThreadTaskManager(SysThreadManager& manager);
  /// Drops queued tasks and waits for those that run. Not to be called from a task of the group.
  ~SysThreadTaskManager();
  SysThreadTaskManager(const SysThreadTaskManager&) = delete;
  SysThreadTaskManager& operator=(const SysThreadTaskManager&) = delete;

  uint get_thread_count() const;
  uint get_max_thread_count() const;

  /// Queues a task. The caller owns it; it must exist until it has run or was dropped, and be in one queue at a time.
  /// Null is ignored. Never allocates and never fails. Thread-safe; a running task may add tasks to its own group.
  void add_task(SysThreadTask* task);
  /// Returns when no counted task is queued or running. With `help` the calling thread runs tasks of the group
  /// meanwhile: under its own index, or as a guest. Without it the thread only waits, except in a manager without
  /// workers, where no other thread would run them. Not to be called from a task of the same group. Thread-safe.
  void wait_until_completed(const bool& help);
  /// Drops every queued task that has not started, and any added from now on; running tasks go on. Thread-safe.
  void shutdown();

 private:
  friend class SysThreadManager;
  enum class Taker { worker, waiter, waiter_without_workers };

  /// Runs the next task this taker may have. False when there is none. The lock is held on entry and on return and is
  /// open while the task runs.
  bool run_next(std::unique_lock<std::mutex>& lock, uint index, Taker taker);
  SysThreadTask* take_next(Taker taker);
  void drop_queue();
  /// Into the manager's list of groups with work, by age, and out of it.
  void link();
  void unlink();
  bool is_completed(Taker taker) const;

  SysThreadManager& manager_;
  // All guarded by the manager's mutex.
  SysThreadTask* first_ = nullptr;  // queued tasks
  SysThreadTask* last_ = nullptr;
  SysThreadTaskManager* newer_ = nullptr;  // the next group with work
  std::condition_variable changed_;        // a task was added or ended
  u64 age_ = 0;                            // number of the group, in order of creation
  uint running_ = 0;                       // tasks that run, counted or not
  uint pending_ = 0;                       // counted tasks, queued or running
  bool shut_down_ = false;
};
