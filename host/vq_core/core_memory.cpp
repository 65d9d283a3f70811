// host/vq_core/core_memory.cpp
#include "vq_core/core_memory.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

void* core_aligned_alloc(std::size_t bytes, std::size_t alignment) noexcept {
  if (bytes == 0 || alignment == 0 || (alignment & (alignment - 1)) != 0) return nullptr;
  const bool large = bytes >= core_large_page_bytes;
  if (!large && alignment <= alignof(std::max_align_t)) return std::malloc(bytes);
  if (large && alignment < core_large_page_bytes) alignment = core_large_page_bytes;
  if (alignment < sizeof(void*)) alignment = sizeof(void*);
  void* block = nullptr;
  if (posix_memalign(&block, alignment, bytes) != 0) return nullptr;
#if defined(MADV_HUGEPAGE)
  // Only whole large pages: the remainder uses small pages, so that no memory is wasted. A failure only affects speed.
  if (large) madvise(block, bytes & ~(core_large_page_bytes - 1), MADV_HUGEPAGE);
#endif
  return block;
}

void core_aligned_free(void* block) noexcept { std::free(block); }
