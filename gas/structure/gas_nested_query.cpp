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

GeometryRaytraceCtx& GasRayCtx::begin_query(GeometryRaytraceCtx& parent, const GasNestedTarget& target) {
  if (!is_begun_) begin_outer_query(parent);
  GeometryRaytraceCtx& local = query;
  local.first_ray = parent.first_ray;
  local.last_ray = parent.last_ray;
  local.spans = nullptr;
  local.span_stamp = 0;
  local.matrices2 = nullptr;
  local.matrices2_used = false;
  local.shading_group_offset = target.shading_group_offset;
  local.depth = target.depth;
  local.instance = target.instance;
  local.cluster = target.cluster;
  local.geometry = nullptr;
  local.shading = parent.shading;  // for objects without their own table
  local.remove_filters();
  local.hit_weight = 1.0;
  local.object_distance = target.distance;
  local.matte = parent.matte;
  local.user_word = parent.user_word;
  if (target.element.object == nullptr) {
    local.flags = parent.flags;
    local.planes = parent.planes != nullptr ? planes.get() : nullptr;
    return local;
  }
  local.flags = parent.flags & ~u64{1};
  local.planes = nullptr;
  local.plane_count = local.plane_user = 0;
  if (parent.level == 0) local.identification2 = target.element.object_index;
  if (path.get_count() > outer_path_count_) path.remove_last();
  path.add(target.element);
  local.path = &path;
  if (parent.settings.allow_matte && CtxHelpers::is_matte_object(local, target.element)) local.matte = 1;
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
