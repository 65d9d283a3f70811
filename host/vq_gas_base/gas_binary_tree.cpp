#include "vq_gas_base/gas_binary_tree.h"

#include <algorithm>
#include <new>
#include <vector>

namespace {

constexpr u64 handle_tag = u64{0x47} << 56;

/// Volume of a box with every extent padded, so that flat boxes compare by their area.
double get_padded_volume(const GMathBbox3<float>& box, double padding) {
  double volume = 1.0;
  for (uint axis = 0; axis < 3; ++axis)
    volume *= std::max(0.0, double(box.max[axis]) - double(box.min[axis])) + padding;
  return volume;
}

double get_largest_extent(const GMathBbox3<float>& box) {
  double extent = 0.0;
  for (uint axis = 0; axis < 3; ++axis) extent = std::max(extent, double(box.max[axis]) - double(box.min[axis]));
  return extent;
}

GMathBbox3<float> intersect(const GMathBbox3<float>& a, const GMathBbox3<float>& b) {
  GMathBbox3<float> box;
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::max(a.min[axis], b.min[axis]);
    box.max[axis] = std::min(a.max[axis], b.max[axis]);
  }
  return box;
}

bool is_inverted(const GMathBbox3<float>& box) {
  return box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z;
}

void* make_handle(u32 slot) {
  return reinterpret_cast<void*>(handle_tag | (slot == GasBinaryPlace::root ? 0 : u64{slot} + 1));
}

}  // namespace

void GasBinaryTree::copy(const GasBinaryTree& other) {
  clear();
  if (other.node_count_ > 0) {
    CoreAlignedArray<GasBinaryNode> nodes(other.node_count_, alignof(GasBinaryNode));
    if (!nodes) throw std::bad_alloc();
    std::copy_n(other.nodes_.get(), other.node_count_, nodes.get());
    nodes_ = std::move(nodes);
  }
  node_count_ = other.node_count_;
  root_ = other.root_;
  box_ = other.box_;
}

void GasBinaryTree::name_items(const uint* order) {
  if (is_empty()) return;
  if (root_.is_leaf()) root_.index = order[root_.index];
  for (uint k = 0; k < node_count_; ++k)
    for (GasBinaryRef& child : nodes_[k].child)
      if (child.is_leaf()) child.index = order[child.index];
}

void GasBinaryTree::refit(const GMathBbox3<float>* item_boxes, GasBinarySample& sample) const {
  CoreAlignedArray<GasBinaryPlanes> planes(node_count_, alignof(GasBinaryNode));
  if (!planes && node_count_ > 0) throw std::bad_alloc();
  const auto unite = [&](const GasBinaryRef& ref) {
    GMathBbox3<float> box;
    if (ref.is_leaf()) {
      for (u32 k = ref.index; k < ref.index + ref.count; ++k) box.add(item_boxes[k]);
    } else if (node_count_ > 0) {
      box.add(planes[ref.index].get_box(0));
      box.add(planes[ref.index].get_box(1));
    }
    return box;
  };
  // Children are stored behind their parents.
  for (uint k = node_count_; k-- > 0;)
    for (uint lane = 0; lane < 2; ++lane) planes[k].set_box(lane, unite(nodes_[k].child[lane]));
  sample.box = unite(root_);
  sample.planes = std::move(planes);
}

bool GasBinaryTree::is_worth_dividing(const GasBinaryPlace& place, float ratio) const {
  if (place.ref.is_leaf()) return false;
  const GMathBbox3<float> box = get_box(place);
  const GMathBbox3<float> left = nodes_[place.ref.index].boxes.get_box(0);
  const GMathBbox3<float> right = nodes_[place.ref.index].boxes.get_box(1);
  const GMathBbox3<float> both = intersect(left, right);
  const double padding = get_largest_extent(box) * 1e-6;
  const double shared = is_inverted(both) ? 0.0 : get_padded_volume(both, padding);
  const double covered = get_padded_volume(left, padding) + get_padded_volume(right, padding) - shared;
  return covered < (1.0 - double(ratio)) * get_padded_volume(box, padding);
}

void GasBinaryTree::get_clusters(uint count, float ratio, CoreVector<void*>& clusters) const {
  if (is_empty()) return;
  struct Cluster {
    GasBinaryPlace place;
    float area;
    /// The largest on top; of equal ones the first place.
    bool operator<(const Cluster& other) const {
      return area != other.area ? area < other.area : place.slot > other.place.slot;
    }
  };
  const auto add = [&](u32 slot) {
    if (!clusters.add(make_handle(slot))) throw std::bad_alloc();
  };
  std::vector<Cluster> open;  // a heap
  uint closed = 0;
  open.push_back({get_root(), box_.get_half_area()});
  while (!open.empty() && closed + open.size() < count) {
    std::pop_heap(open.begin(), open.end());
    const GasBinaryPlace place = open.back().place;
    open.pop_back();
    if (!is_worth_dividing(place, ratio)) {
      if (place.slot == GasBinaryPlace::root) break;
      add(place.slot);
      ++closed;
      continue;
    }
    for (u32 lane = 0; lane < 2; ++lane) {
      const GasBinaryNode& node = nodes_[place.ref.index];
      open.push_back({{node.child[lane], 2 * place.ref.index + lane}, node.boxes.get_box(lane).get_half_area()});
      std::push_heap(open.begin(), open.end());
    }
  }
  if (closed + open.size() < 2) {
    if (!clusters.add(nullptr)) throw std::bad_alloc();
    return;
  }
  for (const Cluster& cluster : open) add(cluster.place.slot);
}

GasBinaryPlace GasBinaryTree::find_cluster(u64 handle) const {
  if (handle == 0) return get_root();
  const u64 place = handle & 0xFFFFFFFFu;
  if (handle != (handle_tag | place) || place > u64{2} * node_count_) return {};
  if (place == 0) return get_root();
  const u32 slot = static_cast<u32>(place - 1);
  return {nodes_[slot / 2].child[slot % 2], slot};
}

GMathBbox3<float> GasBinaryTree::get_box(const GasBinaryPlace& place, const GasBinarySample* sample) const {
  if (!place.exists()) return {};
  if (place.slot == GasBinaryPlace::root) return sample != nullptr ? sample->box : box_;
  return (sample != nullptr ? sample->planes[place.slot / 2] : nodes_[place.slot / 2].boxes).get_box(place.slot % 2);
}
