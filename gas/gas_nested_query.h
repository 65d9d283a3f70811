// gas/gas_nested_query.h
//
// What a thread needs to ask one structure from within the leaf of another. A thread has one record per nesting depth,
// linked from its CtxShader:
//
//   CtxShader --first--> [depth 1] --next--> [depth 2] --next--> ...      made on first use, freed with the CtxShader
//             --current----------------------^                            moved down by a leaf, back up when it is done
//
// A record serves queries of every kind, one at a time:
//
//   rays       query | map | path | rays[ray], 80 bytes each | matrices[ray], 264 bytes each | matrices2[ray]
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

class ModuleSceneObject;

/// The ray side of a record.
struct GasRayCtx {
  GeometryRaytraceCtx query;
  GeometryIntersectionMap map;  ///< the outer nearest hits as seen from this depth
  GeometryIntersectionPath path;
  CoreAlignedArray<GMathBasicRay<double>> rays;
  CoreAlignedArray<GeometryRayMatrix> matrices;   ///< inner space to outer
  CoreAlignedArray<GeometryRayMatrix> matrices2;  ///< the same at the end of each ray's motion span; only for vectors

  /// The object and the ray that were last carried over in the query that is going on: leaves of one object often
  /// follow each other, and their rays are the same.
  const ModuleSceneObject* held_object = nullptr;
  uint held_ray = 0;

  /// Room for `ray_count` rays. False when there is no memory.
  bool reserve(uint ray_count) {
    return (rays.get_count() >= ray_count && matrices.get_count() >= ray_count) || grow(ray_count);
  }
  bool reserve_second_matrices(uint ray_count);

 private:
  bool grow(uint ray_count);
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

  /// To be called when a query begins whose leaves will take records: what these hold is of another query.
  static void forget_rays(CtxShader& shader) {
    GasNestedQueryCtx* record = shader.nested_current != nullptr ? shader.nested_current->next : shader.nested_first;
    if (record != nullptr) record->ray.held_object = nullptr;
  }

 private:
  void make_record(GasNestedQueryCtx*& slot) const;

  CtxShader& shader_;
  GasNestedQueryCtx* outer_;
  GasNestedQueryCtx* record_;
};
