// host/vq_sys/sys_thread_task_manager.cpp
#include "vq_sys/sys_thread_task_manager.h"

#include <chrono>
#include <optional>

#include "vq_core/core_assert.h"
#include "vq_sys/sys_thread_manager.h"
#include "vq_sys/sys_thread_task.h"

SysThreadTaskManager::SysThreadTaskManager(SysThreadManager& manager) : manager_(manager) {
  const std::lock_guard<std::mutex> guard(manager_.mutex_);
  age_ = manager_.next_group_++;
}

SysThreadTaskManager::~SysThreadTaskManager() {
  std::unique_lock<std::mutex> lock(manager_.mutex_);
  shut_down_ = true;
  drop_queue();
  changed_.wait(lock, [this] { return running_ == 0; });
}

uint SysThreadTaskManager::get_thread_count() const { return manager_.get_thread_count(); }

uint SysThreadTaskManager::get_max_thread_count() const { return manager_.get_max_thread_count(); }

void SysThreadTaskManager::add_task(SysThreadTask* task) {
  if (!task) return;
  const std::lock_guard<std::mutex> guard(manager_.mutex_);
  if (shut_down_) return;
  if (first_ == nullptr) link();
  (first_ == nullptr ? first_ : last_->next_) = task;
  last_ = task;
  task->next_ = nullptr;
  if (task->flags & SysThreadTask::counted) ++pending_;
  manager_.work_added_.notify_one();
  changed_.notify_all();  // not one: that one might be a waiter that does not help
}

void SysThreadTaskManager::wait_until_completed(const bool& help) {
  const bool no_workers = manager_.get_thread_count() == 1;
  const Taker taker = no_workers ? Taker::waiter_without_workers : Taker::waiter;
  uint index = manager_.get_index_of_current_thread();
  const bool is_guest = index == core_invalid_index;
  std::unique_lock<std::mutex> lock(manager_.mutex_);
  std::optional<SysThreadManager::IndexScope> scope;
  while (!is_completed(taker)) {
    if (!help && !no_workers) {
      changed_.wait(lock);
      continue;
    }
    if (index == core_invalid_index) {
      index = manager_.borrow_guest_index();
      if (index == core_invalid_index) {
        // More guests than indices. A freed index does not signal this group: poll.
        changed_.wait_for(lock, std::chrono::milliseconds(1));
        continue;
      }
    }
    // The thread's present task may belong to another manager; while it waits here this manager's index stands.
    if (!scope) scope.emplace(&manager_, index);
    if (!run_next(lock, index, taker)) changed_.wait(lock);
  }
  if (is_guest && index != core_invalid_index) manager_.return_guest_index(index);
}

void SysThreadTaskManager::shutdown() {
  const std::lock_guard<std::mutex> guard(manager_.mutex_);
  shut_down_ = true;
  drop_queue();
  changed_.notify_all();
}

bool SysThreadTaskManager::run_next(std::unique_lock<std::mutex>& lock, uint index, Taker taker) {
  SysThreadTask* task = take_next(taker);
  if (!task) return false;
  // Read before it runs: its owner may free it as soon as it has.
  const bool counted = (task->flags & SysThreadTask::counted) != 0;
  ++running_;
  lock.unlock();
  // In a destructor, so that it also runs when the task throws: else the group would wait forever.
  struct Ended {
    SysThreadTaskManager& group;
    std::unique_lock<std::mutex>& lock;
    bool counted;
    ~Ended() {
      lock.lock();
      --group.running_;
      if (counted) --group.pending_;
      // Signaled under the lock: once it opens, a waiter may destroy this group.
      if (group.pending_ == 0 || group.running_ == 0) group.changed_.notify_all();
    }
  } const ended{*this, lock, counted};
  task->run(index);
  return true;
}

SysThreadTask* SysThreadTaskManager::take_next(Taker taker) {
  SysThreadTask* before = nullptr;
  SysThreadTask* task = first_;
  for (; task != nullptr && taker == Taker::waiter && !(task->flags & SysThreadTask::for_waiter); task = task->next_)
    before = task;
  if (task == nullptr) return nullptr;
  (before == nullptr ? first_ : before->next_) = task->next_;
  if (last_ == task) last_ = before;
  if (first_ == nullptr) unlink();
  return task;
}

void SysThreadTaskManager::drop_queue() {
  if (first_ == nullptr) return;
  for (const SysThreadTask* task = first_; task != nullptr; task = task->next_)
    if (task->flags & SysThreadTask::counted) --pending_;
  first_ = last_ = nullptr;
  unlink();
}

// Few groups have work at a time: a linear search from the oldest is fast enough.
void SysThreadTaskManager::link() {
  SysThreadTaskManager** place = &manager_.oldest_with_work_;
  while (*place != nullptr && (*place)->age_ < age_) place = &(*place)->newer_;
  newer_ = *place;
  *place = this;
}

void SysThreadTaskManager::unlink() {
  SysThreadTaskManager** place = &manager_.oldest_with_work_;
  while (*place != this) place = &(*place)->newer_;
  *place = newer_;
}

bool SysThreadTaskManager::is_completed(Taker taker) const {
  return pending_ == 0 && (taker != Taker::waiter_without_workers || first_ == nullptr);
}
