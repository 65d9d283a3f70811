// tools/vqgas/support/progress_display.h
//
// Shows the application's progress bars as one line on a terminal, and keeps the seconds that each task took. Bars that
// are created while another one is open, as by builds on other threads, are not shown; their time counts for its task.
#pragma once
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "vq_app_base/app_base.h"

/// Time spent in the tasks of one name, without their nested tasks.
struct TaskSeconds {
  std::string task;
  double seconds = 0.0;
};

class ProgressDisplay {
 public:
  /// Sets the application's progress bar hook; the application must outlive it. `visible`: draw on standard error.
  ProgressDisplay(AppBase& application, bool visible);
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  /// Name of one step of the following bars, for the rate, e.g. "pixels". Empty: no rate is shown.
  void set_unit(const std::string& unit) { unit_ = unit; }
  /// Seconds by task since the last call, in the order in which they began.
  std::vector<TaskSeconds> take_task_seconds();

 private:
  using Clock = std::chrono::steady_clock;
  void receive(const AppProgressReport& report);
  void keep_time(const AppProgressReport& report, Clock::time_point now);
  void draw(const AppProgressReport& report, Clock::time_point now);
  void clear_line();

  AppBase& application_;
  const bool visible_;
  std::string unit_;
  std::string task_;
  Clock::time_point bar_begin_, task_begin_, last_draw_;
  std::atomic<bool> has_bar_ = false;  ///< one is followed
  bool bar_open_ = false, line_drawn_ = false;
  std::vector<TaskSeconds> seconds_;
};

/// True if standard error is a terminal and `quiet` is not set.
bool is_progress_visible(bool quiet);
