// gas/gas_scene_tree_motion.h
//
// The motion data of a scene, one record per motion-blur slot. Included by the scene's own sources only.
#pragma once
#include "gas/frame/gas_guard.h"
#include "gas/gas_scene_tree.h"
#include "vq_core/core_memory.h"
#include "vq_gmath/gmath_matrix.h"

struct GasSceneTreeMotion : GasRefitRecord<GasSceneTree> {
  using GasRefitRecord::GasRefitRecord;
  void clear() {
    refit.clear();
    matrices.reset();
    matrices_sample_count = 0;
  }
  /// Called when the number of slots changed: reports it to the host.
  static void note_slots(const GasSceneTree& owner) {
    gas_try([&] { owner.advert_memory_changed(); });
  }
  u64 get_array_bytes() const { return refit.get_array_bytes() + matrices.get_bytes(); }
  /// Object-to-world matrix of an accepted object at a sample.
  const GMathMatrix4x4<double>& get_matrix(uint accepted, uint sample) const {
    return matrices[std::size_t{accepted} * matrices_sample_count + sample];
  }
  /// Leaf callbacks of a motion query.
  BvhLeafFunctions get_leaf_functions(bool with_vectors) const {
    auto* user = const_cast<GasSceneTreeMotion*>(this);
    return {GasSceneTree::leaf_ray_hit_motion_callback,
            with_vectors ? GasSceneTree::leaf_ray_hit_nearest_motion_vectors_callback
                         : GasSceneTree::leaf_ray_hit_nearest_motion_callback,
            user, GasSceneTree::leaf_frustum_hit_callback, owner};
  }

  CoreAlignedArray<GMathMatrix4x4<double>> matrices;  ///< [accepted object * samples + sample]
  uint matrices_sample_count = 0;
};
