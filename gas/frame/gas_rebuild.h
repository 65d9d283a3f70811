// gas/frame/gas_rebuild.h
//
// How every create() ends: with the new content, or with an empty structure.
#pragma once
#include "gas/frame/gas_guard.h"
#include "gas/frame/gas_log.h"

/// Logs that there was no memory for an operation. Its `name` and its `result` are texts.
inline void gas_log_no_memory(const char* name, const char* result) noexcept {
  gas_log(gas_log_warning,
          [&](CoreLogStream& message) { message << name << ": not enough memory, " << result << "!\n"; });
}

/// Runs `build`, which fills a structure. If it throws, `clear` empties the structure; a lack of memory is logged, a
/// stop request is not.
/// @param name  of the operation, for the log
template <class Build, class Clear>
void gas_rebuild(const char* name, const Build& build, const Clear& clear) noexcept {
  const GasOutcome outcome = gas_try(build);
  if (outcome != GasOutcome::done) clear();
  if (outcome == GasOutcome::failed) gas_log_no_memory(name, "the structure is empty");
}
