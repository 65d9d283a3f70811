// gas/gas_scene_tree_motion.h
//
// What the scene keeps per motion-blur slot. Only its own sources include this.
#pragma once
#include <atomic>

#include "gas/gas_scene_tree.h"
#include "vq_core/core_memory.h"
#include "vq_gmath/gmath_matrix.h"
#include "vq_sys/sys_thread_lock.h"

struct GasSceneTree::MotionData {
  explicit MotionData(GasSceneTree* owner) : owner(owner) {}
  void clear() {
    refit.clear();
    matrices.reset();
    matrices_sample_count = 0;
  }
  static void note_slots(const GasSceneTree& owner) { owner.advert_memory_changed(); }
  u64 get_array_bytes() const { return refit.get_array_bytes() + matrices.get_bytes(); }
  /// Object to world of accepted object `accepted` at a sample.
  const GMathMatrix4x4<double>& get_matrix(uint accepted, uint sample) const {
    return matrices[std::size_t{accepted} * matrices_sample_count + sample];
  }
  BvhLeafFunctions get_leaf_functions(bool wants_vectors) {
    return {leaf_ray_hit_motion_callback,
            wants_vectors ? leaf_ray_hit_nearest_motion_vectors_callback : leaf_ray_hit_nearest_motion_callback, this,
            leaf_frustum_hit_callback, owner};
  }

  SysThreadLock lock;     ///< held by the one thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample
  GasSceneTree* owner;
  CoreAlignedArray<GMathMatrix4x4<double>> matrices;  ///< [accepted object * samples + sample]
  uint matrices_sample_count = 0;
  std::atomic<uint> stamp{0};  ///< of the description that this was computed for; 0: stale
};

/// The world box around a box in an object's space: the extremes of its eight corners, in double precision, stored in
/// single. Bounds beyond a quarter of the float range are brought there: an infinite one, blended between two samples
/// with a share of 0, would be NaN, and with it the boxes of all that lies in one node with the object. A box without
/// any place, as of an object with a matrix of NaN, shrinks to a point: a tree can hold it, and no ray finds anything
/// there.
GMathBbox3<float> gas_get_world_bbox(const GMathBbox3<float>& local, const GMathMatrix4x4<double>& matrix);
