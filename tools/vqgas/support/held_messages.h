// tools/vqgas/support/held_messages.h
//
// Holds back the library's log messages during an operation, so that a failed one prints its own error line alone.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_log.h"

class HeldMessages {
 public:
  HeldMessages();
  /// Drops messages that were not released.
  ~HeldMessages();
  HeldMessages(const HeldMessages&) = delete;
  HeldMessages& operator=(const HeldMessages&) = delete;

  /// Prints the messages to standard error, one a line, and stops holding them back.
  void release();

 private:
  void restore();
  CoreLogHandler::Sink former_;
  std::vector<std::string> messages_;
  bool holding_ = true;
};
