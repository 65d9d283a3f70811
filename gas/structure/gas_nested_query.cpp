#include "gas/structure/gas_nested_query.h"

#include <new>

#include "vq_module/ctx_helpers.h"

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

bool GasRayCtx::grow(uint ray_count, u64 plane_count) {
  return grow_array(rays, ray_count) && grow_array(matrices, ray_count) && grow_array(planes, plane_count);
}

bool GasRayCtx::reserve_end_matrices(uint ray_count) { return grow_array(end_matrices, ray_count); }

void GasNestedScope::make_record(GasNestedQueryCtx*& slot) const {
  slot = new (std::nothrow) GasNestedQueryCtx;
  shader_.nested_release = release_chain;
}

GeometryRaytraceCtx& GasRayCtx::begin_query(GeometryRaytraceCtx& parent, const GasNestedTarget& target) {
  GeometryRaytraceCtx& local = query;
  static_cast<GeometryRaytraceData&>(local) = parent;
  local.rays = reinterpret_cast<const u8*>(rays.get());
  local.ray_stride = sizeof(GMathBasicRay<double>);
  local.spans = nullptr;
  local.span_stamp = 0;
  local.matrices = matrices.get();
  local.matrices2 = nullptr;
  local.matrices2_used = false;

  local.shading_group_offset = target.shading_group_offset;
  local.depth = target.depth;
  local.instance = target.instance;
  local.cluster = target.cluster;
  local.geometry = nullptr;
  local.remove_filters();
  local.primitive_filter = nullptr;
  local.hit_weight = 1.0;
  local.object_distance = target.distance;
  if (parent.map != nullptr) {
    map = parent.map->get_deeper();
    local.map = &map;
  }
  local.parent = &parent;
  local.level = parent.level + 1;
  if (target.element.object == nullptr) {
    if (parent.planes != nullptr) local.planes = planes.get();
    return local;
  }
  local.planes = nullptr;
  local.plane_count = local.plane_user = 0;
  if (parent.level == 0) local.identification2 = target.element.object_index;
  gas_extend_path(path, parent.path, target.element);
  local.path = &path;
  if (parent.settings.allow_matte && CtxHelpers::is_matte_object(local, target.element)) local.matte = 1;
  local.flags = parent.flags & ~u64{1};
  return local;
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
