// host/vq_core/core_memory.h
//
// Aligned blocks of memory. Every ray reads node and sample arrays at random, so blocks of 2 MiB and more are aligned
// to 2 MiB and marked for large pages, unless small ones are requested: fewer TLB misses.
#pragma once
#include <cstddef>
#include <limits>
#include <type_traits>
#include <utility>

#include "vq_core/core_assert.h"
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

/// Blocks of at least this size are aligned to it and marked for large pages. Each is a mapping of the system, of which
/// a process may have some ten thousands.
inline constexpr std::size_t core_large_page_bytes = std::size_t(2) << 20;

/// The pages of a large block. Large ones are new memory, which the system has to clear.
enum class CorePages : u8 {
  large,  ///< for what queries read at random
  small   ///< for what is freed soon
};

/// Allocates `bytes` bytes whose address is a multiple of `alignment`. The contents are undefined.
/// @param alignment a power of two
/// @return the block, to be freed with core_aligned_free(); null when `bytes` is 0, when `alignment` is not a power of
///         two or when there is no memory. Never throws. Thread-safe.
VQ_EXPORT void* core_aligned_alloc(std::size_t bytes, std::size_t alignment,
                                   CorePages pages = CorePages::large) noexcept;

/// Frees a block of core_aligned_alloc(). Null does nothing. Thread-safe.
VQ_EXPORT void core_aligned_free(void* block) noexcept;

/// Owns one aligned block of `count` items, as unique_ptr owns an object: movable, not copyable. Items start undefined
/// and are never destroyed, so T is a plain record.
template <class T>
class CoreAlignedArray {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

 public:
  CoreAlignedArray() = default;
  /// Empty when there is no memory: test with operator bool.
  explicit CoreAlignedArray(std::size_t count, std::size_t alignment = alignof(T),
                            CorePages pages = CorePages::large) noexcept {
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) return;
    if (alignment < alignof(T)) alignment = alignof(T);
    items_ = static_cast<T*>(core_aligned_alloc(count * sizeof(T), alignment, pages));
    if (items_) count_ = count;
  }
  CoreAlignedArray(CoreAlignedArray&& other) noexcept
      : items_(std::exchange(other.items_, nullptr)), count_(std::exchange(other.count_, 0)) {}
  CoreAlignedArray& operator=(CoreAlignedArray&& other) noexcept {
    CoreAlignedArray taken(std::move(other));
    std::swap(items_, taken.items_);
    std::swap(count_, taken.count_);
    return *this;
  }
  ~CoreAlignedArray() { core_aligned_free(items_); }

  explicit operator bool() const { return items_ != nullptr; }
  T* get() { return items_; }
  const T* get() const { return items_; }
  std::size_t get_count() const { return count_; }
  std::size_t get_bytes() const { return count_ * sizeof(T); }
  T& operator[](std::size_t index) {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  const T& operator[](std::size_t index) const {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  T* begin() { return items_; }
  T* end() { return items_ + count_; }
  const T* begin() const { return items_; }
  const T* end() const { return items_ + count_; }
  void reset() { *this = CoreAlignedArray(); }

 private:
  T* items_ = nullptr;
  std::size_t count_ = 0;
};
