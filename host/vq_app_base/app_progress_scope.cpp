// host/vq_app_base/app_progress_scope.cpp
#include "vq_app_base/app_progress_scope.h"

#include <new>

#include "vq_app_base/app_base.h"

AppProgressScope::AppProgressScope(AppProgressBar* progress, const char* name, double weight, uint step_count) noexcept
    : progress_(progress) {
  if (progress_ == nullptr) return;
  try {
    progress_->begin_task(name, weight);
    progress_->set_step_count(step_count);
  } catch (const std::bad_alloc&) {
    progress_ = nullptr;  // begin_task() opened nothing: the work goes on without a task
  }
}

AppOwnProgress::AppOwnProgress(AppBase& application, const char* title) noexcept {
  try {
    progress_ = application.create_progress_bar(title);
  } catch (const std::bad_alloc&) {
  }
}
