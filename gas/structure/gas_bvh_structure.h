// gas/structure/gas_bvh_structure.h
//
// What every structure on the four-wide tree shares; a structure class adds boxes, leaf functions and create().
//
//   GasObject .. Base <-- GasBvhStructure <-- GasBvhGeometry <-- GasGeometryBvh4, GasFur      clusters, frustum modes
//                               ^------------------------------- GasSceneTree
//
//   tree            built by create(), then only read
//   leaf_functions  what the kernels call at a leaf
//   motion_data     [slot] the tree refitted to the samples of a motion-blur description, made by the first query that
//                   needs it
//
// The bodies are in gas_bvh_structure_impl.h; the source of each structure instantiates them once. `Self`, the
// structure class, makes this class its friend and has
//
//   bool can_move() const                                             whether timed rays see anything else than rays at
//   rest void update_samples(ctx, motion_blur, Record&) const              refits; throws when it cannot static
//   GMathBbox3<double> blend_bbox(a, b, fraction)              of two samples' root boxes u64 get_own_bytes() const
//   arrays besides the tree and the motion data void report_growth(old_size, new_size) const                      of
//   the motion data, to the host auto get_leaf_functions(const Record*, query) const               null: at rest void
//   answer_frustum(ctx, shader, query) const                     may throw void clear() makes the structure empty
//   struct QueryScope                                                 made from (self, shader, query, hits), lives as
//   long
//                                                                     as a ray query
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
  /// The common case of a query; pairs with the release store that ends a refit.
  bool is_current(const CtxMotionBlur& motion_blur) const {
    return stamp.load(std::memory_order_acquire) == motion_blur.get_stamp();
  }
  u64 get_array_bytes() const { return refit.get_array_bytes(); }

  SysThreadLock lock;     ///< held by the one thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample; without samples where memory ran out
  Owner* owner;
  std::atomic<uint> stamp{0};  ///< of the description that this was computed for; 0: stale
};

template <class Self, class Base, class Record = GasRefitRecord<Self>>
class GasBvhStructure : public Base {
 public:
  /// The tree's box; inverted when it is empty.
  GMathBbox3<double> get_bbox() const override;
  /// The box at `time` under the context's motion blur, blended between the samples around it; the first call for a
  /// description refits the tree. What does not move, or without a description, get_bbox(). Thread-safe.
  GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const override;
  /// To be called when the motion of what was built over changed: the next query under each description refits the tree
  /// anew. No query may be running.
  void dirty_motion_blur() override;
  /// Bytes of the object, its arrays and its motion data. Waits for a refit that is going on. Thread-safe.
  u64 get_memory_size() const override;

  // Query callbacks, which GasObject calls once they are installed. None throws: where memory runs out a query has
  // found what it had found by then.
  static void ray_hit_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  /// Sees everything at rest.
  static void frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryFrustumCtx&);

  /// For reports and tests.
  const GasBvh<4>& get_tree() const { return tree; }

 protected:
  /// @param self  this object as the structure that it becomes: not to be cast before that is made
  explicit GasBvhStructure(Self* self);
  /// Copies have a deep copy of the tree and no motion data.
  GasBvhStructure(const GasBvhStructure& other, Self* self);
  GasBvhStructure(const GasBvhStructure& other) = delete;
  GasBvhStructure& operator=(const GasBvhStructure& other);
  ~GasBvhStructure() override;

  /// Timed rays are answered as those at rest where nothing moves, and then never touch motion data.
  void install_callbacks(bool has_motion);
  /// Runs `build`, which fills the structure and throws when it cannot: for want of memory, which is then reported, or
  /// because the application asks to stop. The structure is then empty. Forgets motion data either way.
  /// @param name  of the operation, which leads the report
  template <class Build>
  void rebuild(const char* name, const Build& build);
  /// The description's record, refitted first when it is stale. Null when there is none for want of memory, or because
  /// the application asks to stop: the structure is then answered for at rest.
  const Record* refit_if_stale(const CtxEval& ctx, const CtxMotionBlur& motion_blur) const;
  /// The same for boxes at times; null also for what does not move and without a description.
  const Record* refit_if_stale(const CtxEval& ctx) const;

  GasBvh<4> tree;
  BvhLeafFunctions leaf_functions;
  mutable GasMemoryAccount memory_account;
  /// Queries that only read the structure fill this lazily; the container and its records have their own locks.
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
