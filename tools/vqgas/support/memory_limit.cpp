#include "tools/vqgas/support/memory_limit.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace {

rlim_t get_page_size() { return static_cast<rlim_t>(sysconf(_SC_PAGESIZE)); }

}  // namespace

std::uint64_t get_machine_memory() { return static_cast<rlim_t>(sysconf(_SC_PHYS_PAGES)) * get_page_size(); }

MemoryLimit::MemoryLimit() {
  const rlim_t page = get_page_size(), machine = get_machine_memory();
  rlim_t used_pages = 0;  // address space, sanitizers' shadows included
  if (!(std::ifstream("/proc/self/statm") >> used_pages) || getrlimit(RLIMIT_AS, &former_) != 0) return;
  rlimit limit = former_;
  limit.rlim_cur = std::min(former_.rlim_cur, used_pages * page + machine / 2);
  is_set_ = setrlimit(RLIMIT_AS, &limit) == 0;
  if (is_set_) bytes_ = limit.rlim_cur - std::min(limit.rlim_cur, used_pages * page);
}

MemoryLimit::~MemoryLimit() {
  if (is_set_) setrlimit(RLIMIT_AS, &former_);
}
