#include "tools/vqgas/support/held_messages.h"

#include <cstdio>

#include "tools/vqgas/support/memory_lack.h"

HeldMessages::HeldMessages() {
  former_ = CoreLogHandler::get_main().set_sink([this](const CoreString& message, const uint&) {
    note_library_message(message.get_view());
    messages_.emplace_back(message.get_view());
  });
}

HeldMessages::~HeldMessages() { restore(); }

void HeldMessages::release() {
  restore();
  for (std::string& message : messages_) {
    while (message.ends_with('\n')) message.pop_back();
    std::fprintf(stderr, "vqgas: %s\n", message.c_str());
  }
  messages_.clear();
}

void HeldMessages::restore() {
  if (holding_) CoreLogHandler::get_main().set_sink(std::move(former_));
  holding_ = false;
}
