// host/vq_core/core_set.h
//
// A set that keeps the order in which its items were added, so that iterating over it is the same in every run.
#pragma once
#include <new>
#include <unordered_map>

#include "vq_core/core_array.h"
#include "vq_core/core_types.h"

template <class T>
class CoreSet {
 public:
  /// False when the item is in the set already. Throws std::bad_alloc; the set is then unchanged. O(1) on average.
  bool add(const T& item) {
    const auto [place, is_new] = positions_.emplace(item, items_.get_count());
    if (!is_new) return false;
    if (items_.add(item)) return true;
    positions_.erase(place);
    throw std::bad_alloc();
  }
  /// False when the item is not in the set. The others keep their order; O(items behind it).
  bool remove(const T& item) {
    const auto found = positions_.find(item);
    if (found == positions_.end()) return false;
    const uint position = found->second;
    positions_.erase(found);
    items_.remove(position);
    for (uint i = position; i < items_.get_count(); ++i) positions_[items_[i]] = i;
    return true;
  }
  bool contains(const T& item) const { return positions_.find(item) != positions_.end(); }
  uint get_count() const { return items_.get_count(); }
  bool is_empty() const { return items_.is_empty(); }
  const T& operator[](uint position) const { return items_[position]; }
  const T* begin() const { return items_.begin(); }
  const T* end() const { return items_.end(); }
  /// Bytes held beyond the set itself, without those of the allocator.
  u64 get_extra_bytes() const {
    struct Entry {
      void* next;
      typename std::unordered_map<T, uint>::value_type value;
    };
    return u64{items_.get_capacity()} * sizeof(T) + positions_.size() * sizeof(Entry) +
           positions_.bucket_count() * sizeof(void*);
  }
  void remove_all() {
    items_.remove_all();
    positions_.clear();
  }

 private:
  CoreVector<T> items_;
  std::unordered_map<T, uint> positions_;
};
