#include "tools/vqgas/report/tree_source.h"

void TreeSource::set_clusters(const CoreVector<void*>& handles) {
  for (uint k = 0; k < handles.get_count(); ++k) clusters_[get_cluster_key(handles[k])] = k;
  cluster_count_ = handles.get_count();
}

uint TreeSource::find_cluster(uint of_parent, u64 key) const {
  if (of_parent != core_invalid_index) return of_parent;
  const auto found = clusters_.find(key);
  return found == clusters_.end() ? core_invalid_index : found->second;
}

namespace {

TreeNodeKind get_node_kind(BvhKind kind) {
  switch (kind) {
    case BvhKind::aligned:
      return TreeNodeKind::aligned;
    case BvhKind::quantized:
      return TreeNodeKind::quantized;
    case BvhKind::oriented:
      return TreeNodeKind::oriented;
    default:
      return TreeNodeKind::leaf;
  }
}

TreeNode make_wide_node(const BvhVisit& place) {
  TreeNode node;
  node.kind = get_node_kind(place.ref.get_kind());
  node.place = place;
  if (place.ref.is_leaf()) node.item_count = place.ref.get_count();
  return node;
}

u64 make_lane_key(u32 node, uint lane) { return u64{node} * 4 + lane; }

}  // namespace

TreeNode WideTree::get_root() const {
  TreeNode root = make_wide_node(bvh_get_root(tree_));
  root.cluster = find_cluster(core_invalid_index, whole_tree);
  return root;
}

uint WideTree::get_children(const TreeNode& node, TreeNode (&children)[4]) const {
  if (node.place.ref.is_leaf()) return 0;
  const uint count = node.place.ref.get_count();
  for (uint lane = 0; lane < count; ++lane) {
    children[lane] = make_wide_node(bvh_get_child(tree_, node.place, lane));
    // A handle names a lane of an aligned node.
    children[lane].cluster = node.kind == TreeNodeKind::aligned
                                 ? find_cluster(node.cluster, make_lane_key(node.place.ref.index, lane))
                                 : node.cluster;
  }
  return count;
}

u64 WideTree::get_cluster_key(void* handle) const {
  const u64 bits = reinterpret_cast<u64>(handle);
  return bits == 0 ? whole_tree : make_lane_key(BvhClusterHandle::get_node(bits), BvhClusterHandle::get_lane(bits));
}

TreeNode GridTree::make_node(const GasBinaryRef& ref, uint part, uint depth, const GMathBbox3<float>& box) const {
  TreeNode node;
  node.ref = ref;
  node.part = part;
  node.place.depth = depth;
  node.place.box = box;
  node.place.origin = GMathVec3<double>(box.min);
  for (uint axis = 0; axis < 3; ++axis) node.place.edges[axis][axis] = double{box.max[axis]} - box.min[axis];
  node.kind = ref.is_leaf() ? TreeNodeKind::leaf : TreeNodeKind::binary;
  node.item_count = ref.is_leaf() ? ref.count : 0;
  if (part != core_invalid_index || !ref.is_leaf()) return node;
  // A leaf of the tree over the parts: the root of the part's tree takes its place.
  node.part = ref.index;
  const GasGridPart& found = grid_.get_part(node.part);
  if (grid_.is_part_built(node.part)) return make_node(found.tree.get_root().ref, node.part, depth, box);
  node.kind = TreeNodeKind::unbuilt;
  node.item_count = found.count;
  return node;
}

TreeNode GridTree::get_root() const {
  const GasBinaryTree& tree = grid_.get_tree();
  TreeNode root = make_node(tree.get_root().ref, core_invalid_index, 0, tree.get_bbox());
  root.cluster = find_cluster(core_invalid_index, whole_tree);
  return root;
}

uint GridTree::get_children(const TreeNode& node, TreeNode (&children)[4]) const {
  if (node.kind != TreeNodeKind::binary) return 0;
  const bool is_in_part = node.part != core_invalid_index;
  const GasBinaryTree& tree = is_in_part ? grid_.get_part(node.part).tree : grid_.get_tree();
  const GasBinaryNode& found = tree.get_node(node.ref.index);
  for (uint lane = 0; lane < 2; ++lane) {
    children[lane] = make_node(found.child[lane], node.part, node.place.depth + 1, found.boxes.get_box(lane));
    children[lane].cluster =
        is_in_part ? node.cluster : find_cluster(node.cluster, make_lane_key(node.ref.index, lane));
  }
  return 2;
}

u64 GridTree::get_cluster_key(void* handle) const {
  const u64 bits = reinterpret_cast<u64>(handle);
  const u32 slot = bits == 0 ? GasBinaryPlace::root : grid_.get_tree().find_cluster(bits).slot;
  return slot == GasBinaryPlace::root ? whole_tree : make_lane_key(slot / 2, slot % 2);
}
