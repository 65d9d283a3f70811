// gas/structure/gas_structure_impl.h
//
// Definitions of gas_structure.h. Included by the source of each structure, which instantiates them.
#pragma once
#include <algorithm>

#include "gas/frame/gas_guard.h"
#include "gas/frame/gas_rebuild.h"
#include "gas/structure/gas_structure.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

/// The two samples around a time. With a single sample both are that one.
struct GasMotionSpan {
  uint first = 0, second = 0;
  double fraction = 0.0;

  GasMotionSpan(const CtxMotionBlur& motion_blur, double time) {
    motion_blur.get_time_sampling().get_span(time, first, fraction);
    second = std::min(first + 1, motion_blur.get_sample_count() - 1);
  }
};

template <class Self, class Base, class Record>
GasStructure<Self, Base, Record>::GasStructure(Self* self) : motion_data(self) {}

template <class Self, class Base, class Record>
GasStructure<Self, Base, Record>::GasStructure(const GasStructure& other, Self* self)
    : Base(other), motion_data(self) {}

template <class Self, class Base, class Record>
GasStructure<Self, Base, Record>& GasStructure<Self, Base, Record>::operator=(const GasStructure& other) {
  if (this == &other) return *this;
  Base::operator=(other);
  motion_data.invalidate();
  return *this;
}

template <class Self, class Base, class Record>
GasStructure<Self, Base, Record>::~GasStructure() = default;

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::install_callbacks(bool has_motion) {
  this->callbacks.ray_hit_static = ray_hit_static_callback;
  this->callbacks.ray_hit_nearest_static = ray_hit_nearest_static_callback;
  this->callbacks.frustum_hit = frustum_hit_callback;
  this->callbacks.ray_hit_motion = has_motion ? ray_hit_motion_callback : ray_hit_static_callback;
  this->callbacks.ray_hit_nearest_motion =
      has_motion ? ray_hit_nearest_motion_callback : ray_hit_nearest_static_callback;
}

template <class Self, class Base, class Record>
template <class Build>
void GasStructure<Self, Base, Record>::rebuild(const char* name, const Build& build) {
  gas_rebuild(name, build, [&] { self().clear(); });
  motion_data.invalidate();
  memory_account.reset(get_memory_size());
}

template <class Self, class Base, class Record>
GMathBbox3<double> GasStructure<Self, Base, Record>::get_bbox() const {
  return GMathBbox3<double>(self().get_tree_bbox());
}

template <class Self, class Base, class Record>
GMathBbox3<double> GasStructure<Self, Base, Record>::get_bbox_at(const CtxEval& ctx, const double& time) const {
  const Record* record = refit_if_stale(ctx);
  if (record == nullptr) return get_bbox();
  const GasMotionSpan span(*ctx.get_motion_blur(), time);
  return Self::blend_bbox(record->get_bbox(span.first), record->get_bbox(span.second), span.fraction);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::dirty_motion_blur() {
  motion_data.make_stale();
}

template <class Self, class Base, class Record>
u64 GasStructure<Self, Base, Record>::get_memory_size() const {
  u64 size = sizeof(Self) + self().get_own_bytes();
  motion_data.visit_all([&](const Record& record) { size += sizeof(record) + record.get_array_bytes(); });
  return size;
}

template <class Self, class Base, class Record>
const Record* GasStructure<Self, Base, Record>::refit_if_stale(const CtxEval& ctx,
                                                               const CtxMotionBlur& motion_blur) const {
  const Record* refitted = nullptr;
  gas_try([&] {
    Record& record = motion_data.get_or_create(motion_blur);
    // The usual case of a query; pairs with the release store at the end of a refit.
    const auto is_current = [&] { return record.stamp.load(std::memory_order_acquire) == motion_blur.get_stamp(); };
    if (!is_current()) update_record(ctx, motion_blur, record);
    if (is_current() && record.get_sample_count() > 0) refitted = &record;
  });
  return refitted;
}

template <class Self, class Base, class Record>
const Record* GasStructure<Self, Base, Record>::refit_if_stale(const CtxEval& ctx) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  if (motion_blur == nullptr || !self().can_move() || !self().has_tree()) return nullptr;
  return refit_if_stale(ctx, *motion_blur);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::update_record(const CtxEval& ctx, const CtxMotionBlur& motion_blur,
                                                     Record& record) const {
  const SysThreadLockGuard guard(record.lock);
  // Another thread may have refitted the record while this one waited for the lock.
  if (record.stamp.load(std::memory_order_relaxed) == motion_blur.get_stamp()) return;
  const u64 old_size = record.get_array_bytes();
  const GasOutcome outcome = gas_try([&] {
    // Geometries enlarge boxes by their motion between the samples of the context's description, so it must be this
    // one.
    CtxEval refit_ctx(ctx);
    refit_ctx.set_motion_blur(&motion_blur);
    self().update_samples(refit_ctx, motion_blur, record);
  });
  if (outcome != GasOutcome::done) record.clear();
  if (outcome == GasOutcome::failed) gas_log_no_memory("Updating motion blur", "the structure stands still");
  self().report_growth(old_size, record.get_array_bytes());
  // After a stop request the record stays stale. Without memory it is marked current, or every ray would try again.
  const uint stamp = outcome == GasOutcome::stopped ? 0 : motion_blur.get_stamp();
  record.stamp.store(stamp, std::memory_order_release);  // publishes the boxes just written
}

template <class Self, class Base, class Record>
template <BvhHits hits>
void GasStructure<Self, Base, Record>::answer(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                              GeometryRaytraceCtx& query, const Record* record) {
  const auto& structure = static_cast<const Self&>(*object);
  gas_try([&] {
    const typename Self::QueryScope scope(structure, shader, query, hits);
    structure.template traverse<hits>(ctx, shader, query, record);
  });
}

template <class Self, class Base, class Record>
template <BvhHits hits>
void GasStructure<Self, Base, Record>::answer_motion(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                                     GeometryRaytraceCtx& query) {
  const auto& structure = static_cast<const Self&>(*object);
  const CtxMotionBlur* motion_blur = shader.motion_blur;
  const Record* record = nullptr;
  if (motion_blur != nullptr && query.spans != nullptr && structure.has_tree())
    record = structure.refit_if_stale(ctx, *motion_blur);
  if (record == nullptr) {
    query.span_stamp = 0;  // the primitive tests are static too
  } else if (query.span_stamp != motion_blur->get_stamp()) {
    motion_blur->init_raytrace_ctx(query);
  }
  answer<hits>(object, ctx, shader, query, record);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::ray_hit_static_callback(const GasObject* object, const CtxEval& ctx,
                                                               CtxShader& shader, GeometryRaytraceCtx& query) {
  answer<BvhHits::all>(object, ctx, shader, query, nullptr);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::ray_hit_motion_callback(const GasObject* object, const CtxEval& ctx,
                                                               CtxShader& shader, GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::all>(object, ctx, shader, query);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::ray_hit_nearest_static_callback(const GasObject* object, const CtxEval& ctx,
                                                                       CtxShader& shader, GeometryRaytraceCtx& query) {
  answer<BvhHits::nearest>(object, ctx, shader, query, nullptr);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::ray_hit_nearest_motion_callback(const GasObject* object, const CtxEval& ctx,
                                                                       CtxShader& shader, GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::nearest>(object, ctx, shader, query);
}

template <class Self, class Base, class Record>
void GasStructure<Self, Base, Record>::frustum_hit_callback(const GasObject* object, const CtxEval& ctx,
                                                            CtxShader& shader, GeometryFrustumCtx& query) {
  gas_try([&] { static_cast<const Self&>(*object).answer_frustum(ctx, shader, query); });
}
