// host/vq_app_base/app_progress_bar.cpp
#include "vq_app_base/app_progress_bar.h"

#include <algorithm>

#include "vq_app_base/app_base.h"

namespace {

/// Updates of the shared progress per task. Finer than any display, and few compared to millions of steps, for which
/// threads would otherwise contend for one cache line.
constexpr uint updates_per_task = 1024;

}  // namespace

AppProgressBar::AppProgressBar(AppBase& application, const CoreString& title)
    : application_(application), title_(title) {}

void AppProgressBar::begin_task(const CoreString& name, const double& weight) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    raise_progress();
    const double parent_share = open_.empty() ? 1.0 : open_.back().share;
    const double parent_limit = open_.empty() ? 1.0 : open_.back().limit;
    const double share = weight > 0.0 ? std::min(weight, 1.0) * parent_share : 0.0;  // NaN gives 0
    open_.reserve(open_.size() + 1);  // so that either both lists get the task or neither
    log_.push_back({name, weight, 0, static_cast<uint>(open_.size())});
    open_.push_back({log_.size() - 1, progress_, share, std::min(progress_ + share, parent_limit)});
    update_next_position();
  }
  report(false);
}

void AppProgressBar::set_step_count(const uint& count) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (open_.empty()) return;
  raise_progress();
  open_.back().step_count = count;
  open_.back().position = 0;
  log_[open_.back().log_index].step_count = count;
  update_next_position();
}

void AppProgressBar::advance(uint position) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (open_.empty()) return;
    OpenTask& task = open_.back();
    if (std::min(position, task.step_count) <= task.position) return;  // another thread has set a larger position
    task.position = std::min(position, task.step_count);
    raise_progress();
    update_next_position();
  }
  report(false);
}

void AppProgressBar::end_task() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (open_.empty()) return;
    progress_ = std::max(progress_, open_.back().limit);
    open_.pop_back();
    update_next_position();
  }
  report(false);
}

void AppProgressBar::finish() {
  report(true);
  application_.remove_progress_bar(this);
}

double AppProgressBar::get_progress() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return progress_;
}

void AppProgressBar::set_sink(Sink sink, std::chrono::milliseconds interval) {
  const std::lock_guard<std::mutex> guard(sink_mutex_);
  sink_ = std::move(sink);
  interval_ = interval;
}

std::vector<AppProgressTask> AppProgressBar::get_task_log() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return log_;
}

void AppProgressBar::raise_progress() {
  if (open_.empty() || open_.back().step_count == 0) return;
  const OpenTask& task = open_.back();
  const double reached = task.begin + task.share * (double(task.position) / double(task.step_count));
  progress_ = std::max(progress_, std::min(reached, task.limit));
}

void AppProgressBar::update_next_position() {
  u64 next = never;
  if (!open_.empty() && open_.back().position < open_.back().step_count) {
    const OpenTask& task = open_.back();
    const uint stride = std::max(task.step_count / updates_per_task, 1u);
    next = std::min(u64(task.position) + stride, u64(task.step_count));  // the last position always updates
  }
  next_position_.store(next, std::memory_order_relaxed);
}

AppProgressReport AppProgressBar::make_report(bool is_finished) const {
  AppProgressReport report{title_, CoreString(), progress_, 0, 0, is_finished};
  if (open_.empty()) return report;
  report.task = log_[open_.back().log_index].name;
  report.step_position = open_.back().position;
  report.step_count = open_.back().step_count;
  return report;
}

void AppProgressBar::report(bool is_finished) noexcept try {
  std::unique_lock<std::mutex> sink_lock(sink_mutex_, std::defer_lock);
  if (is_finished)
    sink_lock.lock();
  else if (!sink_lock.try_lock())
    return;  // another thread is reporting; worker threads do not wait for a sink
  if (!sink_) return;
  const Clock::time_point now = Clock::now();
  if (!is_finished && now - last_report_ < interval_) return;
  last_report_ = now;
  std::unique_lock<std::mutex> lock(mutex_);
  const AppProgressReport report = make_report(is_finished);
  lock.unlock();
  sink_(report);
} catch (...) {  // a failed report does not end the work
}
