// gas/structure/gas_bvh_geometry_impl.h
//
// Definitions of gas_bvh_geometry.h. Included by the source of each structure, which instantiates them.
#pragma once
#include "gas/bvh/bvh_clusters.h"
#include "gas/structure/gas_bvh_geometry.h"
#include "gas/structure/gas_bvh_structure_impl.h"
#include "gas/structure/gas_frustum_modes.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_core/core_memory.h"
#include "vq_geometry/geometry_object.h"

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::get_clusters(CoreVector<void*>& clusters, const unsigned int& count,
                                              const float& /*ratio*/) const {
  bvh_get_clusters(this->tree, count, clusters);
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::get_clusters_bboxes(const CoreBasicArray<void*>& clusters,
                                                     GMathBbox3<float>* boxes) const {
  bvh_get_clusters_bboxes(this->tree, clusters, boxes);
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::get_clusters_bboxes_at(const CtxEval& ctx, const double& time,
                                                        const CoreBasicArray<void*>& clusters,
                                                        GMathBbox3<float>* boxes) const {
  const MotionData* data = this->refit_if_stale(ctx);
  if (data == nullptr) return get_clusters_bboxes(clusters, boxes);
  const GasMotionSpan span(*ctx.get_motion_blur(), time);
  bvh_get_clusters_bboxes_at(this->tree, data->refit, span.first, span.second, static_cast<float>(span.fraction),
                             clusters, boxes);
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const {
  bvh_get_clusters_weights(this->tree, clusters, weights);
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::make_records(GasLeafRecordWork& work) {
  auto& self = static_cast<Self&>(*this);
  records.clear();
  self.choose_ray_functions();  // those without records, if the rest throws
  records.make(work, this->tree.order, this->tree.item_count);
  self.choose_ray_functions();
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::dirty_motion_blur() {
  GasBvhStructure<Self, Base>::dirty_motion_blur();
  const auto& self = static_cast<const Self&>(*this);
  if (!self.has_motion || !this->has_tree()) return;
  const u64 old_bytes = records.get_bytes();
  gas_try([&] {
    GasLeafRecordWork work(self.get_recorded_geometry(), self.get_item_primitives(), nullptr);
    make_records(work);
  });
  report_growth(old_bytes, records.get_bytes());
}

template <class Self, class Base>
void GasBvhGeometry<Self, Base>::answer_frustum(const CtxEval& ctx, CtxShader& shader,
                                                GeometryFrustumCtx& query) const {
  const auto& self = static_cast<const Self&>(*this);
  query.geometry = self.base_geometry;
  if (!gas_begin_frustum(self.group_primitive_counts, self.geometry, query)) return;
  bvh_frustum_hit({this->tree, nullptr, this->leaf_functions}, ctx, shader, query);
  gas_end_frustum(self.geometry, query);
}

template <class Self, class Base>
template <class ComputeBboxes, class UpdateSample>
void GasBvhGeometry<Self, Base>::refit_from_boxes(const CtxEval& ctx, const CtxMotionBlur& motion_blur,
                                                  MotionData& data, uint box_count, double box_share,
                                                  const ComputeBboxes& compute_bboxes,
                                                  const UpdateSample& update_sample) const {
  const GMathTimeSampling& sampling = motion_blur.get_time_sampling();
  const uint sample_count = sampling.get_sample_count();
  const AppOwnProgress progress(ctx.get_application(), "Updating GAS motion blur...");
  CoreAlignedArray<GMathBbox3<float>> boxes(box_count);
  gas_need(boxes && data.refit.set_samples(this->tree, sample_count));
  for (uint sample = 0; sample < sample_count; ++sample) {
    {
      const AppProgressScope stage(progress.get(), "Compute primitives AABB", box_share / sample_count);
      compute_bboxes(sampling.get_sample_time(sample), boxes.get());
    }
    const AppProgressScope stage(progress.get(), "Refit BVH", (1.0 - box_share) / sample_count);
    gas_need(update_sample(sample, std::span<const GMathBbox3<float>>(boxes.get(), box_count), progress.get()));
  }
}
