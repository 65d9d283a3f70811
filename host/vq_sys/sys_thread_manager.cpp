// host/vq_sys/sys_thread_manager.cpp
#include "vq_sys/sys_thread_manager.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <system_error>

#include "vq_core/core_assert.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

static_assert(SysThreadManager::guest_count == 64, "one bit each in guests_taken_");

thread_local const SysThreadManager::IndexScope* SysThreadManager::current_scope_ = nullptr;

SysThreadManager::IndexScope::IndexScope(const SysThreadManager* manager, uint index)
    : manager(manager), index(index), outer(current_scope_) {
  current_scope_ = this;
}

SysThreadManager::IndexScope::~IndexScope() { current_scope_ = outer; }

SysThreadManager::CreatorToken& SysThreadManager::get_creator_token() {
  static thread_local CreatorToken token;
  return token;
}

SysThreadManager::SysThreadManager(uint thread_count)
    : creator_([] {
        CreatorToken& token = get_creator_token();
        if (!token) token = std::make_shared<std::atomic<uint>>(0);
        return token;
      }()),
      max_thread_count_(std::numeric_limits<uint>::max()) {
  creator_->fetch_add(1, std::memory_order_relaxed);
  thread_count = std::clamp(thread_count, 1u, most_threads);
  workers_.reserve(thread_count - 1);
  try {
    for (uint index = 1; index < thread_count; ++index) workers_.emplace_back([this, index] { run_worker(index); });
  } catch (const std::system_error&) {
    // Fewer workers give the same results later.
  }
  thread_count_ = static_cast<uint>(workers_.size()) + 1;
}

SysThreadManager::~SysThreadManager() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    CORE_ASSERT(oldest_with_work_ == nullptr);
    stopping_ = true;
  }
  work_added_.notify_all();
  for (std::thread& worker : workers_) worker.join();
  creator_->fetch_sub(1, std::memory_order_relaxed);
}

uint SysThreadManager::get_max_thread_count() const {
  return std::clamp(max_thread_count_.load(std::memory_order_relaxed), 1u, thread_count_);
}

uint SysThreadManager::get_current_thread_index() {
  if (current_scope_) return current_scope_->index;
  const CreatorToken& token = get_creator_token();
  return token && token->load(std::memory_order_relaxed) > 0 ? 0 : core_invalid_index;
}

uint SysThreadManager::get_index_of_current_thread() const {
  for (const IndexScope* scope = current_scope_; scope; scope = scope->outer)
    if (scope->manager == this) return scope->index;
  return creator_ == get_creator_token() ? 0 : core_invalid_index;
}

void SysThreadManager::run_worker(uint index) {
  const IndexScope scope(this, index);
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    work_added_.wait(lock, [this] { return stopping_ || oldest_with_work_ != nullptr; });
    if (oldest_with_work_ == nullptr) return;
    oldest_with_work_->run_next(lock, index, SysThreadTaskManager::Taker::worker);
  }
}

uint SysThreadManager::borrow_guest_index() {
  const int guest = std::countr_one(guests_taken_);
  if (guest == int(guest_count)) return core_invalid_index;
  guests_taken_ |= u64(1) << guest;
  return thread_count_ + uint(guest);
}

void SysThreadManager::return_guest_index(uint index) { guests_taken_ &= ~(u64(1) << (index - thread_count_)); }
