// host/vq_gas_base/gas_bvh_split.cpp
#include "vq_gas_base/gas_bvh_split.h"

#include "vq_core/core_memory.h"
#include "vq_gas_base/gas_bvh_split_chunks.h"
#include "vq_gas_base/gas_bvh_split_cost.h"

namespace {

GasBvhSplitBox unite(const GMathBbox3<float>* item_boxes, const uint* order, uint count) {
  GasBvhSplitBox box;
  for (uint k = 0; k < count; ++k) box.add(GasBvhSplitBox::load(item_boxes[order[k]]));
  return box;
}

}  // namespace

GMathBbox3<float> GasBvhSplitCtx::compute_items_bbox(const GasBvhSplitSet& set, SysThreadManager* threads) const {
  const uint* items = order + set.first;
  if (!gas_split_is_parallel(set.count, threads)) return unite(item_boxes, items, set.count).get_bbox();
  CoreAlignedArray<GasBvhSplitBox> chunk_boxes(gas_split_chunk_count(set.count));
  if (!chunk_boxes) return unite(item_boxes, items, set.count).get_bbox();
  gas_split_for_each_chunk(set.count, *threads, [&](uint chunk, uint first, uint count) {
    chunk_boxes[chunk] = unite(item_boxes, items + first, count);
  });
  GasBvhSplitBox box;
  for (const GasBvhSplitBox& chunk_box : chunk_boxes) box.add(chunk_box);
  return box.get_bbox();
}
