// Frustum traversal. The order of visits does not matter; a subtree inside all planes is not tested again.
#include <new>

#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/bvh_oriented.h"
#include "gas/bvh/bvh_quantize.h"
#include "gas/bvh/bvh_scratch.h"
#include "gas/bvh/bvh_start.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

struct FrustumEntry {
  BvhChildRef ref;
  GMathBbox3<float> box;
  GeometryBoxPlace place;  ///< inside or outside holds for the whole subtree
};

/// The box of an oriented lane as a corner and three edges. Its slack is larger than the rounding of its frame.
struct OrientedBox {
  GMathVec3<double> corner, edges[3];

  OrientedBox(const BvhNodeOriented& node, uint lane) {
    bvh_get_lane_edges(node, lane, edges);
    for (uint row = 0; row < 3; ++row) corner += edges[row] * -double(node.rows[4 * row + 3][lane]);
  }

  GeometryBoxPlace classify(const GeometryFrustumData& frustum) const {
    GeometryBoxPlace place = GeometryBoxPlace::inside;
    const auto test = [&](const GeometryPlane* planes, uint count) {
      for (uint k = 0; k < count; ++k) {
        double lowest = planes[k].measure(corner), highest = lowest;
        for (const GMathVec3<double>& edge : edges) {
          const double rise = planes[k].normal.dot(edge);
          (rise < 0.0 ? lowest : highest) += rise;
        }
        if (highest < 0.0) place = GeometryBoxPlace::outside;
        if (place != GeometryBoxPlace::outside && !(lowest >= 0.0)) place = GeometryBoxPlace::straddling;
      }
    };
    test(frustum.planes, frustum.plane_count);
    test(frustum.end_planes, frustum.end_plane_count);
    return place;
  }
};

class FrustumTraversal {
 public:
  FrustumTraversal(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                   FrustumEntry* stack)
      : target_(target), ctx_(ctx), shader_(shader), query_(query), stack_(stack) {}

  void run(const BvhStart& start) {
    visit_child(start.ref, start.box, classify(start.box));
    while (count_ > 0 && !is_done()) {
      const FrustumEntry at = stack_[--count_];
      for (uint lane = 0; lane < at.ref.get_count() && !is_done(); ++lane) {
        switch (at.ref.get_kind()) {
          case BvhKind::aligned: {
            const BvhNodeAligned& node = target_.tree.aligned[at.ref.index];
            const GMathBbox3<float> box = node.lanes.get_lane(lane);
            visit_child(node.child[lane], box, is_known(at) ? at.place : classify(box));
            break;
          }
          case BvhKind::quantized: {
            const BvhNodeQuantized& node = target_.tree.quantized[at.ref.index];
            const GMathBbox3<float> box = bvh_decode_lane(at.box, node.lanes.planes, lane);
            visit_child(node.get_child(lane), box, is_known(at) ? at.place : classify(box));
            break;
          }
          default: {
            const BvhNodeOriented& node = target_.tree.oriented[at.ref.index];
            visit_child(node.child[lane], at.box, is_known(at) ? at.place : OrientedBox(node, lane).classify(query_));
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

  GeometryBoxPlace classify(const GMathBbox3<float>& box) const { return query_.classify(box); }
  static bool is_known(const FrustumEntry& at) { return at.place != GeometryBoxPlace::straddling; }

  /// @param box  a quantized child is decoded against it
  void visit_child(BvhChildRef ref, const GMathBbox3<float>& box, GeometryBoxPlace place) {
    const bool all_count = query_.mode == static_cast<uint>(GeometryFrustumMode::all);
    if (place == GeometryBoxPlace::outside && (!all_count || query_.result.outside != 0)) return;
    if (!ref.is_leaf()) {
      stack_[count_++] = {ref, box, place};
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
  if (target.tree.is_empty()) return;
  const bool whole = query.mode == static_cast<uint>(GeometryFrustumMode::all);
  const BvhStart start = bvh_find_start(target.tree, whole ? 0 : query.cluster);
  if (start.ref.is_empty()) return;
  BvhScratch scratch(shader);
  const std::size_t capacity = std::size_t{3} * target.tree.max_depth + 2;
  auto* stack = new (scratch.reserve(capacity * sizeof(FrustumEntry))) FrustumEntry[capacity];
  FrustumTraversal(target, ctx, shader, query, stack).run(start);
}
