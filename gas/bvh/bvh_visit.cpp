#include "gas/bvh/bvh_visit.h"

#include "gas/bvh/bvh_oriented.h"
#include "gas/bvh/bvh_quantize.h"

namespace {

BvhVisit make_visit(BvhChildRef ref, uint depth, const GMathBbox3<float>& box) {
  BvhVisit visit;
  visit.ref = ref;
  visit.depth = depth;
  visit.box = box;
  visit.origin = GMathVec3<double>(box.min);
  for (uint axis = 0; axis < 3; ++axis) visit.edges[axis][axis] = double{box.max[axis]} - box.min[axis];
  return visit;
}

BvhVisit make_oriented_visit(const BvhNodeOriented& node, const BvhVisit& parent, uint lane) {
  BvhVisit visit;
  visit.ref = node.child[lane];
  visit.depth = parent.depth + 1;
  visit.box = parent.box;
  visit.is_oriented = true;
  bvh_get_lane_edges(node, lane, visit.edges);
  // A lane maps its corner to 0: row . corner + offset = 0.
  visit.origin = {};
  for (uint row = 0; row < 3; ++row)
    visit.origin = visit.origin - visit.edges[row] * double{node.rows[4 * row + 3][lane]};
  return visit;
}

}  // namespace

BvhVisit bvh_get_root(const GasBvh<4>& tree) { return make_visit(tree.root, 0, tree.box); }

BvhVisit bvh_get_child(const GasBvh<4>& tree, const BvhVisit& parent, uint lane) {
  const u32 index = parent.ref.index;
  switch (parent.ref.get_kind()) {
    case BvhKind::aligned:
      return make_visit(tree.aligned[index].child[lane], parent.depth + 1, tree.aligned[index].lanes.get_lane(lane));
    case BvhKind::quantized:
      return make_visit(tree.quantized[index].get_child(lane), parent.depth + 1,
                        bvh_decode_lane(parent.box, tree.quantized[index].lanes.planes, lane));
    default:
      return make_oriented_visit(tree.oriented[index], parent, lane);
  }
}
