// gas/structure/gas_bvh_structure.h
//
// Shared by every structure on the four-wide tree; a structure class adds boxes, leaf functions and create().
//
//   GasObject .. Base <-- GasBvhStructure <-- GasBvhGeometry <-- GasGeometryBvh4, GasFur      clusters, frustum modes
//                               ^------------------------------- GasSceneTree
//
//   tree            written by create(), constant afterwards
//   leaf_functions  the leaf callbacks of the kernels
//   motion_data     [slot] the tree refitted to the samples of a motion-blur description, by the first query under it
//
// The definitions are in gas_bvh_structure_impl.h; the source of each structure instantiates them once. `Self`, the
// structure class, has this class as its friend and supplies:
//
//   bool can_move() const                                   false: motion queries return the static hits
//   void update_samples(ctx, motion_blur, Record&) const    refits; throws std::bad_alloc or AppStopped
//   static GMathBbox3<double> blend_bbox(a, b, fraction)    blends the root boxes of two samples
//   u64 get_own_bytes() const                               arrays other than the tree and the motion data
//   void report_growth(old_size, new_size) const            reports a change of the motion data's bytes to the host
//   auto get_leaf_functions(const Record*, query) const     null record: a static query
//   void answer_frustum(ctx, shader, query) const           may throw
//   void clear()                                            makes the structure empty
//   struct QueryScope(self, shader, query, hits)            lives as long as a ray query
#pragma once
#include <atomic>

#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "gas/frame/gas_memory.h"
#include "gas/frame/gas_motion_container.h"
#include "vq_gas_base/gas_object.h"
#include "vq_sys/sys_thread_lock.h"

/// The tree refitted to one motion-blur description.
template <class Owner>
struct GasRefitRecord {
  explicit GasRefitRecord(Owner* owner) : owner(owner) {}
  void clear() { refit.clear(); }
  /// The usual case of a query; pairs with the release store at the end of a refit.
  bool is_current(const CtxMotionBlur& motion_blur) const {
    return stamp.load(std::memory_order_acquire) == motion_blur.get_stamp();
  }
  u64 get_array_bytes() const { return refit.get_array_bytes(); }

  SysThreadLock lock;     ///< held by the thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample; no samples if there was no memory
  Owner* owner;
  std::atomic<uint> stamp{0};  ///< stamp of the description that `refit` belongs to; 0: stale
};

template <class Self, class Base, class Record = GasRefitRecord<Self>>
class GasBvhStructure : public Base {
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

  /// For reports and tests.
  const GasBvh<4>& get_tree() const { return tree; }

 protected:
  /// @param self  this object as its structure class: a cast is undefined before that is constructed
  explicit GasBvhStructure(Self* self);
  /// Copies the tree, but no motion data.
  GasBvhStructure(const GasBvhStructure& other, Self* self);
  GasBvhStructure(const GasBvhStructure& other) = delete;
  GasBvhStructure& operator=(const GasBvhStructure& other);
  ~GasBvhStructure() override;

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

  GasBvh<4> tree;
  BvhLeafFunctions leaf_functions;
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
