#include "tools/vqgas/support/memory_lack.h"

#include <atomic>
#include <cstdio>
#include <new>
#include <string>

#include "vq_core/core_log.h"

namespace {

std::atomic<bool> has_lacked{false};

}  // namespace

void watch_library_messages() {
  CoreLogHandler::get_main().set_sink([](const CoreString& message, const uint&) {
    note_library_message(message.get_view());
    std::fprintf(stderr, "vqgas: %s", message.get_data());
  });
}

void note_library_message(std::string_view message) {
  if (message.find("not enough memory") != std::string_view::npos) has_lacked = true;
}

void throw_if_memory_lacked() {
  if (has_lacked) throw std::bad_alloc();
}
