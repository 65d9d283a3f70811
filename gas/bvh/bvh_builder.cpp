// The driver of a build, and the builder's instances: one per split strategy.
#include <algorithm>
#include <bit>
#include <numeric>
#include <optional>

#include "gas/bvh/bvh_builder_impl.h"
#include "gas/bvh/bvh_finalize.h"
#include "gas/bvh/bvh_order_work.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_sys/sys_thread_manager.h"

namespace {

/// Sets up the state of `worker_count` threads, with a tag for the node indices of each.
template <class Split>
void init_workers(BvhBuildCtx<Split>& build, const GasBvhSplitCtx& split_ctx, uint worker_count) {
  build.workers.resize(worker_count);
  const uint tag_bits = static_cast<uint>(std::bit_width(worker_count - 1));  // ceil(log2)
  if (tag_bits > 0) {
    build.tag_shift = 32 - tag_bits;
    build.tag_mask = (u32{1} << build.tag_shift) - 1;
    // ceil(log4(4 W)) levels give at least four tasks a thread
    build.task_depth_limit = 1 + (tag_bits + 1) / 2;
  }
  for (uint worker = 0; worker < worker_count; ++worker) {
    build.workers[worker].split_ctx = split_ctx;
    build.workers[worker].tag = tag_bits > 0 ? worker << build.tag_shift : 0;
  }
}

/// The threads of the progress bar's application, if the calling thread is one of them; else null.
SysThreadManager* find_threads(AppProgressBar* progress) {
  if (progress == nullptr) return nullptr;
  SysThreadManager& threads = progress->get_application().get_thread_manager();
  const bool usable =
      threads.get_thread_count() >= 2 && threads.get_index_of_current_thread() < threads.get_thread_count();
  return usable ? &threads : nullptr;
}

/// Moves the nodes to their places; the other threads do `order_work` meanwhile. That begins when the nodes have their
/// memory, because a tree must have its nodes and may do without the result of the work.
template <class Split>
void finalize(GasBvh<4>& tree, BvhBuildCtx<Split>& build, BvhChildRef root, const AppBase* application,
              BvhOrderWork* order_work) {
  std::vector<BvhBuildThreadPools*> pools;
  for (BvhBuildThreadState<Split>& worker : build.workers) {
    tree.max_depth = std::max(tree.max_depth, worker.max_depth);
    pools.push_back(&worker);
  }
  if (root.is_leaf()) {
    tree.root = root;
    return;
  }
  bvh_allocate_nodes(tree, pools);
  std::optional<SysThreadTaskManager> tasks;  // after an exception, it waits for what runs
  if (order_work != nullptr && build.threads != nullptr)
    order_work->start(tasks.emplace(*build.threads), tree.order, tree.item_count);
  bvh_finalize(tree, root, pools, build.tag_shift, build.tag_mask, application, build.progress);
  if (tasks) tasks->wait_until_completed(true);
}

/// Runs the recursion from the root set, on the application's threads when there are enough items for them.
template <class Split>
void split_items(BvhBuildCtx<Split>& build, const GasBvhSplitCtx& split_ctx, const GasBvhSplitSetGeom& root_set,
                 const BvhBuildPlace& root, SysThreadManager* threads) {
  const AppProgressScope stage(build.progress, "Split items", 0.9, root_set.count);
  if (threads == nullptr || root_set.count <= bvh_task_items) {
    init_workers(build, split_ctx, 1);
    return BvhSubtreeBuilder<Split>(build, 0).build_subtree(root, 0, {}, root_set);
  }
  init_workers(build, split_ctx, threads->get_thread_count());
  build.threads = threads;
  SysThreadTaskManager tasks(*threads);  // destroyed first, and then drops tasks that did not start
  build.tasks = &tasks;
  BvhSubtreeBuilder<Split>(build, threads->get_index_of_current_thread()).build_subtree(root, 0, {}, root_set);
  tasks.wait_until_completed(true);
  build.tasks = nullptr;
  for (const BvhBuildThreadState<Split>& worker : build.workers) {
    for (const std::unique_ptr<GasTask>& task : worker.tasks) gas_rethrow(task->get_outcome());
  }
}

template <class Split>
void build_tree(GasBvh<4>& tree, const GasBvhSplitCtx& source, const uint* item_order, uint count,
                const BvhBuildParams& params, AppProgressBar* progress, BvhOrderWork* order_work) {
  gas_need(tree.allocate_items(count, source.item_weights != nullptr));
  if (item_order != nullptr) {
    std::copy_n(item_order, count, tree.order);
  } else {
    std::iota(tree.order, tree.order + count, 0u);
  }
  if (tree.item_weight_bits != nullptr) std::copy_n(source.item_weights, count, tree.item_weight_bits);

  GasBvhSplitCtx split_ctx = source;
  split_ctx.order = tree.order;
  split_ctx.item_start = 0;
  split_ctx.item_count = count;
  split_ctx.max_leaf = std::clamp(params.max_leaf, 1u, 255u);
  split_ctx.leaf_threshold = std::min(std::max(params.leaf_threshold, 1u), split_ctx.max_leaf);
  split_ctx.item_cost = params.item_cost;
  if (split_ctx.application == nullptr && progress != nullptr) split_ctx.application = &progress->get_application();

  GasBvhSplitSetGeom root_set;
  root_set.count = count;
  SysThreadManager* threads = find_threads(progress);
  root_set.box = split_ctx.compute_items_bbox(root_set, threads);
  root_set.area = root_set.box.get_half_area();
  split_ctx.item_box = root_set.box;
  if (count <= split_ctx.leaf_threshold) {
    tree.root = {0, (count & BvhChildRef::count_mask) | BvhChildRef::leaf_bit};
  } else {
    BvhBuildCtx<Split> build;
    build.quantization_depth = params.quantization_depth;
    build.progress = progress;
    BvhChildRef root;
    split_items<Split>(build, split_ctx, root_set, {&root, nullptr, 0}, threads);
    finalize(tree, build, root, split_ctx.application, order_work);
  }
  tree.box = root_set.box;
}

}  // namespace

template <uint width>
template <class Split>
void GasBvh<width>::build(const GasBvhSplitCtx& source, const uint* item_order, uint count,
                          const BvhBuildParams& params, AppProgressBar* progress, BvhOrderWork* order_work) {
  if (frozen) return;
  clear();
  uniform_item_weight = params.item_cost;
  quantization_depth = params.quantization_depth;
  try {
    build_tree<Split>(*this, source, item_order, count, params, progress, order_work);
  } catch (...) {
    clear();
    throw;
  }
}

template void GasBvh<4>::build<GasBvhSplitAligned>(const GasBvhSplitCtx&, const uint*, uint, const BvhBuildParams&,
                                                   AppProgressBar*, BvhOrderWork*);
template void GasBvh<4>::build<GasBvhSplitUnaligned>(const GasBvhSplitCtx&, const uint*, uint, const BvhBuildParams&,
                                                     AppProgressBar*, BvhOrderWork*);
