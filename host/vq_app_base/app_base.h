// host/vq_app_base/app_base.h
//
// The application as libraries see it: its threads, its progress bars and the user's wish to stop.
#pragma once
#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_string.h"
#include "vq_core/core_types.h"
#include "vq_sys/sys_thread_manager.h"

/// Thrown by AppBase::check_stop(). Long operations catch it where they began.
struct AppStopped {};

class AppBase {
 public:
  /// Receives each new progress bar before its creator does, to set a sink on it.
  using ProgressBarHook = std::function<void(AppProgressBar&)>;

  /// As many threads as the machine runs at once.
  AppBase();
  /// @param thread_count threads in all, the calling one included; brought into the thread manager's bounds
  explicit AppBase(uint thread_count);
  /// Destroys the bars that were never finished.
  virtual ~AppBase();
  AppBase(const AppBase&) = delete;
  AppBase& operator=(const AppBase&) = delete;

  SysThreadManager& get_thread_manager() const { return thread_manager_; }
  uint get_thread_count() const { return thread_manager_.get_thread_count(); }
  uint get_max_thread_count() const { return thread_manager_.get_max_thread_count(); }
  /// Caps the number of threads for which work is cut.
  void set_max_thread_count(uint count) { thread_manager_.set_max_thread_count(count); }

  /// A new bar, which lives until its finish(). Never null; throws std::bad_alloc. Thread-safe.
  AppProgressBar* create_progress_bar(const CoreString& title);
  /// Sets who receives new bars; an empty hook for nobody. The hook is called on the thread that creates the bar, and
  /// on several threads at once if several create bars. Thread-safe.
  void set_progress_bar_hook(ProgressBarHook hook);

  /// Asks all long operations to end early: builds then leave an empty structure. Holds until it is cleared.
  /// Thread-safe, and safe in a signal handler.
  void request_stop() { stop_requested_.store(true, std::memory_order_relaxed); }
  void clear_stop_request() { stop_requested_.store(false, std::memory_order_relaxed); }
  bool is_stop_requested() const { return stop_requested_.load(std::memory_order_relaxed); }
  /// What a long operation calls at least every few milliseconds: throws AppStopped when it should end.
  void check_stop() const {
    if (is_stop_requested()) throw AppStopped();
  }

 private:
  friend class AppProgressBar;
  void remove_progress_bar(AppProgressBar* bar);

  // A constant application still lends its threads; the manager guards itself.
  mutable SysThreadManager thread_manager_;
  std::atomic<bool> stop_requested_ = false;
  std::mutex mutex_;  // guards what follows
  std::vector<AppProgressBar*> progress_bars_;
  ProgressBarHook progress_bar_hook_;
};
