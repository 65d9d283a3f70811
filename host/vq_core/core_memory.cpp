// host/vq_core/core_memory.cpp
//
// Large blocks are mappings of their own: memory that malloc() has used before keeps its small pages. Most of the 26 MB
// of a tree that was built after a file was read had small pages, and rays were 5 % slower.
//
//   mapping    ... | LargeHeader | block, at a multiple of 2 MiB ...
//
// A block at a multiple of 2 MiB is a mapping, any other is from malloc(): core_aligned_free() reads it off the
// address.
#include "vq_core/core_memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

// An address sanitizer watches malloc() alone.
#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
#include <sys/mman.h>

namespace {

struct LargeHeader {
  void* mapping;
  std::size_t bytes;
};

void* alloc_large(std::size_t bytes, std::size_t alignment) {
  const std::size_t extra = alignment + sizeof(LargeHeader);
  if (bytes > SIZE_MAX - extra) return nullptr;
  void* mapping = mmap(nullptr, bytes + extra, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) return nullptr;
  const auto first = reinterpret_cast<std::uintptr_t>(mapping) + sizeof(LargeHeader);
  auto* block = reinterpret_cast<std::byte*>((first + alignment - 1) & ~(alignment - 1));
  // Only whole large pages: the remainder uses small pages, so that no memory is wasted. A failure only affects speed.
  madvise(block, bytes & ~(core_large_page_bytes - 1), MADV_HUGEPAGE);
  new (block - sizeof(LargeHeader)) LargeHeader{mapping, bytes + extra};
  return block;
}

void free_large(void* block) {
  const auto& header = *reinterpret_cast<const LargeHeader*>(static_cast<std::byte*>(block) - sizeof(LargeHeader));
  munmap(header.mapping, header.bytes);
}

}  // namespace

#else

namespace {

void* alloc_large(std::size_t bytes, std::size_t alignment) {
  void* block = nullptr;
  return posix_memalign(&block, alignment, bytes) == 0 ? block : nullptr;
}

void free_large(void* block) { std::free(block); }

}  // namespace

#endif

namespace {

bool is_large(const void* block) {
  return (reinterpret_cast<std::uintptr_t>(block) & (core_large_page_bytes - 1)) == 0;
}

void* alloc_small(std::size_t bytes, std::size_t alignment) {
  if (alignment <= alignof(std::max_align_t)) return std::malloc(bytes);
  void* block = nullptr;
  return posix_memalign(&block, std::max(alignment, sizeof(void*)), bytes) == 0 ? block : nullptr;
}

}  // namespace

void* core_aligned_alloc(std::size_t bytes, std::size_t alignment, CorePages pages) noexcept {
  if (bytes == 0 || alignment == 0 || (alignment & (alignment - 1)) != 0) return nullptr;
  if (alignment >= core_large_page_bytes || (bytes >= core_large_page_bytes && pages == CorePages::large))
    return alloc_large(bytes, std::max(alignment, core_large_page_bytes));
  void* block = alloc_small(bytes, alignment);
  if (block == nullptr || !is_large(block)) return block;
  // By chance where only large blocks may be.
  std::free(block);
  return alloc_large(bytes, core_large_page_bytes);
}

void core_aligned_free(void* block) noexcept {
  if (block == nullptr) return;
  if (is_large(block)) {
    free_large(block);
  } else {
    std::free(block);
  }
}
