// host/vq_sys/sys_thread_manager.h
//
// A pool of worker threads, and the indices of the threads that use it. In a manager with n threads:
//
//   0            the thread that created the manager
//   1 .. n-1     its workers
//   n .. n+63    guests: any other thread, for as long as it waits for a task group of this manager
//   0xFFFFFFFF   any other thread outside such a wait
//
// Several managers may live at once and one thread may be known to several of them: index 0 to each manager it created,
// a worker to one, a guest to another. get_index_of_current_thread() gives the index in one manager. The static
// get_current_thread_index() has no manager: it gives the index of the task that the thread is running, else its worker
// index, else 0 if the thread created a manager that still exists. Inside a task both are equal.
#pragma once
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class SysThreadTask;
class SysThreadTaskManager;

class VQ_EXPORT SysThreadManager {
 public:
  static constexpr uint guest_count = 64;
  static constexpr uint most_threads = 1024;

  /// Starts `thread_count` - 1 workers. The count is clamped to [1, most_threads]. If the system refuses a thread, the
  /// pool has fewer.
  explicit SysThreadManager(uint thread_count);
  /// Stops the workers. Every task group of this manager must be gone.
  ~SysThreadManager();
  SysThreadManager(const SysThreadManager&) = delete;
  SysThreadManager& operator=(const SysThreadManager&) = delete;

  /// Threads that run tasks: the creator and the workers.
  uint get_thread_count() const { return thread_count_; }
  /// The thread count, or the limit of set_max_thread_count() if it is lower: the number of threads to divide work for.
  uint get_max_thread_count() const;
  void set_max_thread_count(uint count) { max_thread_count_.store(count, std::memory_order_relaxed); }
  /// One past the largest index a task may run under: the size of a table with an entry per thread.
  uint get_index_count() const { return thread_count_ + guest_count; }

  /// See the head of this file. Thread-safe, no lock.
  static uint get_current_thread_index();
  /// The calling thread's index in this manager. Thread-safe, no lock.
  uint get_index_of_current_thread() const;

 private:
  friend class SysThreadTaskManager;

  /// For its lifetime, the current thread has the index `index` in `manager`. Scopes nest.
  struct IndexScope {
    IndexScope(const SysThreadManager* manager, uint index);
    ~IndexScope();
    IndexScope(const IndexScope&) = delete;
    IndexScope& operator=(const IndexScope&) = delete;
    const SysThreadManager* manager;
    uint index;
    const IndexScope* outer;
  };
  /// The number of existing managers that a thread has created; the pointer identifies the thread.
  using CreatorToken = std::shared_ptr<std::atomic<uint>>;

  /// The calling thread's token; null before it creates a manager, so that a query does not allocate.
  static CreatorToken& get_creator_token();
  void run_worker(uint index);
  /// A free guest index, core_invalid_index when all are taken. The mutex is held.
  uint borrow_guest_index();
  void return_guest_index(uint index);

  static thread_local const IndexScope* current_scope_;

  const CreatorToken creator_;
  uint thread_count_ = 1;
  std::atomic<uint> max_thread_count_;
  std::vector<std::thread> workers_;

  // Guards everything below and the queues of all groups of this manager. Tasks are long, so that one mutex is not a
  // bottleneck, and a group's queue changes together with the list of groups with work.
  std::mutex mutex_;
  std::condition_variable work_added_;
  SysThreadTaskManager* oldest_with_work_ = nullptr;  // workers serve the oldest group first
  u64 next_group_ = 0;
  u64 guests_taken_ = 0;  // one bit per guest
  bool stopping_ = false;
};
