#include "gas/structure/gas_nested_query.h"

#include <new>

#include "vq_module/ctx_helpers.h"

namespace {

template <class T>
bool grow_array(CoreAlignedArray<T>& array, uint count) {
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

bool GasRayCtx::grow(uint ray_count) { return grow_array(rays, ray_count) && grow_array(matrices, ray_count); }

bool GasRayCtx::reserve_end_matrices(uint ray_count) { return grow_array(end_matrices, ray_count); }

void GasNestedScope::make_record(GasNestedQueryCtx*& slot) const {
  slot = new (std::nothrow) GasNestedQueryCtx;
  shader_.nested_release = release_chain;
}

// The record is reused by leaves of every kind: every field must be set.
GeometryRaytraceCtx& GasRayCtx::begin_query(GeometryRaytraceCtx& parent, const GasNestedTarget& target) {
  GeometryRaytraceCtx& local = query;
  local.rays = reinterpret_cast<const u8*>(rays.get());
  local.ray_stride = sizeof(GMathBasicRay<double>);
  local.ray_count = parent.ray_count;
  local.first_ray = parent.first_ray;
  local.last_ray = parent.last_ray;
  local.intervals = parent.intervals;
  local.spans = nullptr;
  local.span_stamp = 0;
  local.ray_flags = parent.ray_flags;
  local.tallies = parent.tallies;
  local.visits = parent.visits;
  local.matrices = matrices.get();
  local.matrices2 = nullptr;
  local.matrices2_used = false;

  local.shading_group_offset = 0;
  local.identification2 = parent.identification2;
  local.depth = parent.depth;
  local.instance = 0;
  local.cluster = target.cluster;
  local.geometry = nullptr;
  local.shading = parent.shading;  // for objects without their own table
  local.remove_filters();
  local.primitive_filter = nullptr;
  local.hit_weight = 1.0;

  local.hit_callback = parent.hit_callback;
  local.hit_user = parent.hit_user;
  local.settings = parent.settings;
  local.object_distance = target.distance;
  local.map = nullptr;
  if (parent.map != nullptr) {
    map = parent.map->get_deeper();
    local.map = &map;
  }
  local.hits = parent.hits;
  local.user_word = parent.user_word;
  local.planes = nullptr;
  local.plane_count = local.plane_user = 0;

  gas_extend_path(path, parent.path, target.element);
  local.path = &path;
  local.matte =
      parent.settings.allow_matte && CtxHelpers::is_matte_object(local, target.element) ? u8{1} : parent.matte;
  local.flags = parent.flags & ~u64{1};
  local.parent = &parent;
  local.level = parent.level + 1;
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
