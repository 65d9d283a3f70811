// gas/frame/gas_log.h
//
// Messages of the library through the host's main log handler. The level is tested first: the text is built only if
// the message is shown.
#pragma once
#include "gas/frame/gas_guard.h"
#include "vq_core/core_log.h"

inline constexpr uint gas_log_error = 1;
inline constexpr uint gas_log_warning = 2;

/// Calls write(stream) and logs the text, if the handler's level admits messages of `level`. A message is dropped when
/// there is no memory for it.
template <class Write>
void gas_log(uint level, const Write& write) noexcept {
  gas_try([&] {
    CoreLogHandler& handler = CoreLogHandler::get_main();
    if (handler.get_level() < level) return;
    CoreLogStream message;
    write(message);
    handler.log(message, level);
  });
}
