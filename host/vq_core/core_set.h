// host/vq_core/core_set.h
//
// A set that keeps the order in which its items were added, so that iterating over it is the same in every run.
#pragma once
#include <unordered_map>

#include "vq_core/core_array.h"
#include "vq_core/core_types.h"

template <class T>
class CoreSet {
 public:
  /// False when the item is in the set already. O(1) on average.
  bool add(const T& item) {
    if (!positions_.emplace(item, items_.get_count()).second) return false;
    items_.add(item);
    return true;
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
  void remove_all() {
    items_.remove_all();
    positions_.clear();
  }

 private:
  CoreVector<T> items_;
  std::unordered_map<T, uint> positions_;
};
