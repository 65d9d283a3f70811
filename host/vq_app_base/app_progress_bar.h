// host/vq_app_base/app_progress_bar.h
//
// Progress of one long operation, reported as nested tasks with weights. A task's share of the whole is its weight
// times its parent's share; it starts where the tasks before it ended and fills with its steps:
//
//   |0 ------------------------------ operation ------------------------------ 1|
//   |------- boxes, 0.5 -------|--------------- tree, 0.5 ----------------------|
//                              |-- split, 0.9 of it --------------|-- 0.1 of it |
//
// One thread opens and closes tasks; any number of threads step the innermost one, in any order.
#pragma once
#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <mutex>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_core/core_types.h"

class AppBase;

/// One report to a sink.
struct AppProgressReport {
  CoreString title;
  CoreString task;     ///< name of the innermost task, empty outside any
  double fraction;     ///< of the whole operation, in [0, 1], never less than before
  uint step_position;  ///< of the innermost task
  uint step_count;     ///< of the innermost task, 0 when it has no steps
  bool is_finished;    ///< the last report of this bar
};

/// A task as it was opened, for the log of an operation.
struct AppProgressTask {
  CoreString name;
  double weight;  ///< as given
  uint step_count;
  uint depth;  ///< 0 for a task without a parent
};

class VQ_EXPORT AppProgressBar {
 public:
  /// Called from the thread that stepped, one call at a time, and never called again after a report with is_finished.
  /// Of the bar it reports on it may only call the functions named get_... What it throws is dropped.
  using Sink = std::function<void(const AppProgressReport&)>;

  AppProgressBar(const AppProgressBar&) = delete;
  AppProgressBar& operator=(const AppProgressBar&) = delete;

  AppBase& get_application() const { return application_; }
  const CoreString& get_title() const { return title_; }

  /// Opens a task within the innermost open one, or throws std::bad_alloc and opens none. A negative or NaN weight
  /// counts as 0. Weights may add up to more than 1: no task goes past the end of its parent, nor the total past 1.
  void begin_task(const CoreString& name, const double& weight);
  /// Steps of the innermost task; its position goes back to 0. 0 means that it has none and fills when it ends.
  void set_step_count(const uint& count);
  /// Sets the position of the innermost task, from 0 to its step count. A smaller one than before is ignored.
  /// Thread-safe; costs one read of a shared value, and more only about a thousand times a task.
  void step(const uint& position) {
    if (position >= next_position_.load(std::memory_order_relaxed)) advance(position);
  }
  /// Closes the innermost task, which is then full. Does nothing when none is open.
  void end_task();
  /// Makes the last report and destroys the bar.
  void finish();
  /// Fraction of the whole in [0, 1]; never falls. Thread-safe.
  double get_progress() const;

  /// Sets the sink, which is called at most once per `interval`, and once at the end. Thread-safe.
  void set_sink(Sink sink, std::chrono::milliseconds interval = std::chrono::milliseconds(100));
  /// Every task opened so far, in order. Thread-safe.
  std::vector<AppProgressTask> get_task_log() const;

 private:
  friend class AppBase;
  AppProgressBar(AppBase& application, const CoreString& title);
  ~AppProgressBar() = default;

  struct OpenTask {
    std::size_t log_index;
    double begin;  // of the whole
    double share;  // of the whole
    double limit;  // where it ends: within its parent, though the weights in there may add up to more than 1
    uint step_count = 0;
    uint position = 0;
  };
  using Clock = std::chrono::steady_clock;
  static constexpr u64 never = std::numeric_limits<u64>::max();

  void advance(uint position);
  // The mutex is held for these three.
  void raise_progress();
  void update_next_position();
  AppProgressReport make_report(bool is_finished) const;
  /// Calls the sink if the interval has passed; the mutex is not held.
  void report(bool is_finished) noexcept;

  AppBase& application_;
  const CoreString title_;
  std::atomic<u64> next_position_ = never;  // smallest step position that updates the progress

  mutable std::mutex mutex_;  // guards what follows
  std::vector<OpenTask> open_;
  std::vector<AppProgressTask> log_;
  double progress_ = 0.0;

  std::mutex sink_mutex_;  // guards what follows; taken before mutex_
  Sink sink_;
  std::chrono::milliseconds interval_{100};
  Clock::time_point last_report_ = Clock::now();
};
