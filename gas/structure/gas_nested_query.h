// gas/structure/gas_nested_query.h
//
// What a thread needs to query one structure from within the leaf of another. A thread has one record per nesting
// depth, linked from its CtxShader:
//
//   CtxShader --first--> [depth 1] --next--> [depth 2] --next--> ...      made on first use, freed with the CtxShader
//             --current----------------------^                            moved down by a leaf, back up when it is done
//
// A record serves queries of every kind, one at a time:
//
//   rays       query | map | path | rays[ray], 80 bytes each | matrices[ray], 136 bytes each | end_matrices[ray]
//   frustums   planes, results and lists | path
//   beams      the outer query's current beam, which is all that an inner query asks for
//
// Per ray of the outer query it has a ray in the inner space and a matrix back to the outer one. Rays keep their
// numbers: ray r of the inner query is ray r of the outer, and what is the same in all spaces (intervals, spans, stop
// flags, hits) is shared. Arrays grow to the outer query's rays and stay.
#pragma once
#include "vq_core/core_memory.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

/// What a leaf enters: an object of a scene, an instance of a bundle.
struct GasNestedTarget {
  uint key = 0;     ///< names the space among all that the structure's leaves lead to
  u64 cluster = 0;  ///< of the inner structure
  double distance;  ///< rays that the object emits do not hit it nearer than this
  GeometryIntersectionPathElement element;
};

/// The ray side of a record.
struct GasRayCtx {
  GeometryRaytraceCtx query;
  GeometryIntersectionMap map;  ///< the outer nearest hits as seen from this depth
  GeometryIntersectionPath path;
  CoreAlignedArray<GMathBasicRay<double>> rays;
  CoreAlignedArray<GeometryRayMatrix> matrices;  ///< inner space to outer
  CoreAlignedArray<GeometryRayMatrix>
      end_matrices;  ///< the same at the end of each ray's motion span; only for vectors

  /// Room for the rays of `parent` and what their nearest hits bring along. False when there is no memory.
  bool reserve(GeometryRaytraceCtx& parent) {
    const uint count = parent.ray_count;
    if (parent.map != nullptr && !parent.map->reserve_nested()) return false;
    return (rays.get_count() >= count && matrices.get_count() >= count) || grow(count);
  }
  bool reserve_end_matrices(uint ray_count);

  /// Fills `query` for what `parent` has to ask of the target: everything but rays and matrices.
  GeometryRaytraceCtx& begin_query(GeometryRaytraceCtx& parent, const GasNestedTarget& target);

  // The one active ray that was last carried into a space in the query that is going on: leaves of one object often
  // follow each other, and their rays are the same.
  bool is_ray_cached(const GeometryRaytraceData& parent, uint key) const {
    return has_cached_ray_ && cached_key_ == key && cached_ray_ == parent.first_ray;
  }
  void cache_ray(const GeometryRaytraceData& parent, uint key) {
    has_cached_ray_ = parent.first_ray == parent.last_ray;
    cached_key_ = key;
    cached_ray_ = parent.first_ray;
  }
  void forget_ray() { has_cached_ray_ = false; }

 private:
  bool grow(uint ray_count);
  bool has_cached_ray_ = false;
  uint cached_key_ = 0;
  uint cached_ray_ = 0;
};

struct GasNestedQueryCtx {
  GasRayCtx ray;
  GeometryFrustumCtx frustum;
  GeometryIntersectionPath frustum_path;
  GeometryRayFrustumCtx ray_frustum;
  GasNestedQueryCtx* next = nullptr;  ///< one deeper; null until needed
};

/// Makes the thread's next deeper record current for as long as it lives. Inline, as every leaf takes one.
class GasNestedScope {
 public:
  explicit GasNestedScope(CtxShader& shader) : shader_(shader), outer_(shader.nested_current) {
    GasNestedQueryCtx*& slot = outer_ != nullptr ? outer_->next : shader.nested_first;
    if (slot == nullptr) make_record(slot);
    record_ = slot;
    if (record_ != nullptr) shader.nested_current = record_;
  }
  ~GasNestedScope() { shader_.nested_current = outer_; }
  GasNestedScope(const GasNestedScope&) = delete;
  GasNestedScope& operator=(const GasNestedScope&) = delete;

  /// Null when there is no memory for a record.
  GasNestedQueryCtx* get() const { return record_; }

  /// To be called when a query begins whose leaves will take records: what these have cached is of another query.
  static void forget_rays(CtxShader& shader) {
    GasNestedQueryCtx* record = shader.nested_current != nullptr ? shader.nested_current->next : shader.nested_first;
    if (record != nullptr) record->ray.forget_ray();
  }

 private:
  void make_record(GasNestedQueryCtx*& slot) const;

  CtxShader& shader_;
  GasNestedQueryCtx* outer_;
  GasNestedQueryCtx* record_;
};

/// Calls function(r) for every ray of the query's active range.
template <class Function>
inline void gas_for_each_ray(const GeometryRaytraceData& query, const Function& function) {
  for (uint ray = query.first_ray; ray <= query.last_ray && ray < query.ray_count; ++ray) function(ray);
}

/// `path` becomes the parent's and one element more. Where there is no memory for a path it is shorter.
void gas_extend_path(GeometryIntersectionPath& path, const GeometryIntersectionPath* parent,
                     const GeometryIntersectionPathElement& element);
