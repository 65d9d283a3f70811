#include "tools/vqgas/support/memory_limit.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

namespace {

/// Address space, sanitizers' shadows included; 0 if it is unknown.
rlim_t get_used_pages() {
  rlim_t pages = 0;
  return std::ifstream("/proc/self/statm") >> pages ? pages : 0;
}

rlim_t get_page_size() { return static_cast<rlim_t>(sysconf(_SC_PAGESIZE)); }

}  // namespace

std::uint64_t get_machine_memory() { return static_cast<rlim_t>(sysconf(_SC_PHYS_PAGES)) * get_page_size(); }

std::uint64_t get_free_memory() {
  std::ifstream file("/proc/meminfo");
  std::uint64_t bytes = 0;
  for (std::string line; std::getline(file, line);) {
    for (const std::string name : {"MemAvailable:", "SwapFree:"})
      if (line.starts_with(name)) bytes += 1024 * std::strtoull(line.c_str() + name.size(), nullptr, 10);
  }
  return bytes > 0 ? bytes : get_machine_memory();
}

std::uint64_t limit_memory() {
  constexpr rlim_t thread_bytes = rlim_t{160} << 20;  // addresses only: of the thread's stack and heap
  const rlim_t used_pages = get_used_pages();
  rlimit limit = {};
  const rlim_t free_bytes = get_free_memory();
  if (used_pages == 0 || getrlimit(RLIMIT_AS, &limit) != 0) return free_bytes;
  const rlim_t used_bytes = used_pages * get_page_size();
  const rlim_t threads = std::max(std::thread::hardware_concurrency(), 1u);
  limit.rlim_cur = std::min(limit.rlim_cur, used_bytes + threads * thread_bytes + free_bytes);
  setrlimit(RLIMIT_AS, &limit);
  return std::min(free_bytes, limit.rlim_cur - std::min(limit.rlim_cur, used_bytes));
}

MemoryLimit::MemoryLimit() {
  const rlim_t page = get_page_size(), machine = get_machine_memory();
  const rlim_t used_pages = get_used_pages();
  if (used_pages == 0 || getrlimit(RLIMIT_AS, &former_) != 0) return;
  rlimit limit = former_;
  limit.rlim_cur = std::min(former_.rlim_cur, used_pages * page + machine / 2);
  is_set_ = setrlimit(RLIMIT_AS, &limit) == 0;
  if (is_set_) bytes_ = limit.rlim_cur - std::min(limit.rlim_cur, used_pages * page);
}

MemoryLimit::~MemoryLimit() {
  if (is_set_) setrlimit(RLIMIT_AS, &former_);
}
