// host/vq_gas_base/gas_bvh_split.cpp
#include "vq_gas_base/gas_bvh_split.h"

#include "vq_app_base/app_base.h"
#include "vq_gas_base/gas_bvh_split_chunks.h"

GMathBbox3<float> GasBvhSplitCtx::compute_items_bbox(const GasBvhSplitSet& set, SysThreadManager* threads) const {
  const uint* items = order + set.first;
  const auto unite = [&](uint first, uint count) {
    GasSimdBox box;
    for (uint k = first; k < first + count; ++k) box.add(GasSimdBox::load(item_boxes[items[k]]));
    return box;
  };
  return gas_split_unite(*this, set.count, threads, unite).get_bbox();
}

bool GasBvhSplitCtx::is_stop_requested() const { return application != nullptr && application->is_stop_requested(); }

void GasBvhSplitCtx::check_stop() const {
  if (application != nullptr) application->check_stop();
}
