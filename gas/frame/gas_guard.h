// gas/frame/gas_guard.h
//
// How failures travel inside the library: as exceptions, up to the border.
//
//   deep inside   gas_need(has_memory), AppBase::check_stop(), the host's containers       throw
//   border        public functions, query callbacks, the tasks of a stage                  gas_try() ends them
//
// So nothing leaves the library, nothing ends the process on any thread, and the code between needs no error paths:
// what it holds is released by its owners on the way out.
#pragma once
#include <new>

#include "vq_app_base/app_base.h"

enum class GasOutcome {
  done,
  failed,   ///< no memory, or an exception of the host's
  stopped,  ///< the application asked for it
};

/// Throws when an allocation that reports by its result was refused.
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

/// Throws what gas_try() ended elsewhere, on another thread say.
inline void gas_rethrow(GasOutcome outcome) {
  if (outcome == GasOutcome::stopped) throw AppStopped();
  gas_need(outcome == GasOutcome::done);
}

/// For loops over items: every so often throws AppStopped when the application asks to stop.
inline void gas_check_stop(const AppBase& application, uint index) {
  if ((index & 1023u) == 0) application.check_stop();
}
