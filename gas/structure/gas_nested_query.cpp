#include "gas/structure/gas_nested_query.h"

#include <new>

namespace {

template <class T>
bool grow_array(CoreAlignedArray<T>& array, std::size_t count) {
  if (array.get_count() >= count) return true;
  array = CoreAlignedArray<T>(count, 64);
  return bool(array);
}

void release_chain(GasNestedQueryCtx* first) {
  while (first != nullptr) {
    GasNestedQueryCtx* next = first->next;
    delete first;
    first = next;
  }
}

}  // namespace

bool GasRayCtx::grow(GeometryRaytraceCtx& parent) {
  if (parent.map != nullptr && !parent.map->reserve_nested()) return false;
  is_reserved_ = grow_array(rays, parent.ray_count) && grow_array(matrices, parent.ray_count) &&
                 grow_array(planes, parent.plane_count);
  return is_reserved_;
}

bool GasRayCtx::reserve_end_matrices(uint ray_count) { return grow_array(end_matrices, ray_count); }

void GasNestedScope::make_record(CtxShader& shader, GasNestedQueryCtx*& slot) {
  slot = new (std::nothrow) GasNestedQueryCtx;
  shader.nested_release = release_chain;
}

void GasRayCtx::begin_outer_query(GeometryRaytraceCtx& parent) {
  static_cast<GeometryRaytraceData&>(query) = parent;
  query.rays = reinterpret_cast<const u8*>(rays.get());
  query.ray_stride = sizeof(GMathBasicRay<double>);
  query.matrices = matrices.get();
  query.parent = &parent;
  query.level = parent.level + 1;
  query.primitive_filter = nullptr;
  if (parent.map != nullptr) {
    map = parent.map->get_deeper();
    query.map = &map;
  }
  path.remove_all();
  if (parent.path != nullptr) path.copy_from(*parent.path);
  outer_path_count_ = path.get_count();
  is_begun_ = true;
}

void gas_extend_path(GeometryIntersectionPath& path, const GeometryIntersectionPath* parent,
                     const GeometryIntersectionPathElement& element) {
  if (parent != nullptr) {
    path.copy_from(*parent);
  } else {
    path.remove_all();
  }
  path.add(element);
}
