#include "gas/bvh/bvh_finalize.h"

#include "gas/bvh/bvh_quantize.h"
#include "vq_app_base/app_progress_scope.h"

namespace {

class Finalizer {
 public:
  Finalizer(GasBvh<4>& tree, std::span<BvhBuildThreadPools* const> pools, uint tag_shift, u32 tag_mask,
            const AppBase* application, const AppProgressScope& stage)
      : tree_(tree),
        pools_(pools),
        tag_shift_(tag_shift),
        tag_mask_(tag_mask),
        application_(application),
        stage_(stage) {}

  void run(BvhChildRef root) {
    tree_.root = move_node(root);
    while (!stack_.empty()) {
      const BvhChildRef parent = stack_.back();
      stack_.pop_back();
      move_children(parent);
    }
  }

 private:
  /// Copies the node of a tagged reference to the end of the array of its kind and returns the final reference. Leaves
  /// do not change.
  BvhChildRef move_node(BvhChildRef ref) {
    const BvhKind kind = ref.get_kind();
    if (kind == BvhKind::leaf) return ref;
    BvhBuildThreadPools& pools = *pools_[tag_shift_ == 0 ? 0 : ref.index >> tag_shift_];
    const u32 local = ref.index & tag_mask_;
    switch (kind) {
      case BvhKind::aligned:
        ref.index = move(tree_.aligned, next_aligned_, pools.aligned[local]);
        break;
      case BvhKind::quantized:
        ref.index = move(tree_.quantized, next_quantized_, pools.quantized[local]);
        break;
      default:
        ref.index = move(tree_.oriented, next_oriented_, pools.oriented[local]);
        break;
    }
    const u32 moved = next_aligned_ + next_quantized_ + next_oriented_;
    stage_.step(moved);
    if (application_ != nullptr) gas_check_stop(*application_, moved);
    stack_.push_back(ref);
    return ref;
  }

  void move_children(BvhChildRef parent) {
    for (uint lane = 0; lane < parent.get_count(); ++lane) {
      switch (parent.get_kind()) {
        case BvhKind::aligned: {
          BvhNodeAligned& node = tree_.aligned[parent.index];
          move_child(node.child[lane]);
          if (node.child[lane].get_kind() == BvhKind::quantized)
            node.lanes.set_lane(lane, bvh_make_frame(node.lanes.get_lane(lane)));
          break;
        }
        case BvhKind::oriented:
          move_child(tree_.oriented[parent.index].child[lane]);
          break;
        default:
          BvhNodeQuantized& node = tree_.quantized[parent.index];
          node.set_child(lane, move_node(node.get_child(lane)));
          break;
      }
    }
  }
  void move_child(BvhChildRef& slot) { slot = move_node(slot); }

  template <class Node>
  static u32 move(Node* array, u32& next, const Node& node) {
    array[next] = node;
    return next++;
  }

  GasBvh<4>& tree_;
  std::span<BvhBuildThreadPools* const> pools_;
  uint tag_shift_;
  u32 tag_mask_;
  const AppBase* application_;
  const AppProgressScope& stage_;
  std::vector<BvhChildRef> stack_;
  u32 next_aligned_ = 0, next_quantized_ = 0, next_oriented_ = 0;
};

}  // namespace

void bvh_allocate_nodes(GasBvh<4>& tree, std::span<BvhBuildThreadPools* const> pools) {
  uint aligned = 0, quantized = 0, oriented = 0;
  for (const BvhBuildThreadPools* thread : pools) {
    aligned += thread->aligned.get_count();
    quantized += thread->quantized.get_count();
    oriented += thread->oriented.get_count();
  }
  gas_need(tree.allocate_nodes(aligned, quantized, oriented));
}

void bvh_finalize(GasBvh<4>& tree, BvhChildRef root, std::span<BvhBuildThreadPools* const> pools, uint tag_shift,
                  u32 tag_mask, const AppBase* application, AppProgressBar* progress) {
  const uint count = tree.aligned_count + tree.quantized_count + tree.oriented_count;
  const AppProgressScope stage(progress, "Finalize", 0.1, count);
  Finalizer(tree, pools, tag_shift, tag_mask, application, stage).run(root);
}
