// tools/vqgas/support/memory_limit.h
#pragma once
#include <sys/resource.h>

/// While it lives the program may take half of the machine's memory more than it has, so that an importer which
/// believes a damaged file's counts fails at once instead of dragging the machine down.
class MemoryLimit {
 public:
  MemoryLimit();
  ~MemoryLimit();
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
  rlimit former_ = {};
  bool is_set_ = false;
};
