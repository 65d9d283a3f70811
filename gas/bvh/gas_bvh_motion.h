// gas/bvh/gas_bvh_motion.h
//
// The boxes of a tree at each motion sample. The tree's topology stays; every node's lanes are stored again per sample,
// node by node, so that the two samples that a ray blends lie side by side (S samples):
//
//   aligned    node 0: [sample 0][sample 1] .. [sample S-1]   node 1: ...     96 B blocks, as the node's planes
//   oriented   the same, in the unit coordinates of each lane at rest         96 B blocks
//   quantized  the same, in 255ths of the frame at that sample                24 B blocks
//   root       [sample 0] .. [sample S-1]                                     24 B boxes
//
// A tree without oriented nodes is refitted from its items' boxes alone (gas_bvh_motion.cpp); oriented lanes keep their
// axes, and their items are measured again along them (gas_bvh_motion_oriented.cpp).
//
// Filled here, bottom-up (Wald, Boulos, Shirley 2007, "Ray Tracing Deformable Scenes Using Dynamic BVHs"); read by
// bvh_kernel.h.
#pragma once
#include <span>

#include "gas/bvh/bvh_layout.h"
#include "gas/bvh/gas_bvh.h"
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_linear_space.h"

class AppProgressBar;
class SysThreadManager;

/// Callback to the owner of a tree: returns the box around `items`, measured along the axes of `space` (unit length) at
/// the motion sample being written. Called on several threads at once.
struct BvhSampleMeasure {
  using Function = GMathBbox3<float> (*)(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space,
                                         void* owner, SysThreadManager* threads);
  Function function = nullptr;
  void* owner = nullptr;
};

/// The planes of all aligned nodes at the two samples around a ray's time. Made once a ray: the addresses of a node's
/// planes then take a product and two sums.
struct BvhMovedPlanes {
  const u8* first[2] = {nullptr, nullptr};  ///< [sample] of node 0
  std::size_t stride = 0;                   ///< bytes from one node to the next

  struct Node {
    const BvhLanePlanes &a, &b;
  };
  Node operator[](u32 node) const {
    const std::size_t offset = node * stride;
    return {*reinterpret_cast<const BvhLanePlanes*>(first[0] + offset),
            *reinterpret_cast<const BvhLanePlanes*>(first[1] + offset)};
  }
};

template <uint width>
class VQ_EXPORT GasBvhMotion {
 public:
  class UpdateUNodesTask;

  GasBvhMotion() = default;
  GasBvhMotion(const GasBvhMotion&) = delete;
  GasBvhMotion& operator=(const GasBvhMotion&) = delete;
  ~GasBvhMotion() { clear(); }

  /// Frees everything and drops the reference to the tree.
  void clear();
  /// Allocates `sample_count` samples for `tree`, which must outlive this object or the next clear(). The samples are
  /// undefined until updated. Nothing is allocated for an empty tree or 0 samples. False when there is no memory: the
  /// object is then clear.
  bool set_samples(const GasBvh<width>& tree, uint sample_count);

  /// Refits every node box to the items' boxes at one motion sample. The topology stays as built; boxes change
  /// bottom-up.
  ///
  /// @param sample      sample to write, in [0, get_sample_count())
  /// @param item_boxes  indexed by item (not by leaf position); not inverted
  /// @param progress    gets one step per aligned and two per quantized node; or null
  /// @return true when the sample was written. On false its previous boxes stay: the tree is empty (silent), or it has
  ///         oriented nodes or `sample` is out of range (logged at level 1).
  /// Throws std::bad_alloc, and AppStopped when the bar's application requests a stop; the sample is then undefined.
  /// Threads: one call per object at a time, and no query may read the object meanwhile.
  /// Cost: O(nodes + items) time; scratch of one float box per node.
  bool update_sample(uint sample, std::span<const GMathBbox3<float>> item_boxes, AppProgressBar* progress);

  /// The same for any tree, oriented nodes included.
  ///
  /// @param measure   called for every oriented lane, with the lane's items and axes
  /// @param progress  1024 oriented nodes and more are refitted on the threads of its application; null: everything on
  ///                  the calling thread, with the same result
  /// @return as update_sample(); false and a message of its own for a sample out of range
  /// Cost: O(nodes + items), and each item measured once for every oriented node above it; scratch of a box and a range
  /// of positions per node.
  bool update_sample_unaligned(uint sample, std::span<const GMathBbox3<float>> item_boxes,
                               const BvhSampleMeasure& measure, AppProgressBar* progress);

  uint get_sample_count() const { return sample_count_; }
  const GMathBbox3<float>& get_bbox(uint sample) const { return root_boxes_[sample]; }
  u64 get_array_bytes() const;

  const BvhLanePlanes& get_aligned(u32 node, uint sample) const {
    return aligned_[std::size_t{node} * sample_count_ + sample];
  }
  BvhMovedPlanes get_aligned_between(const uint (&samples)[2]) const {
    if (aligned_ == nullptr) return {};  // all nodes are oriented
    return {{reinterpret_cast<const u8*>(aligned_ + samples[0]), reinterpret_cast<const u8*>(aligned_ + samples[1])},
            sample_count_ * sizeof(BvhLanePlanes)};
  }
  const BvhLanePlanes& get_oriented(u32 node, uint sample) const {
    return oriented_[std::size_t{node} * sample_count_ + sample];
  }
  const BvhLaneBytes& get_quantized(u32 node, uint sample) const {
    return quantized_[std::size_t{node} * sample_count_ + sample];
  }

 private:
  struct Scratch;
  struct OrientedUpdate;
  GMathBbox3<float> get_child_box(const Scratch& scratch, BvhChildRef child,
                                  std::span<const GMathBbox3<float>> item_boxes) const;
  static GMathBbox3<float> make_frame(Scratch& scratch, BvhChildRef child);
  void fit_quantized_nodes(Scratch& scratch, std::span<const GMathBbox3<float>> item_boxes,
                           AppProgressBar* progress) const;
  void fit_aligned_nodes(Scratch& scratch, uint sample, std::span<const GMathBbox3<float>> item_boxes,
                         AppProgressBar* progress);
  void quantize_lanes(Scratch& scratch, uint sample, std::span<const GMathBbox3<float>> item_boxes,
                      AppProgressBar* progress);
  void fit_nodes_of_all_kinds(Scratch& scratch, std::span<const BvhChildRef> parents_first, uint sample,
                              std::span<const GMathBbox3<float>> item_boxes, AppProgressBar* progress);
  void update_oriented_nodes(const OrientedUpdate& update, AppProgressBar* progress);

  const GasBvh<width>* tree_ = nullptr;
  BvhLanePlanes* aligned_ = nullptr;   ///< aligned to 16
  BvhLanePlanes* oriented_ = nullptr;  ///< aligned to 16
  BvhLaneBytes* quantized_ = nullptr;  ///< aligned to 16
  GMathBbox3<float>* root_boxes_ = nullptr;
  u32 sample_count_ = 0;
};

extern template class GasBvhMotion<4>;

/// (1 - fraction) a + fraction b, bound by bound, in single precision. Exactly a for fraction 0 and b for fraction 1,
/// also when the other one is not finite.
inline GMathBbox3<float> bvh_blend_boxes(const GMathBbox3<float>& a, const GMathBbox3<float>& b, float fraction) {
  if (fraction == 0.0f || fraction == 1.0f) return fraction == 0.0f ? a : b;
  GMathBbox3<float> out;
  for (uint axis = 0; axis < 3; ++axis) {
    out.min[axis] = (1.0f - fraction) * a.min[axis] + fraction * b.min[axis];
    out.max[axis] = (1.0f - fraction) * a.max[axis] + fraction * b.max[axis];
  }
  return out;
}
