// How a frustum walks a tree: any order will do, so the stack is plain; what lies wholly inside needs no more tests.
#include <new>

#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/bvh_quantize.h"
#include "gas/bvh/bvh_start.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

struct FrustumEntry {
  BvhChildRef ref;
  GMathBbox3<float> box;
  bool inside;  ///< no plane cuts the box, nor therefore anything in it
};

class FrustumTraversal {
 public:
  FrustumTraversal(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                   FrustumEntry* stack)
      : target_(target), ctx_(ctx), shader_(shader), query_(query), stack_(stack) {}

  void run(const BvhStart& start) {
    visit_child(start.ref, start.box, false);
    while (count_ > 0 && !is_done()) {
      const FrustumEntry at = stack_[--count_];
      for (uint lane = 0; lane < at.ref.get_count() && !is_done(); ++lane) {
        switch (at.ref.get_kind()) {
          case BvhKind::aligned: {
            const BvhNodeAligned& node = target_.tree.aligned[at.ref.index];
            visit_child(node.child[lane], node.lanes.get_lane(lane), at.inside);
            break;
          }
          case BvhKind::quantized: {
            const BvhNodeQuantized& node = target_.tree.quantized[at.ref.index];
            visit_child(node.get_child(lane), bvh_decode_lane(at.box, node.lanes.planes, lane), at.inside);
            break;
          }
          default: {
            // An oriented lane holds no world box: its parent's place is all that is known.
            visit_child(target_.tree.oriented[at.ref.index].child[lane], at.box, at.inside);
            break;
          }
        }
      }
    }
  }

 private:
  bool is_done() const {
    return query_.mode == static_cast<uint>(GeometryFrustumMode::any) && query_.result.finished != 0;
  }

  void visit_child(BvhChildRef ref, const GMathBbox3<float>& box, bool inside) {
    if (!inside) {
      const GeometryBoxPlace place = query_.classify(box);
      if (place == GeometryBoxPlace::outside) {
        if (query_.mode == static_cast<uint>(GeometryFrustumMode::all)) query_.result.outside = 1;
        return;
      }
      inside = place == GeometryBoxPlace::inside;
    }
    if (!ref.is_leaf()) {
      stack_[count_++] = {ref, box, inside};
      return;
    }
    CoreBasicArray<uint> range;
    range.set_view(target_.tree.order + ref.index, ref.get_count());
    target_.leaf.frustum(ctx_, shader_, query_, range, target_.leaf.frustum_user);
  }

  const BvhTarget& target_;
  const CtxEval& ctx_;
  CtxShader& shader_;
  GeometryFrustumCtx& query_;
  FrustumEntry* stack_;
  std::size_t count_ = 0;
};

}  // namespace

void bvh_frustum_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) {
  if (target.base_geometry != nullptr) query.geometry = target.base_geometry;
  if (target.tree.is_empty()) return;
  const bool whole = query.mode == static_cast<uint>(GeometryFrustumMode::all);
  const BvhStart start = bvh_find_start(target.tree, whole ? 0 : query.cluster);
  if (start.ref.is_empty()) return;
  CtxGasTraversal& scratch = shader.new_gas_traversal();
  const std::size_t capacity = std::size_t{3} * target.tree.max_depth + 2;
  auto* stack = new (scratch.reserve(capacity * sizeof(FrustumEntry))) FrustumEntry[capacity];
  FrustumTraversal(target, ctx, shader, query, stack).run(start);
  shader.free_gas_traversal(scratch);
}
