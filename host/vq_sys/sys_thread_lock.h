// host/vq_sys/sys_thread_lock.h
//
// The lock that records shared between threads carry as a member. It belongs to the record's place in memory, not to
// its value: a copied record gets a fresh, open lock, and assigning a record leaves the lock as it is.
#pragma once
#include <mutex>

/// A plain mutex; locking it twice on one thread is an error.
class SysThreadLock {
 public:
  SysThreadLock() = default;
  SysThreadLock(const SysThreadLock&) {}
  SysThreadLock& operator=(const SysThreadLock&) { return *this; }  // NOLINT(bugprone-unhandled-self-assignment)

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

using SysThreadLockGuard = std::lock_guard<SysThreadLock>;
