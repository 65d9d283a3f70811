// tools/vqgas/support/progress_display.h
//
// Shows the application's progress bars on standard error, and keeps the seconds that each task took: on a terminal as
// one line that is drawn over and ends at 100 %; in a file or a pipe, or where TERM is "dumb", as a plain line each 10
// % of what takes longer than two seconds. Nothing is colored. Bars that are created while another one is open, as by
// builds on other threads, are not shown; their time counts for its task.
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
  /// Sets the application's progress bar hook; the application must outlive it.
  ProgressDisplay(AppBase& application, bool is_visible);
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
  void show(const AppProgressReport& report, Clock::time_point now);
  void draw(const AppProgressReport& report, Clock::time_point now);
  void print(const AppProgressReport& report, Clock::time_point now);
  /// Rate and time, after the percentage.
  std::string describe(const AppProgressReport& report, Clock::time_point now, const std::string& between) const;
  void clear_line();

  AppBase& application_;
  const bool is_visible_, is_drawn_over_;
  std::string unit_;
  std::string task_;
  Clock::time_point bar_begin_, task_begin_, last_draw_;
  std::atomic<bool> has_bar_ = false;  ///< one is followed
  bool bar_open_ = false, line_drawn_ = false;
  int tenths_printed_ = 0;
  std::vector<TaskSeconds> seconds_;
};
