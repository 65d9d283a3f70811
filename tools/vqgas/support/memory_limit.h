// tools/vqgas/support/memory_limit.h
#pragma once
#include <sys/resource.h>

#include <cstdint>
#include <limits>

/// Bytes of the machine's memory.
std::uint64_t get_machine_memory();

/// Bytes that the machine has left for this program, by what the system estimates.
std::uint64_t get_free_memory();

/// From now on the program's allocations beyond that are refused. Without it the system ends the program, or another
/// one, when it writes to what was allocated. Returns how many bytes may be allocated.
std::uint64_t limit_memory();

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
