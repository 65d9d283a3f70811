// tools/vqgas/support/memory_limit.h
#pragma once
#include <sys/resource.h>

#include <cstdint>
#include <limits>

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

  /// What may be allocated in addition, for checks before the work.
  std::uint64_t get_bytes() const { return bytes_; }

 private:
  rlimit former_ = {};
  bool is_set_ = false;
  std::uint64_t bytes_ = std::numeric_limits<std::uint64_t>::max();
};
