// host/vq_app_base/app_progress_scope.h
//
// Progress of code whose bar may be null. Scopes close their task in the destructor.
#pragma once
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_export.h"

/// One task of a bar, open while this lives. Without a bar, or without memory for the task, it does nothing.
class VQ_EXPORT AppProgressScope {
 public:
  AppProgressScope(AppProgressBar* progress, const char* name, double weight, uint step_count = 0) noexcept;
  ~AppProgressScope() {
    if (progress_ != nullptr) progress_->end_task();
  }
  AppProgressScope(const AppProgressScope&) = delete;
  AppProgressScope& operator=(const AppProgressScope&) = delete;

  /// The task has come to `position` of its steps. Thread-safe.
  void step(uint position) const {
    if (progress_ != nullptr) progress_->step(position);
  }

 private:
  AppProgressBar* progress_;
};

/// Creates a bar for work that was given none; the destructor finishes it.
class VQ_EXPORT AppOwnProgress {
 public:
  AppOwnProgress(AppBase& application, const char* title) noexcept;
  ~AppOwnProgress() {
    if (progress_ != nullptr) progress_->finish();
  }
  AppOwnProgress(const AppOwnProgress&) = delete;
  AppOwnProgress& operator=(const AppOwnProgress&) = delete;

  /// Null when there was no memory for a bar.
  AppProgressBar* get() const { return progress_; }

 private:
  AppProgressBar* progress_ = nullptr;
};
