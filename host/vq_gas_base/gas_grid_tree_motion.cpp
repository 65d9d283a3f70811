#include "vq_gas_base/gas_grid_tree_motion.h"

#include <algorithm>
#include <new>

#include "vq_app_base/app_base.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_gas_base/gas_tree_query.h"

const CoreClassInfo& GasGridTreeMotion::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GasGridTreeMotion", core_destroy_object, GasTreeMotion::class_info(), nullptr);
  return info;
}

void GasGridTreeMotion::configure(const GasGridTree& grid, GasGridLeafBoxesAt leaf_boxes_at, void* user) {
  clear();
  grid_ = &grid;
  leaf_boxes_at_ = leaf_boxes_at;
  leaf_boxes_user_ = user;
}

void GasGridTreeMotion::clear() {
  samples = std::vector<GasBinarySample>();
  parts_.reset();
  part_count_ = 0;
  part_bytes_.store(0);
}

void GasGridTreeMotion::set_memory_reporting(GasGridMemoryChange function, void* owner) {
  memory_ = function;
  memory_owner_ = owner;
}

u64 GasGridTreeMotion::get_memory_size() const {
  return sizeof(GasGridTreeMotion) + get_sample_bytes() + part_count_ * sizeof(Part) +
         part_bytes_.load(std::memory_order_relaxed);
}

void GasGridTreeMotion::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur) {
  clear();
  const uint sample_count = motion_blur.get_sample_count(), part_count = grid_->get_part_count();
  auto parts = std::make_unique<Part[]>(part_count);
  std::vector<GasBinarySample> new_samples(sample_count);
  std::vector<GMathBbox3<float>> part_boxes(part_count), boxes;
  for (uint sample = 0; sample < sample_count; ++sample) {
    const double time = motion_blur.get_time_sampling().get_sample_time(sample);
    for (uint k = 0; k < part_count; ++k) {
      ctx.get_application().check_stop();
      const GasGridPart& part = grid_->parts_[k];
      boxes.resize(part.count);
      leaf_boxes_at_(leaf_boxes_user_, ctx, time, part.count, grid_->positions_.get() + part.first, boxes.data());
      part_boxes[k].set_empty();
      for (const GMathBbox3<float>& box : boxes) part_boxes[k].add(box);
    }
    grid_->tree.refit(part_boxes.data(), new_samples[sample]);
  }
  sampling_ = motion_blur.get_time_sampling();
  samples = std::move(new_samples);
  parts_ = std::move(parts);
  part_count_ = part_count;
}

const GasGridTreeMotion::Part* GasGridTreeMotion::open_part(const CtxEval& ctx, const CtxShader& shader,
                                                            uint index) const {
  Part& part = parts_[index];
  if (part.state.is_made()) return &part;
  return part.state.ensure([&] { refit_part(ctx, shader, index, part); }) ? &part : nullptr;
}

void GasGridTreeMotion::refit_part(const CtxEval& ctx, const CtxShader& shader, uint index, Part& part) const {
  const GasGridPart* still = grid_->open_part(ctx, index);
  if (still == nullptr) throw std::bad_alloc();
  // Geometries enlarge boxes by their motion between the samples of the context's description: it must be this one.
  CtxEval refit_ctx(ctx);
  refit_ctx.set_motion_blur(shader.motion_blur);
  const uint node_count = still->tree.get_node_count(), sample_count = get_sample_count();
  CoreAlignedArray<GasBinaryPlanes> planes(std::size_t{node_count} * sample_count);
  if (!planes && node_count > 0) throw std::bad_alloc();
  std::vector<GMathBbox3<float>> boxes(still->count);
  for (uint k = 0; k < sample_count; ++k) {
    leaf_boxes_at_(leaf_boxes_user_, refit_ctx, sampling_.get_sample_time(k), still->count,
                   grid_->positions_.get() + still->first, boxes.data());
    GasBinarySample sample;
    still->tree.refit(boxes.data(), sample);
    std::copy(sample.planes.begin(), sample.planes.end(), planes.get() + std::size_t{node_count} * k);
  }
  part.planes = std::move(planes);
  const u64 grown = part.planes.get_bytes();
  part_bytes_.fetch_add(grown, std::memory_order_relaxed);
  if (memory_ != nullptr) {
    const u64 after = get_memory_size();
    memory_(after - grown, after, memory_owner_);
  }
}

template <GasWalkHits hits>
void GasGridTreeMotion::walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                  const GasTreeLeaf<GeometryRaytraceCtx>& primitive) const {
  if (samples.empty() || primitive.function == nullptr) return;
  const GasBinaryTree& top = grid_->tree;
  gas_tree_for_each_ray<hits>(top, query, [&](uint r, const GasBinaryPlace& start) {
    const GeometryRaySpan& span = query.spans[r];
    const GasBinarySample &first = samples[span.first], &second = samples[span.second];
    GMathBbox3<float> bounds = first.box;
    bounds.add(second.box);
    GasBinaryRay ray(query.get_ray(r), query.get_tnear(r), query.get_limit(r), bounds, gas_get_blend_slack(bounds));
    ray.set_time(span.fraction);
    GMathBbox3<float> start_box = top.get_box(start, &first);
    start_box.add(top.get_box(start, &second));
    if (!ray.touches(start_box)) return;
    GeometryRayVisits* visits = gas_get_visits(query, r);
    const auto walk_part = [&](const GasBinaryPlace& at) {
      const Part* part = open_part(ctx, shader, at.ref.index);
      if (part == nullptr) return true;
      const GasGridPart& still = grid_->parts_[at.ref.index];
      const std::size_t node_count = still.tree.get_node_count();
      const GasMovingBoxes boxes{part->planes.get() + node_count * span.first,
                                 part->planes.get() + node_count * span.second};
      const GasPartLeaf<hits> leaf{grid_->positions_.get() + still.first, primitive, ctx, shader, query, ray, r};
      return gas_walk_ray<hits>(still.tree, boxes, still.tree.get_root(), ray, visits, leaf);
    };
    gas_walk_ray<hits>(top, GasMovingBoxes{first.planes.get(), second.planes.get()}, start, ray, visits, walk_part);
  });
}

void GasGridTreeMotion::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  if (grid_ != nullptr) walk_rays<GasWalkHits::all>(ctx, shader, query, grid_->get_ray_primitive());
}

void GasGridTreeMotion::ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  if (grid_ != nullptr) walk_rays<GasWalkHits::nearest>(ctx, shader, query, grid_->get_nearest_primitive());
}

void GasGridTreeMotion::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, const uint& sample,
                                            const float& fraction, GMathBbox3<float>* boxes) const {
  const uint next = std::min(sample + 1, get_sample_count() - 1);
  for (uint k = 0; k < clusters.get_count(); ++k) {
    const GasBinaryPlace place = grid_->tree.find_cluster(reinterpret_cast<u64>(clusters[k]));
    const GMathBbox3<float> a = grid_->tree.get_box(place, &samples[sample]);
    const GMathBbox3<float> b = grid_->tree.get_box(place, &samples[next]);
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[k].min[axis] = a.min[axis] * (1.0f - fraction) + b.min[axis] * fraction;
      boxes[k].max[axis] = a.max[axis] * (1.0f - fraction) + b.max[axis] * fraction;
    }
  }
}
