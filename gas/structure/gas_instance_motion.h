// gas/structure/gas_instance_motion.h
//
// The motion data of a structure whose leaves are clusters of other structures (a scene, a bundle): the tree refitted
// to each sample of a description, and each instance's matrix at each sample.
//
//   matrices[key * samples + sample]     key: get_key() of the structure
//   has_boxes[accepted]                  rays are tested against the instance's local boxes at rest
#pragma once
#include "gas/bvh/bvh_kernel.h"
#include "gas/frame/gas_guard.h"
#include "gas/structure/gas_bvh_structure.h"
#include "vq_core/core_export.h"
#include "vq_core/core_memory.h"
#include "vq_gmath/gmath_matrix.h"

template <class Owner>
struct VQ_EXPORT GasInstanceMotion : GasRefitRecord<Owner> {
  using GasRefitRecord<Owner>::GasRefitRecord;

  void clear() {
    this->refit.clear();
    matrices.reset();
    has_boxes.reset();
    matrices_sample_count = 0;
  }
  /// Called when the number of slots changed: reports it to the host.
  static void note_slots(const Owner& owner) {
    gas_try([&] { owner.advert_memory_changed(); });
  }
  u64 get_array_bytes() const { return this->refit.get_array_bytes() + matrices.get_bytes() + has_boxes.get_bytes(); }

  /// Makes room for `accepted_count` instances, and for `key_count` matrices at each of `sample_count` samples. Throws
  /// std::bad_alloc.
  void set_samples(uint accepted_count, uint key_count, uint sample_count) {
    if (has_boxes.get_count() != accepted_count) has_boxes = CoreAlignedArray<bool>(accepted_count);
    gas_need(has_boxes.get_count() == accepted_count);
    if (matrices_sample_count != sample_count || !matrices)
      matrices = CoreAlignedArray<GMathMatrix4x4<double>>(std::size_t{key_count} * sample_count, 64);
    matrices_sample_count = sample_count;
    gas_need(key_count == 0 || bool(matrices));
  }
  const GMathMatrix4x4<double>& get_matrix(uint key, uint sample) const {
    return matrices[std::size_t{key} * matrices_sample_count + sample];
  }
  GMathMatrix4x4<double>* get_matrices(uint key) { return &matrices[std::size_t{key} * matrices_sample_count]; }

  /// Leaf callbacks of a motion query.
  BvhLeafFunctions get_leaf_functions(bool with_vectors) const {
    auto* user = const_cast<GasInstanceMotion*>(this);
    return {Owner::leaf_ray_hit_motion_callback,
            with_vectors ? Owner::leaf_ray_hit_nearest_motion_vectors_callback
                         : Owner::leaf_ray_hit_nearest_motion_callback,
            user, Owner::leaf_frustum_hit_callback, this->owner};
  }

  CoreAlignedArray<GMathMatrix4x4<double>> matrices;
  CoreAlignedArray<bool> has_boxes;
  uint matrices_sample_count = 0;
};
