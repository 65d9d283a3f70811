// host/vq_sys/sys_thread_lock.h
//
// A lock as a member of records that threads share. It is not part of the record's value: a copied record gets a new,
// unlocked lock, and assigning a record does not change the lock.
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
