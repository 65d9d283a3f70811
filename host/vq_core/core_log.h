// host/vq_core/core_log.h
//
// Log messages. Levels: 0 silent, 1 errors, 2 warnings, 3 information, 4 debug. A message of level L is let
// through when the handler's level is at least L. Building a text costs more than testing the level, so callers test
// first:
//
//   CoreLogHandler& log = CoreLogHandler::get_main();
//   if (log.get_level() >= 2) log.log(CoreLogStream() << "Mesh.create: " << count << " faces dropped.\n", 2);
#pragma once
#include <atomic>
#include <functional>
#include <mutex>

#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_core/core_types.h"

class VQ_EXPORT CoreLogHandler {
 public:
  /// Receives each message that is let through, one at a time. A sink must not log itself.
  using Sink = std::function<void(const CoreString& message, const uint& level)>;

  /// The process's own handler: level 2, writing to standard error. Never destroyed.
  static CoreLogHandler& get_main();

  CoreLogHandler();
  CoreLogHandler(const CoreLogHandler&) = delete;
  CoreLogHandler& operator=(const CoreLogHandler&) = delete;

  uint get_level() const { return level_.load(std::memory_order_relaxed); }
  void set_level(uint level) { level_.store(level, std::memory_order_relaxed); }
  /// Hands the message to the sink when the level lets it through. Thread-safe.
  void log(const CoreString& message, const uint& level);
  /// Replaces the sink and returns the former one; an empty sink means standard error. Thread-safe.
  Sink set_sink(Sink sink);

 private:
  std::atomic<uint> level_;
  std::mutex mutex_;
  Sink sink_;
};

/// Builds one message from texts and decimal integers.
class VQ_EXPORT CoreLogStream {
 public:
  CoreLogStream& operator<<(const char* text);  ///< null adds nothing
  CoreLogStream& operator<<(const CoreString& text);
  CoreLogStream& operator<<(int value);
  CoreLogStream& operator<<(uint value);
  CoreLogStream& operator<<(u64 value);
  operator const CoreString&() const { return text_; }

 private:
  CoreString text_;
};
