// tools/vqgas/support/held_messages.h
//
// Keeps back what the library logs while something is made, so that a failure is told in one line, its own.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_log.h"

class HeldMessages {
 public:
  HeldMessages();
  /// Forgets what was not released.
  ~HeldMessages();
  HeldMessages(const HeldMessages&) = delete;
  HeldMessages& operator=(const HeldMessages&) = delete;

  /// Prints the messages to standard error, one a line, and holds no more back.
  void release();

 private:
  void restore();
  CoreLogHandler::Sink former_;
  std::vector<std::string> messages_;
  bool holding_ = true;
};
