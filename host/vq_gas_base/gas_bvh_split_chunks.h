// host/vq_gas_base/gas_bvh_split_chunks.h
//
// Large sets are processed in chunks whose size does not depend on the number of threads. Each chunk has its own
// result, and the results are combined in the order of the chunks, so that sums are the same in every bit.
#pragma once
#include <algorithm>
#include <atomic>

#include "vq_app_base/app_base.h"
#include "vq_core/core_memory.h"
#include "vq_gas_base/gas_bvh_split_cost.h"
#include "vq_sys/sys_thread_manager.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

inline constexpr uint gas_split_chunk_items = 16384;
/// Below this number of items, starting the threads takes longer than they save.
inline constexpr uint gas_split_parallel_items = 65536;

inline uint gas_split_chunk_count(uint item_count) {
  return item_count / gas_split_chunk_items + (item_count % gas_split_chunk_items != 0 ? 1 : 0);
}

inline bool gas_split_is_parallel(uint item_count, SysThreadManager* threads) {
  return threads != nullptr && item_count >= gas_split_parallel_items && threads->get_max_thread_count() >= 2;
}

/// Processes chunks from a shared counter until none is left or the application requests a stop.
template <class Function>
class GasSplitChunkTask final : public SysThreadTask {
 public:
  GasSplitChunkTask() { flags = counted | for_waiter; }
  void run(const uint& /*thread_index*/) override {
    const uint chunk_count = gas_split_chunk_count(item_count);
    while (!ctx->is_stop_requested()) {
      const uint chunk = next->fetch_add(1, std::memory_order_relaxed);
      if (chunk >= chunk_count) return;
      const uint first = chunk * gas_split_chunk_items;
      (*function)(chunk, first, std::min(gas_split_chunk_items, item_count - first));
      ++done;
    }
  }
  const GasBvhSplitCtx* ctx = nullptr;
  const Function* function = nullptr;
  std::atomic<uint>* next = nullptr;
  uint item_count = 0;
  uint done = 0;  ///< chunks
};

/// Calls function(chunk, first, count) once for every chunk of `item_count` items: in order on this thread, or in any
/// order on the manager's threads. Returns when all are done; throws AppStopped between two chunks. On threads the
/// function may not throw.
/// @param threads  null: all on this thread
template <class Function>
void gas_split_for_each_chunk(const GasBvhSplitCtx& ctx, uint item_count, SysThreadManager* threads,
                              const Function& function) {
  const uint chunk_count = gas_split_chunk_count(item_count);
  if (threads == nullptr) {
    for (uint chunk = 0; chunk < chunk_count; ++chunk) {
      ctx.check_stop();
      const uint first = chunk * gas_split_chunk_items;
      function(chunk, first, std::min(gas_split_chunk_items, item_count - first));
    }
    return;
  }
  // More threads do not help: memory bandwidth limits the loop.
  constexpr uint most_tasks = 16;
  const uint task_count = std::min({most_tasks, threads->get_max_thread_count(), chunk_count});
  std::atomic<uint> next = 0;
  GasSplitChunkTask<Function> tasks[most_tasks];
  SysThreadTaskManager group(*threads);
  for (uint k = 0; k < task_count; ++k) {
    tasks[k].ctx = &ctx;
    tasks[k].function = &function;
    tasks[k].next = &next;
    tasks[k].item_count = item_count;
    group.add_task(&tasks[k]);
  }
  group.wait_until_completed(true);
  uint done = 0;
  for (const GasSplitChunkTask<Function>& task : tasks) done += task.done;
  if (done < chunk_count) throw AppStopped();
}

/// The union of the boxes unite(first, count) over `item_count` items, on the threads when there are enough items.
template <class Unite>
GasSimdBox gas_split_unite(const GasBvhSplitCtx& ctx, uint item_count, SysThreadManager* threads, const Unite& unite) {
  GasSimdBox box;
  CoreAlignedArray<GasSimdBox> chunk_boxes;
  if (gas_split_is_parallel(item_count, threads))
    chunk_boxes = CoreAlignedArray<GasSimdBox>(gas_split_chunk_count(item_count));
  if (!chunk_boxes) {
    gas_split_for_each_chunk(ctx, item_count, nullptr,
                             [&](uint /*chunk*/, uint first, uint count) { box.add(unite(first, count)); });
    return box;
  }
  gas_split_for_each_chunk(ctx, item_count, threads,
                           [&](uint chunk, uint first, uint count) { chunk_boxes[chunk] = unite(first, count); });
  for (const GasSimdBox& chunk_box : chunk_boxes) box.add(chunk_box);
  return box;
}
