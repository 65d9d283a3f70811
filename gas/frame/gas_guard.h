// gas/frame/gas_guard.h
//
// Errors inside the library are exceptions; they end at its interface.
//
//   internal    gas_need(has_memory), AppBase::check_stop(), the host's containers       throw
//   interface   public functions, query callbacks, the tasks of a stage                  gas_try() catches
//
// No exception leaves the library or ends a thread, and the code between needs no error paths: destructors release its
// resources.
#pragma once
#include <new>

#include "vq_app_base/app_base.h"

enum class GasOutcome {
  done,
  failed,   ///< no memory, or an exception of the host's
  stopped,  ///< by request of the application
};

/// Throws std::bad_alloc if `has_memory`, the result of an allocation, is false.
inline void gas_need(bool has_memory) {
  if (!has_memory) throw std::bad_alloc();
}

/// Runs `work` to its end or to its first exception.
template <class Work>
GasOutcome gas_try(const Work& work) noexcept {
  try {
    work();
    return GasOutcome::done;
  } catch (const AppStopped&) {
    return GasOutcome::stopped;
  } catch (...) {
    return GasOutcome::failed;
  }
}

/// Throws the exception that gas_try() caught, for example on another thread.
inline void gas_rethrow(GasOutcome outcome) {
  if (outcome == GasOutcome::stopped) throw AppStopped();
  gas_need(outcome == GasOutcome::done);
}

/// For loops over items: at every 1024th index, throws AppStopped after a stop request of the application.
inline void gas_check_stop(const AppBase& application, uint index) {
  if ((index & 1023u) == 0) application.check_stop();
}
