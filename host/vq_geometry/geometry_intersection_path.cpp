#include "vq_geometry/geometry_intersection_path.h"

#include <cstdlib>
#include <cstring>

GeometryIntersectionPath::~GeometryIntersectionPath() {
  if (elements_ != inline_elements_) std::free(elements_);
}

bool GeometryIntersectionPath::reserve(uint capacity) {
  if (capacity <= capacity_) return true;
  uint wanted = capacity_;
  while (wanted < capacity) {
    if (wanted > core_invalid_index / 2) return false;
    wanted *= 2;
  }
  const std::size_t bytes = std::size_t{wanted} * sizeof(GeometryIntersectionPathElement);
  // The inline elements are not on the heap: the first growth copies them, later ones may extend the block.
  const bool was_inline = elements_ == inline_elements_;
  auto* grown =
      static_cast<GeometryIntersectionPathElement*>(was_inline ? std::malloc(bytes) : std::realloc(elements_, bytes));
  if (grown == nullptr) return false;
  if (was_inline) std::memcpy(static_cast<void*>(grown), inline_elements_, sizeof inline_elements_);
  elements_ = grown;
  capacity_ = wanted;
  return true;
}

bool GeometryIntersectionPath::grow_and_add(const GeometryIntersectionPathElement& element) {
  const GeometryIntersectionPathElement added = element;  // it may be an element of this path
  if (!reserve(count_ + 1)) return false;
  elements_[count_++] = added;
  return true;
}

bool GeometryIntersectionPath::copy_from(const GeometryIntersectionPath& parent) {
  if (this == &parent) return true;
  count_ = 0;
  if (!reserve(parent.count_)) return false;
  std::memcpy(static_cast<void*>(elements_), parent.elements_, parent.count_ * sizeof(GeometryIntersectionPathElement));
  count_ = parent.count_;
  return true;
}
