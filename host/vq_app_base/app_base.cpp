// host/vq_app_base/app_base.cpp
#include "vq_app_base/app_base.h"

#include <thread>
#include <utility>

AppBase::AppBase() : AppBase(std::thread::hardware_concurrency()) {}

AppBase::AppBase(uint thread_count) : thread_manager_(thread_count) {}

AppBase::~AppBase() {
  for (AppProgressBar* bar : progress_bars_) delete bar;
}

AppProgressBar* AppBase::create_progress_bar(const CoreString& title) {
  ProgressBarHook hook;
  AppProgressBar* bar;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    hook = progress_bar_hook_;
    progress_bars_.reserve(progress_bars_.size() + 1);
    bar = new AppProgressBar(*this, title);
    progress_bars_.push_back(bar);
  }
  if (hook) hook(*bar);
  return bar;
}

void AppBase::set_progress_bar_hook(ProgressBarHook hook) {
  const std::lock_guard<std::mutex> guard(mutex_);
  progress_bar_hook_ = std::move(hook);
}

void AppBase::remove_progress_bar(AppProgressBar* bar) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    std::erase(progress_bars_, bar);
  }
  delete bar;
}
