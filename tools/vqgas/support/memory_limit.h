// tools/vqgas/support/memory_limit.h
#pragma once
#include <sys/resource.h>

#include <cstdint>

/// Bytes of the machine's memory.
std::uint64_t get_machine_memory();

/// During its lifetime the program may allocate at most half of the machine's memory in addition to what it has, so
/// that an importer that trusts a damaged file's counts fails at once instead of exhausting the machine. One at a time.
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
