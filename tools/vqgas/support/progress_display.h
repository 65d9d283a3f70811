// tools/vqgas/support/progress_display.h
//
// Shows the application's progress bars as one line on a terminal, and keeps the seconds that each task took.
#pragma once
#include <chrono>
#include <string>
#include <vector>

#include "vq_app_base/app_base.h"

/// How long the tasks of one name ran, those within them left out.
struct TaskSeconds {
  std::string task;
  double seconds = 0.0;
};

class ProgressDisplay {
 public:
  /// Hooks itself into the application, which it must outlive. `visible`: draw the line on standard error.
  ProgressDisplay(AppBase& application, bool visible);
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  /// What the steps of the coming bars are, for the rate: "pixels", say. Empty: no rate is shown.
  void set_unit(const std::string& unit) { unit_ = unit; }
  /// Seconds by task since the last call, in the order of their beginnings.
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
  bool bar_open_ = false, line_drawn_ = false;
  std::vector<TaskSeconds> seconds_;
};

/// Whether to draw progress: standard error is a terminal and the user did not ask for quiet.
bool is_progress_wanted(bool quiet);
