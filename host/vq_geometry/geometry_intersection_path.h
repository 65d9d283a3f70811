// host/vq_geometry/geometry_intersection_path.h
//
// The objects that a query has entered, outermost first. Every nesting level appends one element.
//
//   GeometryIntersectionPathElement   0  u32 object index   4  ModuleSceneObject*   12  GeometryOverride*     20 bytes
//
// Four elements are stored in the path itself, more than most scenes nest; beyond, the capacity doubles on the heap.
#pragma once
#include <span>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

struct Material;
class ModuleSceneObject;

/// The attributes of an object that its instance replaces.
struct GeometryOverride {
  bool has_render_mode = false;
  uint render_mode = 0;
  const Material* material = nullptr;  ///< null: the object's own materials
  bool has_matte = false;
};

#pragma pack(push, 4)
struct GeometryIntersectionPathElement {
  u32 object_index = core_invalid_index;
  ModuleSceneObject* object = nullptr;
  GeometryOverride* geometry_override = nullptr;  ///< null: nothing is replaced
};
#pragma pack(pop)
static_assert(sizeof(GeometryIntersectionPathElement) == 20);

/// Not thread-safe: each query context has its own.
class VQ_EXPORT GeometryIntersectionPath {
 public:
  static constexpr uint inline_capacity = 4;

  GeometryIntersectionPath() = default;
  ~GeometryIntersectionPath();
  GeometryIntersectionPath(const GeometryIntersectionPath&) = delete;
  GeometryIntersectionPath& operator=(const GeometryIntersectionPath&) = delete;

  uint get_count() const { return count_; }
  bool is_empty() const { return count_ == 0; }
  const GeometryIntersectionPathElement& operator[](uint position) const { return elements_[position]; }
  std::span<const GeometryIntersectionPathElement> get_elements() const { return {elements_, count_}; }
  /// The innermost element; null while the path is empty.
  const GeometryIntersectionPathElement* get_last() const { return count_ == 0 ? nullptr : elements_ + count_ - 1; }

  /// Appends an element. False, with the path unchanged, when there is no memory. Allocates only when the path gets
  /// longer than ever before.
  bool add(const GeometryIntersectionPathElement& element) {
    if (count_ == capacity_) return grow_and_add(element);
    elements_[count_++] = element;
    return true;
  }
  /// Becomes a copy of `parent`. False, with an empty path, when there is no memory.
  bool copy_from(const GeometryIntersectionPath& parent);
  /// Removes the innermost element. The path must not be empty.
  void remove_last() { --count_; }
  /// Drops the elements and keeps the memory.
  void remove_all() { count_ = 0; }

 private:
  bool reserve(uint capacity);
  bool grow_and_add(const GeometryIntersectionPathElement& element);

  GeometryIntersectionPathElement* elements_ = inline_elements_;
  uint count_ = 0;
  uint capacity_ = inline_capacity;
  GeometryIntersectionPathElement inline_elements_[inline_capacity];
};
