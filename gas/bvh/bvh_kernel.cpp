// Query set-up around the traversal loop, and every instance of the loop.
#include "gas/bvh/bvh_kernel.h"

#include "gas/bvh/bvh_kernel_impl.h"
#include "gas/bvh/bvh_scratch.h"
#include "gas/bvh/bvh_start.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_gas_base/gas_ray_range.h"

namespace {

void call_start_leaf(const BvhTarget& target, BvhHits hits, BvhChildRef leaf, const CtxEval& ctx, CtxShader& shader,
                     GeometryRaytraceCtx& query) {
  CoreBasicArray<uint> range;
  range.set_view(target.tree.order + leaf.index, leaf.get_count());
  const BvhRayLeafFunction function = hits == BvhHits::all ? target.leaf.ray : target.leaf.nearest;
  function(ctx, shader, query, range, target.leaf.ray_user);
}

template <BvhHits hits, BvhTime time, BvhVisits visits, BvhKinds kinds>
void traverse_rays(const BvhTarget& target, const BvhStart& start, const CtxEval& ctx, CtxShader& shader,
                   GeometryRaytraceCtx& query) {
  using Traversal = BvhTraversal<hits, time, visits, kinds>;
  BvhScratch scratch(shader);
  // Each level pops one entry and pushes at most three.
  const std::size_t capacity = std::size_t{3} * target.tree.max_depth + 1;
  auto* stack = static_cast<typename Traversal::Entry*>(scratch.reserve(capacity * sizeof(typename Traversal::Entry)));
  Traversal traversal(target, ctx, shader, query, {stack, capacity});
  const GasActiveRangeScope range(query);
  const uint first = query.first_ray, last = query.last_ray;
  for (uint ray = first; ray <= last && ray != core_invalid_index; ++ray) traversal.traverse_ray(start, ray);
}

template <BvhHits hits, BvhTime time, BvhVisits visits>
void traverse_rays(const BvhTarget& target, const BvhStart& start, const CtxEval& ctx, CtxShader& shader,
                   GeometryRaytraceCtx& query) {
  if (target.tree.oriented_count > 0) {
    // Queries for all hits have no oriented test, on purpose; gas_fur.h states the consequence for callers.
    constexpr BvhKinds kinds = hits == BvhHits::all ? BvhKinds::oriented_taken_as_aligned : BvhKinds::all;
    traverse_rays<hits, time, visits, kinds>(target, start, ctx, shader, query);
  } else if (target.tree.quantized_count == 0) {
    traverse_rays<hits, time, visits, BvhKinds::aligned>(target, start, ctx, shader, query);
  } else {
    traverse_rays<hits, time, visits, BvhKinds::aligned_and_quantized>(target, start, ctx, shader, query);
  }
}

template <BvhHits hits, BvhTime time>
void traverse_rays(const BvhTarget& target, const BvhStart& start, const CtxEval& ctx, CtxShader& shader,
                   GeometryRaytraceCtx& query) {
  if (query.visits != nullptr) {
    traverse_rays<hits, time, BvhVisits::counted>(target, start, ctx, shader, query);
  } else {
    traverse_rays<hits, time, BvhVisits::uncounted>(target, start, ctx, shader, query);
  }
}

template <BvhHits hits>
void traverse_rays(const BvhTarget& target, const BvhStart& start, const CtxEval& ctx, CtxShader& shader,
                   GeometryRaytraceCtx& query) {
  if (target.motion != nullptr && query.spans != nullptr) {
    traverse_rays<hits, BvhTime::moving>(target, start, ctx, shader, query);
  } else {
    traverse_rays<hits, BvhTime::still>(target, start, ctx, shader, query);
  }
}

}  // namespace

template <BvhHits hits>
void bvh_ray_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) {
  query.counter = 0;
  if (target.tree.is_empty() || query.ray_count == 0 || query.first_ray > query.last_ray) return;
  if (!gas_is_begun_for(query, hits == BvhHits::nearest)) return;
  const BvhStart start = bvh_find_start(target.tree, query.cluster);
  if (start.ref.is_empty()) return;
  if (start.ref.is_leaf()) return call_start_leaf(target, hits, start.ref, ctx, shader, query);
  if (hits == BvhHits::nearest && query.settings.any_hit) {
    traverse_rays<BvhHits::any>(target, start, ctx, shader, query);
  } else {
    traverse_rays<hits>(target, start, ctx, shader, query);
  }
}

template void bvh_ray_hit<BvhHits::all>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
template void bvh_ray_hit<BvhHits::nearest>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
