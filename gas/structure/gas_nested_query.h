// gas/structure/gas_nested_query.h
//
// Nested queries: within a leaf of one structure, a thread queries another structure. A thread has one record per
// nesting depth, linked from its CtxShader:
//
//   CtxShader --first--> [depth 1] --next--> [depth 2] --next--> ...      made on first use, freed with the CtxShader
//             --current----------------------^                            one deeper during a leaf, then back
//
// A record serves queries of any kind, one at a time:
//
//   rays       query | map | path | rays[ray], 80 bytes each | matrices[ray], 136 bytes each | end_matrices[ray]
//              planes[ ] | outer_ray | box_ray
//   frustums   planes, results and lists | path
//   beams      the current beam of the outer query; the inner query needs nothing else
//
// For each ray of the outer query it holds the ray in the inner space and the inner-to-outer matrix. Rays keep their
// numbers in the inner query. Data that is the same in all spaces (intervals, spans, stop flags, hits) is shared.
// Arrays grow to the number of rays of the outer query and are kept.
#pragma once
#include "gas/structure/gas_instance_ray.h"
#include "vq_core/core_memory.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/ctx_helpers.h"

/// What a leaf refers to: an object of a scene or an instance of a bundle.
struct GasNestedTarget {
  u64 cluster = 0;                ///< of the inner structure
  double distance = 0.0;          ///< smallest tnear inside: skips hits on the object that emitted the ray
  uint shading_group_offset = 0;  ///< of the inner query, as the next two
  uint depth = 0;
  uint instance = 0;
  /// Of a scene's object: appended to the path. An instance of a bundle has none: its query keeps the parent's path and
  /// planes, and its matte and flag words.
  GeometryIntersectionPathElement element;
};

/// Calls function(ray) for every ray in the query's active range.
template <class Function>
inline void gas_for_each_ray(const GeometryRaytraceData& query, const Function& function) {
  for (uint ray = query.first_ray; ray <= query.last_ray && ray < query.ray_count; ++ray) function(ray);
}

/// The part of a record for ray queries.
struct GasRayCtx {
  GeometryRaytraceCtx query;
  GeometryIntersectionMap map;  ///< the outer nearest hits, mapped to this depth
  GeometryIntersectionPath path;
  CoreAlignedArray<GMathBasicRay<double>> rays;
  CoreAlignedArray<GeometryRayMatrix> matrices;      ///< inner space to outer
  CoreAlignedArray<GeometryRayMatrix> end_matrices;  ///< at the end of each ray's motion span; only for vectors
  CoreAlignedArray<GeometryPlane> planes;            ///< those of the outer query, in the inner space
  GasInstanceRay box_ray;                            ///< the begun ray, for tests against local boxes

  /// Makes room for the rays and planes of `parent` and for the paths of its nearest hits. False if there is no memory.
  bool reserve(GeometryRaytraceCtx& parent) { return is_reserved_ || grow(parent); }
  bool reserve_end_matrices(uint ray_count);

  /// Sets all of `query` from `parent` and the target, except rays, matrices and planes. What is the same in all leaves
  /// of the outer query is only set in the first.
  GeometryRaytraceCtx& begin_query(GeometryRaytraceCtx& parent, const GasNestedTarget& target);
  /// Sets the matrix of one ray, from the inner space to the parent's.
  void set_matrix(uint ray, const GMathMatrix4x4<double>& matrix) {
    matrices[ray].matrix = matrix;
    matrices[ray].flag = 0;
  }
  /// Transforms the planes of `parent` with the matrix of the first active ray.
  void transform_planes(const GeometryRaytraceCtx& parent, const GMathMatrix4x4<double>& inverse) {
    for (u64 k = 0; k < parent.plane_count; ++k)
      planes[k] = parent.planes[k].get_transformed(inverse, matrices[parent.first_ray].matrix);
  }
  /// After a nearest query: carries the hit of `ray`, if it was found in this query, to the space of `parent`. The path
  /// is recorded here, where the hit is known, and not with each candidate.
  template <class... Matrices>
  void lift_hit(GeometryRaytraceCtx& parent, uint ray, uint depth, const Matrices&... to_parent) {
    if (!parent.map->is_one_deeper(ray)) return;
    if (query.path != nullptr && parent.map->get_path(ray).path == core_invalid_index)
      parent.map->record_path(ray, *query.path);
    parent.map->transform_path(ray, to_parent..., depth);
  }

  // What is known of the last single ray, because leaves of one instance often follow each other.
  /// False if the active ray of `parent` is the one last begun for this instance. In one query all leaves get single
  /// rays or all get the same range.
  bool begin_ray(const GeometryRaytraceData& parent, uint instance) {
    if (has_begun_ray_ && begun_instance_ == instance && begun_ray_ == parent.first_ray) return false;
    has_begun_ray_ = parent.first_ray == parent.last_ray;
    has_cached_ray_ = false;
    begun_instance_ = instance;
    begun_ray_ = parent.first_ray;
    return true;
  }
  /// Calls transform(ray), which brings a ray to the instance's space, for the active rays of `parent`, unless that was
  /// done since begin_ray().
  template <class Transform>
  void transform_rays(const GeometryRaytraceCtx& parent, const Transform& transform) {
    if (has_cached_ray_) return;
    gas_for_each_ray(parent, transform);
    has_cached_ray_ = has_begun_ray_;
  }
  /// The active single ray of `parent` in single precision.
  const GasOuterRay& get_outer_ray(const GeometryRaytraceCtx& parent, const GasTreeExtent& tree) {
    const uint ray = parent.first_ray;
    if (!has_outer_ray_ || outer_ray_number_ != ray) {
      outer_ray_.set(parent.get_ray(ray), parent.intervals[ray].tnear, tree);
      outer_ray_number_ = ray;
      has_outer_ray_ = true;
    }
    return outer_ray_;
  }
  void forget_query() { has_begun_ray_ = has_cached_ray_ = has_outer_ray_ = is_reserved_ = is_begun_ = false; }

 private:
  bool grow(GeometryRaytraceCtx& parent);
  void begin_outer_query(GeometryRaytraceCtx& parent);
  bool is_begun_ = false;        ///< `query` has what is the same in all leaves
  bool is_reserved_ = false;     ///< the arrays have room for the outer query
  bool has_begun_ray_ = false;   ///< for an instance
  bool has_cached_ray_ = false;  ///< the begun ray is transformed
  bool has_outer_ray_ = false;
  uint outer_path_count_ = 0;  ///< elements of `path` that are the outer query's
  uint begun_instance_ = 0;
  uint begun_ray_ = 0;
  uint outer_ray_number_ = 0;
  GasOuterRay outer_ray_;
};

// Inlined: most of the target's fields are constants where a leaf is entered.
[[gnu::always_inline]] inline GeometryRaytraceCtx& GasRayCtx::begin_query(GeometryRaytraceCtx& parent,
                                                                          const GasNestedTarget& target) {
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

struct GasNestedQueryCtx {
  GasRayCtx ray;
  GeometryFrustumCtx frustum;
  GeometryIntersectionPath frustum_path;
  GeometryRayFrustumCtx ray_frustum;
  GasNestedQueryCtx* next = nullptr;  ///< one depth further; null until needed
};

/// While it exists, the thread's next deeper record is the current one. Inline, because every leaf needs it.
class GasNestedScope {
 public:
  explicit GasNestedScope(CtxShader& shader) : GasNestedScope(shader, get_or_make_next(shader)) {}
  /// @param record  what get_or_make_next() returns
  GasNestedScope(CtxShader& shader, GasNestedQueryCtx* record)
      : shader_(shader), outer_(shader.nested_current), record_(record) {
    if (record_ != nullptr) shader.nested_current = record_;
  }
  ~GasNestedScope() { shader_.nested_current = outer_; }
  GasNestedScope(const GasNestedScope&) = delete;
  GasNestedScope& operator=(const GasNestedScope&) = delete;

  /// Null if there is no memory for a record.
  GasNestedQueryCtx* get() const { return record_; }

  /// The thread's next deeper record, whether it becomes the current one or not. Null if there is no memory for it.
  static GasNestedQueryCtx* get_or_make_next(CtxShader& shader) {
    GasNestedQueryCtx*& slot = shader.nested_current != nullptr ? shader.nested_current->next : shader.nested_first;
    if (slot == nullptr) make_record(shader, slot);
    return slot;
  }
  /// Call at the start of a query whose leaves use records: clears what these hold of another query.
  static void forget_query(CtxShader& shader) {
    GasNestedQueryCtx* record = shader.nested_current != nullptr ? shader.nested_current->next : shader.nested_first;
    if (record != nullptr) record->ray.forget_query();
  }

 private:
  static void make_record(CtxShader& shader, GasNestedQueryCtx*& slot);

  CtxShader& shader_;
  GasNestedQueryCtx* outer_;
  GasNestedQueryCtx* record_;
};

/// Sets `path` to the parent's path and one more element; to a shorter path if there is no memory.
void gas_extend_path(GeometryIntersectionPath& path, const GeometryIntersectionPath* parent,
                     const GeometryIntersectionPathElement& element);
