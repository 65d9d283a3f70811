// Building: the range of the order is split from the root down. The nodes of a range of n items are at most n - 1
// consecutive entries, known before the range is split. So subtrees are built in parallel without locks, and the result
// is the same for any number of threads. Entries that leaves of several items leave unused are closed at the end.
#include <atomic>
#include <deque>
#include <exception>
#include <new>

#include "vq_app_base/app_progress_bar.h"
#include "vq_gas_base/gas_binary_tree.h"
#include "vq_gas_base/gas_bvh_split_chunks.h"
#include "vq_gas_base/gas_bvh_split_halves.h"

class GasBinaryBuild {
 public:
  GasBinaryBuild(const GasBinaryTree::Input& input, GasBinaryNode* nodes)
      : nodes_(nodes), fills_leaves_(input.fills_leaves), progress_(input.progress) {
    split_.order = input.order;
    split_.item_boxes = input.boxes;
    split_.item_count = input.count;
    split_.max_leaf = split_.leaf_threshold = input.most_leaf;
    split_.application = input.app;
    if (input.app == nullptr || input.on_this_thread) return;
    threads_ = &input.app->get_thread_manager();
    constexpr uint serial_below = 4096, smallest_task = 1024;  // items: less work than starting threads
    if (input.count >= serial_below)
      task_items_ = std::max(smallest_task, input.count / (16 * threads_->get_max_thread_count()));
  }

  void run(GasBinaryRef& root, GMathBbox3<float>& box) {
    GasBvhSplitSetGeom set;
    set.count = split_.item_count;
    set.box = box = split_.compute_items_bbox(set, threads_);
    set.area = set.box.get_half_area();
    GasBvhSplitAligned strategy;
    build_set(strategy, set, {0, 0}, root);
    if (!tasks_.empty()) run_tasks();
  }

  uint count_nodes(const GasBinaryRef& ref) const {
    if (ref.is_leaf()) return 0;
    return 1 + count_nodes(nodes_[ref.index].child[0]) + count_nodes(nodes_[ref.index].child[1]);
  }
  /// Copies the nodes of a subtree to `to`, depth first from entry `next` on, and names the first one in `ref`. Returns
  /// the entry behind the last one.
  uint pack(GasBinaryRef& ref, GasBinaryNode* to, uint next) const {
    if (ref.is_leaf()) return next;
    GasBinaryNode& node = to[next];
    node = nodes_[ref.index];
    ref.index = next++;
    for (GasBinaryRef& child : node.child) next = pack(child, to, next);
    return next;
  }

 private:
  /// Where a subtree is stored.
  struct Spot {
    uint first_node;
    uint depth;
  };

  /// A subtree that some thread builds.
  struct SubtreeTask final : SysThreadTask {
    SubtreeTask(GasBinaryBuild& build, const GasBvhSplitSetGeom& set, Spot spot, GasBinaryRef& ref)
        : build(build), set(set), spot(spot), ref(ref) {
      flags = counted | for_waiter;
    }
    void run(const uint& /*thread_index*/) override {
      try {
        GasBvhSplitAligned strategy;
        build.build_serial(strategy, set, spot, ref);
        build.step(set.count);
      } catch (...) {
        fault = std::current_exception();
      }
    }
    GasBinaryBuild& build;
    GasBvhSplitSetGeom set;
    Spot spot;
    GasBinaryRef& ref;
    std::exception_ptr fault;
  };

  /// Builds the set, or makes a task of it. Returns the number of nodes that it uses.
  uint build_set(GasBvhSplitAligned& strategy, const GasBvhSplitSetGeom& set, Spot spot, GasBinaryRef& ref) {
    if (set.count > task_items_ || task_items_ == 0) return divide<false>(strategy, set, spot, ref);
    tasks_.emplace_back(*this, set, spot, ref);
    return set.count - 1;
  }

  uint build_serial(GasBvhSplitAligned& strategy, const GasBvhSplitSetGeom& set, Spot spot, GasBinaryRef& ref) {
    return divide<true>(strategy, set, spot, ref);
  }

  template <bool is_in_task>
  uint divide(GasBvhSplitAligned& strategy, const GasBvhSplitSetGeom& set, Spot spot, GasBinaryRef& ref) {
    GasBvhSplitSetGeom half[2];
    if (!split(strategy, set, spot.depth, half[0], half[1], is_in_task ? nullptr : threads_)) {
      ref = {set.first, set.count};
      return 0;
    }
    ref = {spot.first_node, set.count | GasBinaryRef::node_flag};
    GasBinaryNode& node = nodes_[spot.first_node];
    uint used = 1;
    for (uint lane = 0; lane < 2; ++lane) {
      node.boxes.set_box(lane, half[lane].box);
      const Spot child{spot.first_node + used, spot.depth + 1};
      if constexpr (is_in_task) {
        used += build_serial(strategy, half[lane], child, node.child[lane]);
      } else {
        used += build_set(strategy, half[lane], child, node.child[lane]);
      }
    }
    return used;
  }

  bool split(GasBvhSplitAligned& strategy, const GasBvhSplitSetGeom& set, uint depth, GasBvhSplitSetGeom& left,
             GasBvhSplitSetGeom& right, SysThreadManager* threads) {
    constexpr uint rarely = 1024;  // items: a split of fewer takes microseconds
    if (set.count >= rarely) split_.check_stop();
    if (fills_leaves_ && set.count <= split_.max_leaf) return false;
    // Halving ends after 32 levels at the latest, whatever the number of items.
    if (depth >= GasBinaryTree::most_depth - 32) {
      if (set.count <= split_.max_leaf) return false;
      gas_bvh_split_at(split_, set, set.count / 2, left, right, nullptr);
      return true;
    }
    bool aligned = true;
    return strategy.split(split_, set, left, right, aligned, threads);
  }

  void run_tasks() {
    SysThreadTaskManager group(*threads_);
    for (SubtreeTask& task : tasks_) group.add_task(&task);
    group.wait_until_completed(true);
    for (const SubtreeTask& task : tasks_)
      if (task.fault != nullptr) std::rethrow_exception(task.fault);
  }

  void step(uint count) {
    if (progress_ != nullptr) progress_->step(done_.fetch_add(count, std::memory_order_relaxed) + count);
  }

  GasBvhSplitCtx split_;
  GasBinaryNode* nodes_;
  bool fills_leaves_;
  SysThreadManager* threads_ = nullptr;
  uint task_items_ = 0;            ///< sets of at most this many items become tasks; 0: none
  std::deque<SubtreeTask> tasks_;  ///< addresses stay
  AppProgressBar* progress_;
  std::atomic<uint> done_ = 0;
};

void GasBinaryTree::build(const Input& input) {
  clear();
  if (input.count == 0) return;
  GasBinaryTree tree;
  if (input.count > 1) {
    tree.nodes_ = CoreAlignedArray<GasBinaryNode>(input.count - 1, alignof(GasBinaryNode));
    if (!tree.nodes_) throw std::bad_alloc();
  }
  GasBinaryBuild builder(input, tree.nodes_.get());
  builder.run(tree.root_, tree.box_);
  tree.node_count_ = builder.count_nodes(tree.root_);
  if (tree.node_count_ < input.count - 1) {
    CoreAlignedArray<GasBinaryNode> packed(tree.node_count_, alignof(GasBinaryNode));
    if (!packed && tree.node_count_ > 0) throw std::bad_alloc();
    builder.pack(tree.root_, packed.get(), 0);
    tree.nodes_ = std::move(packed);
  }
  *this = std::move(tree);
}
