// host/vq_core/core_log.cpp
#include "vq_core/core_log.h"

#include <cstdio>
#include <utility>

CoreLogHandler& CoreLogHandler::get_main() {
  // Never destroyed: threads and static destructors may log until the very end of the process.
  static CoreLogHandler& handler = *new CoreLogHandler;
  return handler;
}

CoreLogHandler::CoreLogHandler() : level_(2) {}

void CoreLogHandler::log(const CoreString& message, const uint& level) {
  if (get_level() < level) return;
  const std::lock_guard<std::mutex> guard(mutex_);
  if (sink_)
    sink_(message, level);
  else
    std::fwrite(message.get_data(), 1, message.get_length(), stderr);
}

CoreLogHandler::Sink CoreLogHandler::set_sink(Sink sink) {
  const std::lock_guard<std::mutex> guard(mutex_);
  return std::exchange(sink_, std::move(sink));
}

CoreLogStream& CoreLogStream::operator<<(const char* text) {
  if (text) text_.append(text);
  return *this;
}

CoreLogStream& CoreLogStream::operator<<(const CoreString& text) {
  text_.append(text.get_view());
  return *this;
}

CoreLogStream& CoreLogStream::operator<<(int value) {
  text_.append(std::to_string(value));
  return *this;
}

CoreLogStream& CoreLogStream::operator<<(uint value) { return *this << u64(value); }

CoreLogStream& CoreLogStream::operator<<(u64 value) {
  text_.append(std::to_string(value));
  return *this;
}
