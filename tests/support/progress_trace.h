// tests/support/progress_trace.h
//
// What an operation says on its progress bar, as a text: a line for each stage, indented by depth, with its name, its
// weight and how many of its steps were told, then what the whole came to. For operations on one thread.
#pragma once
#include <algorithm>
#include <sstream>
#include <string>

#include "vq_app_base/app_progress_bar.h"

class ProgressTrace {
 public:
  /// Of a bar that reports to nobody else. The text is complete when the bar is finished.
  void watch(AppProgressBar& bar) {
    reached_.clear();
    const auto sink = [this, &bar](const AppProgressReport& report) {
      const std::vector<AppProgressTask> log = bar.get_task_log();
      reached_.resize(log.size());
      if (!log.empty()) reached_.back() = std::max(reached_.back(), report.step_position);
      if (report.is_finished) write(log, report);
    };
    bar.set_sink(sink, std::chrono::milliseconds(0));
  }
  const std::string& get_text() const { return text_; }

 private:
  void write(const std::vector<AppProgressTask>& log, const AppProgressReport& last) {
    std::ostringstream out;
    for (std::size_t k = 0; k < log.size(); ++k)
      out << std::string(log[k].depth, ' ') << log[k].name.get_data() << ' ' << log[k].weight << ' ' << reached_[k]
          << '/' << log[k].step_count << '\n';
    out << last.fraction << ' ' << last.task.get_data();  // the task that is still open: none
    text_ = out.str();
  }

  std::vector<uint> reached_;
  std::string text_;
};
