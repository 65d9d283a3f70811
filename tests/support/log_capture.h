// tests/support/log_capture.h
//
// Collects the log while it lives.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_log.h"

class LogCapture {
 public:
  explicit LogCapture(uint level) : former_level_(CoreLogHandler::get_main().get_level()) {
    CoreLogHandler::get_main().set_level(level);
    former_ = CoreLogHandler::get_main().set_sink([this](const CoreString& message, const uint& message_level) {
      messages.push_back(std::to_string(message_level) + ": " + message.get_data());
    });
  }
  ~LogCapture() {
    CoreLogHandler::get_main().set_sink(former_);
    CoreLogHandler::get_main().set_level(former_level_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> messages;  ///< with their levels

 private:
  uint former_level_;
  CoreLogHandler::Sink former_;
};
