// host/vq_gas_base/gas_grid_tree_motion.h
//
// Motion of a GasGridTree: boxes at the samples of a motion-blur description. update_samples() computes those of the
// parts and of the tree over them; those within a part are computed when a ray with a time first reaches it.
//
//   samples      [sample]  nodes of the tree over the parts
//   parts_       [part]    state (as in GasGridTree), planes [sample x node]
//
// Rays see boxes blended between the two samples around their time.
#pragma once
#include <atomic>
#include <memory>

#include "vq_core/core_export.h"
#include "vq_gas_base/gas_grid_tree.h"
#include "vq_gas_base/gas_tree_motion.h"
#include "vq_gmath/gmath_time_sampling.h"

class CtxMotionBlur;

/// Writes the boxes at `time` of the items at `positions`, in their order. May throw.
using GasGridLeafBoxesAt = void (*)(void* user, const CtxEval&, const double& time, const uint& count,
                                    const uint* positions, GMathBbox3<float>* boxes);

class VQ_EXPORT GasGridTreeMotion : public GasTreeMotion {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasGridTreeMotion() = default;

  /// Sets the tree and the function that supplies boxes; without samples. The tree must outlive this object, and be
  /// configured again after it changed. No query may be running.
  void configure(const GasGridTree& grid, GasGridLeafBoxesAt leaf_boxes_at, void* user);
  /// Computes the samples of a description. Requests the boxes of all parts at all sample times, and keeps none. Throws
  /// std::bad_alloc, AppStopped, and what the supplier throws; there are then no samples. O(items x samples).
  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur);
  /// Removes all samples; reporting stays. No query may be running.
  void clear();
  u64 get_memory_size() const override;

  /// Reports of memory held by parts, as GasGridTree's; null: none.
  void set_memory_reporting(GasGridMemoryChange function, void* owner);

  /// Queries of the grid's primitives at each ray's own time: query.spans are those of the description, which
  /// shader.motion_blur is. As GasGridTree::ray_hit() and ray_hit_nearest() otherwise. Thread-safe.
  void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// Boxes of clusters of the grid: (1 - fraction) of sample `sample` and `fraction` of the next.
  /// @param boxes  [clusters.get_count()] written; inverted for a handle that is not one of the grid
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, const uint& sample, const float& fraction,
                           GMathBbox3<float>* boxes) const;

 private:
  struct Part {
    GasLazyState state;
    CoreAlignedArray<GasBinaryPlanes> planes;  ///< [sample x node of the part]
  };

  const Part* open_part(const CtxEval& ctx, const CtxShader& shader, uint index) const;
  void refit_part(const CtxEval& ctx, const CtxShader& shader, uint index, Part& part) const;
  template <GasWalkHits hits>
  void walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                 const GasTreeLeaf<GeometryRaytraceCtx>& primitive) const;

  const GasGridTree* grid_ = nullptr;
  GasGridLeafBoxesAt leaf_boxes_at_ = nullptr;
  void* leaf_boxes_user_ = nullptr;
  GasGridMemoryChange memory_ = nullptr;
  void* memory_owner_ = nullptr;
  GMathTimeSampling sampling_;
  std::unique_ptr<Part[]> parts_;
  uint part_count_ = 0;
  mutable std::atomic<u64> part_bytes_{0};
};
