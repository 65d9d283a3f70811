#include "tools/vqgas/support/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tools/vqgas/support/interrupt.h"

namespace {

std::string print_span(double seconds) {
  char text[32];
  const long whole = std::lround(seconds);
  if (whole < 60) {
    std::snprintf(text, sizeof(text), "%ld s", whole);
  } else {
    std::snprintf(text, sizeof(text), "%ld min %02ld s", whole / 60, whole % 60);
  }
  return text;
}

std::string print_rate(double rate, const std::string& unit) {
  char text[64];
  if (rate >= 1e6) {
    std::snprintf(text, sizeof(text), "%.2f M%s/s", rate * 1e-6, unit.c_str());
  } else if (rate >= 1e3) {
    std::snprintf(text, sizeof(text), "%.1f k%s/s", rate * 1e-3, unit.c_str());
  } else {
    std::snprintf(text, sizeof(text), "%.0f %s/s", rate, unit.c_str());
  }
  return text;
}

/// Whether standard error is a terminal that can clear a line.
bool can_draw_over() {
  const char* terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) != 0 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

/// The operation and its innermost task.
std::string get_stage(const AppProgressReport& report) {
  std::string stage = report.title.get_data();
  if (!report.task.is_empty() && report.task.get_view() != report.title.get_view())
    stage.append(": ").append(report.task.get_view());
  return stage;
}

/// Of the terminal; 80 when it does not tell.
std::size_t get_column_count() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

ProgressDisplay::ProgressDisplay(AppBase& application, bool is_visible)
    : application_(application), is_visible_(is_visible), is_drawn_over_(can_draw_over()) {
  // Every report is taken, for the times of short tasks; the line itself is drawn ten times a second at most.
  application_.set_progress_bar_hook([this](AppProgressBar& bar) {
    if (has_bar_.exchange(true)) return;
    bar.set_sink([this](const AppProgressReport& report) { receive(report); }, std::chrono::milliseconds(0));
  });
}

ProgressDisplay::~ProgressDisplay() {
  application_.set_progress_bar_hook({});
  clear_line();
}

std::vector<TaskSeconds> ProgressDisplay::take_task_seconds() { return std::move(seconds_); }

void ProgressDisplay::receive(const AppProgressReport& report) {
  const Clock::time_point now = Clock::now();
  if (!bar_open_) bar_begin_ = task_begin_ = last_draw_ = now, tenths_printed_ = 0;
  bar_open_ = !report.is_finished;
  keep_time(report, now);
  if (report.is_finished) has_bar_ = false;
  if (is_visible_ && !is_interrupted()) show(report, now);
  if (report.is_finished) clear_line();
}

void ProgressDisplay::show(const AppProgressReport& report, Clock::time_point now) {
  constexpr auto redraw = std::chrono::milliseconds(100);
  constexpr auto worth_a_line = std::chrono::seconds(2);
  if (!is_drawn_over_) {
    const int tenths = report.is_finished ? 10 : std::min(static_cast<int>(report.fraction * 10.0), 9);
    if (now - bar_begin_ < worth_a_line || tenths <= tenths_printed_) return;
    tenths_printed_ = tenths;
    print(report, now);
  } else if (report.is_finished ? line_drawn_ : now - last_draw_ >= redraw) {
    last_draw_ = now;
    draw(report, now);
  }
}

void ProgressDisplay::keep_time(const AppProgressReport& report, Clock::time_point now) {
  const std::string task = report.is_finished ? "" : report.task.get_data();
  if (task == task_) return;
  if (!task_.empty()) {
    const auto place = std::find_if(seconds_.begin(), seconds_.end(), [&](const auto& s) { return s.task == task_; });
    place->seconds += std::chrono::duration<double>(now - task_begin_).count();
  }
  const auto known = std::find_if(seconds_.begin(), seconds_.end(), [&](const auto& s) { return s.task == task; });
  if (!task.empty() && known == seconds_.end()) seconds_.push_back({task, 0.0});
  task_ = task;
  task_begin_ = now;
}

std::string ProgressDisplay::describe(const AppProgressReport& report, Clock::time_point now,
                                      const std::string& between) const {
  const double elapsed = std::chrono::duration<double>(now - bar_begin_).count();
  if (report.is_finished) return between + print_span(elapsed);
  std::string text;
  const double task_elapsed = std::chrono::duration<double>(now - task_begin_).count();
  if (!unit_.empty() && report.step_position > 0 && task_elapsed > 0.0)
    text += between + print_rate(report.step_position / task_elapsed, unit_);
  if (report.fraction > 0.0) text += between + print_span(elapsed * (1.0 / report.fraction - 1.0)) + " left";
  return text;
}

void ProgressDisplay::print(const AppProgressReport& report, Clock::time_point now) {
  std::fprintf(stderr, "progress: %s %d%%%s\n", get_stage(report).c_str(), tenths_printed_ * 10,
               describe(report, now, ", ").c_str());
}

void ProgressDisplay::draw(const AppProgressReport& report, Clock::time_point now) {
  constexpr std::size_t most_width = 28;
  const double fraction = report.is_finished ? 1.0 : report.fraction;
  std::string line = std::to_string(static_cast<int>(fraction * 100.0)) + "%" + describe(report, now, "  ");
  // In a narrow terminal the bar is shorter, then there is none, and the text ends before the last column: a line that
  // wraps could not be drawn over.
  const std::string stage = get_stage(report);
  const std::size_t columns = get_column_count() - 1, others = stage.size() + 4 + line.size();
  const std::size_t width = columns > others ? std::min(most_width, columns - others) : 0;
  const std::size_t filled = static_cast<std::size_t>(fraction * static_cast<double>(width));
  const std::string bar = " [" + std::string(filled, '#') + std::string(width - filled, '.') + "] ";
  line = (stage + (width > 0 ? bar : " ") + line).substr(0, columns);
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
  std::fflush(stderr);
  line_drawn_ = true;
}

void ProgressDisplay::clear_line() {
  if (!line_drawn_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  line_drawn_ = false;
}
