#include "tools/vqgas/support/memory_limit.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>

MemoryLimit::MemoryLimit() {
  const rlim_t page = static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
  const rlim_t machine = static_cast<rlim_t>(sysconf(_SC_PHYS_PAGES)) * page;
  rlim_t used_pages = 0;  // address space, sanitizers' shadows included
  if (!(std::ifstream("/proc/self/statm") >> used_pages) || getrlimit(RLIMIT_AS, &former_) != 0) return;
  rlimit limit = former_;
  limit.rlim_cur = std::min(former_.rlim_cur, used_pages * page + machine / 2);
  is_set_ = setrlimit(RLIMIT_AS, &limit) == 0;
}

MemoryLimit::~MemoryLimit() {
  if (is_set_) setrlimit(RLIMIT_AS, &former_);
}
