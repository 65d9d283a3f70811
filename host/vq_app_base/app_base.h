// host/vq_app_base/app_base.h
//
// The application: its threads, its progress bars and the stop request of the user.
#pragma once
#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_core/core_types.h"
#include "vq_sys/sys_thread_manager.h"

/// Thrown by AppBase::check_stop(). Long operations catch it where they began.
struct VQ_EXPORT AppStopped {};

class VQ_EXPORT AppBase {
 public:
  /// Receives each new progress bar before its creator does, to set a sink on it.
  using ProgressBarHook = std::function<void(AppProgressBar&)>;

  /// One thread per hardware thread of the machine.
  AppBase();
  /// @param thread_count threads in all, the calling one included; clamped to the thread manager's range
  explicit AppBase(uint thread_count);
  /// Destroys the bars that were never finished.
  virtual ~AppBase();
  AppBase(const AppBase&) = delete;
  AppBase& operator=(const AppBase&) = delete;

  SysThreadManager& get_thread_manager() const { return thread_manager_; }
  uint get_thread_count() const { return thread_manager_.get_thread_count(); }
  uint get_max_thread_count() const { return thread_manager_.get_max_thread_count(); }
  /// Limits the number of threads that work is divided for.
  void set_max_thread_count(uint count) { thread_manager_.set_max_thread_count(count); }

  /// A new bar, which lives until its finish(). Never null; throws std::bad_alloc. Thread-safe.
  AppProgressBar* create_progress_bar(const CoreString& title);
  /// Sets the callback that receives new bars; empty: none. The hook is called on the thread that creates the bar, and
  /// on several threads at once if several create bars. Thread-safe.
  void set_progress_bar_hook(ProgressBarHook hook);

  /// Requests all long operations to end early: builds then leave an empty structure. Valid until it is cleared.
  /// Thread-safe, and safe in a signal handler.
  void request_stop() { stop_requested_.store(true, std::memory_order_relaxed); }
  void clear_stop_request() { stop_requested_.store(false, std::memory_order_relaxed); }
  bool is_stop_requested() const { return stop_requested_.load(std::memory_order_relaxed); }
  /// To be called by long operations at least every few milliseconds: throws AppStopped after a stop request.
  void check_stop() const {
    if (is_stop_requested()) throw AppStopped();
  }

 private:
  friend class AppProgressBar;
  void remove_progress_bar(AppProgressBar* bar);

  // Mutable: a const application gives access to its threads. The manager is thread-safe.
  mutable SysThreadManager thread_manager_;
  std::atomic<bool> stop_requested_ = false;
  std::mutex mutex_;  // guards what follows
  std::vector<AppProgressBar*> progress_bars_;
  ProgressBarHook progress_bar_hook_;
};
