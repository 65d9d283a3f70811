// host/vq_core/core_array.h
//
// The containers that cross the boundary between host and library. Each is one 16-byte record:
//
//   CoreBasicArray<T>, CoreArray<T>   0  T* items   8  u32 count   12  u32 owned      0 = a view, which frees nothing
//   CoreVector<T>                     0  T* items   8  u32 count   12  u32 capacity
//
// A leaf's range of item positions (pointer, count, 0) therefore is a CoreBasicArray<uint> view as it stands.
// CoreBasicArray holds plain records, CoreArray anything; both have an exact size. CoreVector grows by doubling.
//
// Copies are deep and own their items, also copies of a view; moves empty the source. Where memory runs out, the call
// that needed it returns false and changes nothing; a copy that cannot be made is empty. Not thread-safe for writers.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include "vq_core/core_assert.h"
#include "vq_core/core_memory.h"
#include "vq_core/core_types.h"

/// Storage of items, and operations on runs of them; plain records are moved as bytes.
template <class T>
struct CoreItems {
  static constexpr bool is_plain = std::is_trivially_copyable_v<T>;

  static T* allocate(uint count) {
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) return nullptr;
    return static_cast<T*>(core_aligned_alloc(count * sizeof(T), alignof(T)));
  }
  static void copy(T* to, const T* from, uint count) {
    if constexpr (is_plain) {
      if (count > 0) std::memcpy(static_cast<void*>(to), from, count * sizeof(T));
    } else {
      std::uninitialized_copy_n(from, count, to);
    }
  }
  /// Moves the items to new storage and ends their life in the old one.
  static void relocate(T* to, T* from, uint count) {
    if constexpr (is_plain) {
      copy(to, from, count);
    } else {
      std::uninitialized_move_n(from, count, to);
      std::destroy_n(from, count);
    }
  }
};

/// Base of CoreBasicArray and CoreArray: a run of items, owned or viewed.
template <class T>
class CoreArrayBase {
 public:
  CoreArrayBase() { static_assert(offsetof(CoreArrayBase, count_) == 8 && offsetof(CoreArrayBase, owned_) == 12); }
  explicit CoreArrayBase(uint count) { resize(count); }
  CoreArrayBase(const CoreArrayBase& other) { assign(other.items_, other.count_); }
  CoreArrayBase(CoreArrayBase&& other) noexcept
      : items_(std::exchange(other.items_, nullptr)),
        count_(std::exchange(other.count_, 0)),
        owned_(std::exchange(other.owned_, 0)) {}
  CoreArrayBase& operator=(const CoreArrayBase& other) {
    // The copy is made before the old items go: `other` may be a view of them.
    if (this != &other) swap(CoreArrayBase(other));
    return *this;
  }
  CoreArrayBase& operator=(CoreArrayBase&& other) noexcept {
    if (this != &other) swap(CoreArrayBase(std::move(other)));
    return *this;
  }
  ~CoreArrayBase() { release(); }

  uint get_count() const { return count_; }
  bool is_empty() const { return count_ == 0; }
  /// True when the array does not own its items. They must outlive the view.
  bool is_view() const { return items_ && owned_ == 0; }
  T* get_items() { return items_; }
  const T* get_items() const { return items_; }
  T& operator[](uint index) {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  const T& operator[](uint index) const {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  T* begin() { return items_; }
  T* end() { return items_ + count_; }
  const T* begin() const { return items_; }
  const T* end() const { return items_ + count_; }

  /// Changes the size, keeping the first min(old, new) items; new ones are value-initialized (numbers and pointers 0).
  /// A view turns into an owned array. False when there is no memory.
  bool resize(uint count) {
    if (count == 0) {
      remove_all();
      return true;
    }
    if (count == count_ && owned_) return true;
    T* items = CoreItems<T>::allocate(count);
    if (!items) return false;
    constexpr bool copyable = std::is_copy_constructible_v<T>;
    const uint kept = owned_ || copyable ? std::min(count, count_) : 0;
    if (owned_) {
      CoreItems<T>::relocate(items, items_, kept);
      std::destroy_n(items_ + kept, count_ - kept);
      core_aligned_free(items_);
    } else {
      if constexpr (copyable) CoreItems<T>::copy(items, items_, kept);
    }
    std::uninitialized_value_construct_n(items + kept, count - kept);
    items_ = items;
    count_ = count;
    owned_ = 1;
    return true;
  }
  /// Drops the items and becomes a view of `count` others.
  void set_view(T* items, uint count) {
    release();
    items_ = items;
    count_ = items ? count : 0;
    owned_ = 0;
  }
  /// Replaces the items by a copy of `count` others, which may be items of this array. False when there is no memory.
  bool assign(const T* items, uint count) {
    T* copied = nullptr;
    if (count > 0) {
      copied = CoreItems<T>::allocate(count);
      if (!copied) return false;
      CoreItems<T>::copy(copied, items, count);
    }
    release();
    items_ = copied;
    count_ = count;
    owned_ = copied ? 1 : 0;
    return true;
  }
  void remove_all() {
    release();
    items_ = nullptr;
    count_ = owned_ = 0;
  }

 private:
  void release() {
    if (owned_ == 0) return;
    std::destroy_n(items_, count_);
    core_aligned_free(items_);
  }
  void swap(CoreArrayBase&& other) {
    std::swap(items_, other.items_);
    std::swap(count_, other.count_);
    std::swap(owned_, other.owned_);
  }

  T* items_ = nullptr;
  uint count_ = 0;
  uint owned_ = 0;
};

/// A run of plain records, owned or viewed.
template <class T>
class CoreBasicArray : public CoreArrayBase<T> {
  static_assert(std::is_trivially_copyable_v<T>, "objects with a life of their own belong in a CoreArray");

 public:
  using CoreArrayBase<T>::CoreArrayBase;
  /// A read-only view. The items must outlive it.
  static const CoreBasicArray make_view(const T* items, uint count) {
    CoreBasicArray view;
    view.set_view(const_cast<T*>(items), count);
    return view;
  }
};

/// A run of objects, constructed and destroyed with it.
template <class T>
class CoreArray : public CoreArrayBase<T> {
 public:
  using CoreArrayBase<T>::CoreArrayBase;
  /// A view of the items to read from, valid until this array changes. Plain records only.
  const CoreBasicArray<T> as_array() const {
    return CoreBasicArray<T>::make_view(this->get_items(), this->get_count());
  }
};

/// A run of items that grows at its end; the capacity doubles from 1.
template <class T>
class CoreVector {
 public:
  CoreVector() { static_assert(offsetof(CoreVector, count_) == 8 && offsetof(CoreVector, capacity_) == 12); }
  CoreVector(const CoreVector& other) {
    if (!reserve(other.count_)) return;
    CoreItems<T>::copy(items_, other.items_, other.count_);
    count_ = other.count_;
  }
  CoreVector(CoreVector&& other) noexcept
      : items_(std::exchange(other.items_, nullptr)),
        count_(std::exchange(other.count_, 0)),
        capacity_(std::exchange(other.capacity_, 0)) {}
  CoreVector& operator=(const CoreVector& other) {
    if (this != &other) swap(CoreVector(other));
    return *this;
  }
  CoreVector& operator=(CoreVector&& other) noexcept {
    if (this != &other) swap(CoreVector(std::move(other)));
    return *this;
  }
  ~CoreVector() {
    std::destroy_n(items_, count_);
    core_aligned_free(items_);
  }

  uint get_count() const { return count_; }
  uint get_capacity() const { return capacity_; }
  bool is_empty() const { return count_ == 0; }
  T* get_items() { return items_; }
  const T* get_items() const { return items_; }
  T& operator[](uint index) {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  const T& operator[](uint index) const {
    CORE_ASSERT(index < count_);
    return items_[index];
  }
  T& get_last() { return (*this)[count_ - 1]; }
  const T& get_last() const { return (*this)[count_ - 1]; }
  T* begin() { return items_; }
  T* end() { return items_ + count_; }
  const T* begin() const { return items_; }
  const T* end() const { return items_ + count_; }

  /// Appends an item, which may be one of this vector's own. False when there is no memory. Amortised O(1).
  bool add(const T& item) {
    if (count_ < capacity_) {
      new (items_ + count_) T(item);
      ++count_;
      return true;
    }
    return add_growing(T(item));
  }
  bool add(T&& item) {
    if (count_ < capacity_) {
      new (items_ + count_) T(std::move(item));
      ++count_;
      return true;
    }
    return add_growing(T(std::move(item)));
  }
  /// Makes room for `capacity` items in all. False when there is no memory.
  bool reserve(uint capacity) { return capacity <= capacity_ || set_capacity(capacity); }
  /// Changes the count; new items are value-initialized. Grows to exactly `count`. False when there is no memory.
  bool resize(uint count) {
    if (!reserve(count)) return false;
    if (count > count_)
      std::uninitialized_value_construct_n(items_ + count_, count - count_);
    else
      std::destroy_n(items_ + count, count_ - count);
    count_ = count;
    return true;
  }
  /// As resize(), but leaves new items undefined: for large arrays that are filled right after. Plain records only.
  bool resize_for_overwrite(uint count) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (!reserve(count)) return false;
    count_ = count;
    return true;
  }
  /// Frees the memory beyond the count. Does nothing when there is no memory for the smaller block.
  void shrink_to_fit() {
    if (count_ < capacity_) set_capacity(count_);
  }
  /// Removes one item; those behind it move forward.
  void remove(uint index) {
    CORE_ASSERT(index < count_);
    std::move(items_ + index + 1, items_ + count_, items_ + index);
    remove_last();
  }
  void remove_last() {
    CORE_ASSERT(count_ > 0);
    std::destroy_at(items_ + --count_);
  }
  /// Drops all items and keeps the memory.
  void remove_all() { resize(0); }

  /// A view of the items to read from, valid until the vector changes. Plain records only.
  const CoreBasicArray<T> as_array() const { return CoreBasicArray<T>::make_view(items_, count_); }

 private:
  bool add_growing(T&& item) {
    constexpr uint most = std::numeric_limits<uint>::max();
    if (count_ == most) return false;
    if (!set_capacity(capacity_ == 0 ? 1 : capacity_ > most / 2 ? most : capacity_ * 2)) return false;
    new (items_ + count_) T(std::move(item));
    ++count_;
    return true;
  }
  /// `capacity` is not below the count.
  bool set_capacity(uint capacity) {
    T* items = nullptr;
    if (capacity > 0 && !(items = CoreItems<T>::allocate(capacity))) return false;
    CoreItems<T>::relocate(items, items_, count_);
    core_aligned_free(items_);
    items_ = items;
    capacity_ = capacity;
    return true;
  }
  void swap(CoreVector&& other) {
    std::swap(items_, other.items_);
    std::swap(count_, other.count_);
    std::swap(capacity_, other.capacity_);
  }

  T* items_ = nullptr;
  uint count_ = 0;
  uint capacity_ = 0;
};

static_assert(sizeof(CoreBasicArray<uint>) == 16 && sizeof(CoreArray<void*>) == 16 && sizeof(CoreVector<uint>) == 16);
