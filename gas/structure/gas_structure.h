// gas/structure/gas_structure.h
//
// Shared by the structures that answer ray queries, whatever tree they stand on: query callbacks, motion data, memory.
//
//   GasObject .. Base <-- GasStructure <-- GasBvhStructure    structures on the four-wide tree (gas_bvh_structure.h)
//                               ^--------- GasGeometry        on the host's grid tree
//
//   motion_data     [slot] a Record: what belongs to one motion-blur description, made by the first query under it
//
// The definitions are in gas_structure_impl.h; the source of each structure instantiates them once. `Self`, the
// structure class, has this class as its friend and supplies:
//
//   bool can_move() const                                   false: motion queries return the static hits
//   bool has_tree() const                                   false: nothing is found
//   GMathBbox3<float> get_tree_bbox() const                 the static box
//   void update_samples(ctx, motion_blur, Record&) const    refits; throws std::bad_alloc or AppStopped
//   static GMathBbox3<double> blend_bbox(a, b, fraction)    blends the root boxes of two samples
//   u64 get_own_bytes() const                               all bytes but the object and the motion data
//   void report_growth(old_size, new_size) const            reports a change of the motion data's bytes to the host
//   void traverse<hits>(ctx, shader, query, record) const   a ray query; null record: a static one. May throw
//   void answer_frustum(ctx, shader, query) const           may throw
//   void clear()                                            makes the structure empty
//   struct QueryScope(self, shader, query, hits)            lives as long as a ray query
//
// A Record has `lock`, `stamp`, clear(), get_array_bytes(), get_sample_count() and get_bbox(sample).
#pragma once
#include <atomic>

#include "gas/bvh/bvh_kernel.h"
#include "gas/frame/gas_memory.h"
#include "gas/frame/gas_motion_container.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_object.h"
#include "vq_sys/sys_thread_lock.h"

template <class Self, class Base, class Record>
class VQ_EXPORT GasStructure : public Base {
 public:
  /// The static box of the tree; inverted if it is empty. Thread-safe, O(1).
  GMathBbox3<double> get_bbox() const override;
  /// The box at `time` under the motion blur of `ctx`, blended between two samples; get_bbox() if there is no motion
  /// blur, nothing moves or there is no memory. The first call for a description refits the tree. Thread-safe.
  GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const override;
  /// Call after the motion of the geometry or of the objects changed: the next query under each description refits the
  /// tree again. No query may be running.
  void dirty_motion_blur() override;
  /// Bytes of the object, its arrays and its motion data. Waits for a refit that is running. Thread-safe.
  u64 get_memory_size() const override;

  // Query callbacks of GasObject. None throws: if memory runs out, the query keeps the hits found so far.
  static void ray_hit_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  /// Tests the static shape.
  static void frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryFrustumCtx&);

 protected:
  /// @param self  this object as its structure class: a cast is undefined before that is constructed
  explicit GasStructure(Self* self);
  /// Copies no motion data.
  GasStructure(const GasStructure& other, Self* self);
  GasStructure(const GasStructure& other) = delete;
  GasStructure& operator=(const GasStructure& other);
  ~GasStructure() override;

  /// Without motion the motion queries use the static callbacks and never read motion data.
  void install_callbacks(bool has_motion);
  /// Runs `build`, which fills the structure. If it throws, the structure is empty: std::bad_alloc is logged,
  /// AppStopped is not. Frees the motion data in any case.
  /// @param name  of the operation, for the log
  template <class Build>
  void rebuild(const char* name, const Build& build);
  /// The record of the description, refitted first if it is stale. Null if there is no memory or the application
  /// requests a stop: the query then uses the static boxes.
  const Record* refit_if_stale(const CtxEval& ctx, const CtxMotionBlur& motion_blur) const;
  /// The same for the motion blur of `ctx`; null also without one and if nothing moves.
  const Record* refit_if_stale(const CtxEval& ctx) const;

  mutable GasMemoryAccount memory_account;
  /// Filled by const queries when first needed; the container and its records have their own locks.
  mutable GasMotionContainer<Record, Self> motion_data;

 private:
  const Self& self() const { return static_cast<const Self&>(*this); }
  Self& self() { return static_cast<Self&>(*this); }
  void update_record(const CtxEval& ctx, const CtxMotionBlur& motion_blur, Record& record) const;
  template <BvhHits hits>
  static void answer(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&, const Record* record);
  template <BvhHits hits>
  static void answer_motion(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
};
