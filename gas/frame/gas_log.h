// gas/frame/gas_log.h
//
// Messages of the library through the host's main log handler. The level is tested first: the text is put together only
// when somebody will read it.
#pragma once
#include "gas/frame/gas_guard.h"
#include "vq_core/core_log.h"

inline constexpr uint gas_log_error = 1;
inline constexpr uint gas_log_warning = 2;

/// Logs what `write` puts into the stream it is given, when the handler lets messages of `level` through. A message
/// that cannot be written is left out.
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
