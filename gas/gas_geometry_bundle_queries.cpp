// The instances of a bundle as the leaves of its tree: at rest, in motion, in ray and frustum queries; and the
// structures that these queries enter.
#include <algorithm>
#include <new>

#include "gas/bvh/bvh_clusters.h"
#include "gas/gas_bundle_slots.h"
#include "gas/gas_fur.h"
#include "gas/gas_geometry.h"
#include "gas/gas_geometry_bundle.h"
#include "gas/gas_geometry_bvh4.h"
#include "gas/structure/gas_instance_structure_impl.h"
#include "vq_curve/tube_mesh.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

template class GasStructure<GasGeometryBundle, GasObject, GasInstanceMotion<GasGeometryBundle>>;
template class GasBvhStructure<GasGeometryBundle, GasObject, GasInstanceMotion<GasGeometryBundle>>;
template class GasInstanceStructure<GasGeometryBundle, GasObject>;

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

/// The structure, created from `arguments`; null if it cannot be.
template <class Structure, class... Arguments>
std::unique_ptr<GasClusterable> create_structure(std::unique_ptr<Structure> structure, const CtxEval& ctx,
                                                 const Arguments&... arguments) {
  const bool is_created = structure->create(ctx, arguments...);
  ctx.get_application().check_stop();  // a stopped build leaves an empty structure, which must not be kept
  return is_created ? std::move(structure) : nullptr;
}

}  // namespace

const GasClusterable* GasGeometryBundle::get_geometry_gas(const CtxEval& ctx, unsigned int instance) const {
  return slots->get_or_build(get_slot(instance), [&] { return build_geometry_gas(ctx, instance); });
}

std::unique_ptr<GasClusterable> GasGeometryBundle::build_geometry_gas(const CtxEval& ctx, uint instance) const {
  const AppOwnProgress progress(ctx.get_application(), displacement_on
                                                           ? "Building bundle acceleration structure (Displace on)."
                                                           : "Building bundle acceleration structure.");
  // Not by `instance`: which thread comes first must not decide.
  const uint first_instance = slots->items[get_slot(instance)].first_instance;
  std::unique_ptr<GasClusterable> structure;
  // Without memory the slot has no structure, and the build is not tried again in each leaf.
  const GasOutcome outcome = gas_try([&] { structure = build_geometry_gas(ctx, first_instance, progress.get()); });
  if (outcome == GasOutcome::stopped) throw AppStopped();
  if (outcome == GasOutcome::failed) gas_log_no_memory("GasGeometryBundle", "a geometry is left out");
  return structure;
}

std::unique_ptr<GasClusterable> GasGeometryBundle::build_geometry_gas(const CtxEval& ctx, uint instance,
                                                                      AppProgressBar* progress) const {
  const GeometryObject *first = get_first_geometry(instance), *second = get_geometry(instance);
  if (second->is_kindof(TubeMeshFast::class_info())) {
    auto fur = std::make_unique<GasFur>();
    fur->set_oriented_nodes(oriented_nodes_allowed);
    return create_structure(std::move(fur), ctx, first, second, progress);
  }
  if (second->is_kindof(TubeMesh::class_info()))
    return create_structure(std::make_unique<GasGeometry>(), ctx, first, second, progress);
  if (!displacement_on) return create_structure(std::make_unique<GasGeometryBvh4>(), ctx, first, second, progress);
  const auto get = [&](const CoreBasicArray<GeometryObject*>& geometries) -> const GeometryObject* {
    return instance < geometries.get_count() ? geometries[instance] : nullptr;
  };
  static const CoreVector<uint> no_flags;
  const CoreVector<uint>& flags = instance < index_lists.get_count() ? index_lists[instance] : no_flags;
  return create_structure(std::make_unique<GasGeometry>(), ctx, first, second, get(third_geometries),
                          get(fourth_geometries), flags.as_array(), progress);
}

bool GasGeometryBundle::describe_instance(uint accepted, GasInstance& instance) const {
  instance.index = table.indices[accepted];
  instance.is_visible = is_visible(instance.index);
  instance.matrix = &matrices[instance.index];
  instance.set_inverse(inverse_matrices[instance.index]);
  instance.inner = &slots->items[get_slot(instance.index)];
  return !is_displaced(instance.index);
}

bool GasGeometryBundle::keeps_shape(uint accepted) const {
  return !get_geometry(table.indices[accepted])->has_motion();
}

bool GasGeometryBundle::find_entry(const CtxEval& ctx, CtxShader& /*shader*/, uint /*type*/,
                                   const GasInstance& instance, Entry& entry) const {
  if (!instance.is_visible) return false;
  entry.structure = static_cast<const GasBundleSlot*>(instance.inner)->structure.load(std::memory_order_acquire);
  if (entry.structure == nullptr) entry.structure = get_geometry_gas(ctx, instance.index);
  return entry.structure != nullptr;
}

GasNestedTarget GasGeometryBundle::get_target(const GeometryRaytraceCtx& parent, GMathRay::Type /*type*/,
                                              const GasInstance& instance) const {
  GasNestedTarget target;
  target.distance = parent.object_distance;
  target.shading_group_offset = get_shading_group_offset(get_shading_key(instance.index)) + parent.shading_group_offset;
  target.depth = parent.depth + 1;
  target.instance = instance.index;
  return target;
}

GasGeometryBundle::PreHitFunction GasGeometryBundle::get_pre_hit(const GasInstance& instance) const {
  if (pre_hits.is_empty()) return nullptr;
  const uint geometry = geometry_indices[instance.index];
  return geometry < pre_hits.get_count() ? pre_hits[geometry] : nullptr;
}

template <BvhHits hits>
void GasGeometryBundle::query_entry(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent,
                                    GeometryRaytraceCtx& local, const GasInstance& instance, Entry& entry,
                                    bool is_moving) const {
  if (const PreHitFunction pre_hit = get_pre_hit(instance); pre_hit != nullptr) pre_hit(ctx, parent, nullptr);
  const GasObject& structure = *entry.structure;
  if constexpr (hits == BvhHits::nearest) {
    if (is_moving) return structure.ray_hit_nearest_motion(ctx, shader, local);
    structure.ray_hit_nearest_static(ctx, shader, local);
  } else {
    if (is_moving) return structure.ray_hit_motion(ctx, shader, local);
    structure.ray_hit_static(ctx, shader, local);
  }
}

uint GasGeometryBundle::get_path_depth(const GeometryRaytraceCtx& parent) const { return parent.depth; }

void GasGeometryBundle::begin_frustum(const GeometryFrustumCtx& query, GasNestedQueryCtx& record,
                                      const GasInstance& instance) const {
  GeometryFrustumCtx& local = record.frustum;
  local.shading_group_offset = get_shading_group_offset(get_shading_key(instance.index)) + query.shading_group_offset;
  local.depth = query.depth + 1;
  local.instance = instance.index;
}

void GasGeometryBundle::query_entry(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& local,
                                    Entry& entry) const {
  static_cast<const GasObject*>(entry.structure)->frustum_hit(ctx, shader, local);
}

void GasGeometryBundle::end_frustum(GeometryFrustumCtx& query, const GeometryFrustumCtx& local,
                                    const GasInstance& /*instance*/) const {
  if (query.mode == static_cast<uint>(GeometryFrustumMode::any)) {
    query.result.hit_count += local.result.hit_count > 0 ? 1 : 0;
    return;
  }
  query.result.hit_count += local.result.hit_count == local.result.total ? 1 : 0;
  query.result.outside |= local.result.outside;
}

/// Mode all counts the clusters of visible instances.
void GasGeometryBundle::answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  if (query.mode == static_cast<uint>(GeometryFrustumMode::all)) {
    for (uint valid = 0; valid < table.get_accepted_count(); ++valid)
      query.result.total += is_visible(table.indices[valid]) ? table.counts[valid] : 0;
  }
  bvh_frustum_hit({tree, nullptr, leaf_functions}, ctx, shader, query);
}

void GasGeometryBundle::set_matrices_callback(MatricesCallback function, void* user) {
  if (function != nullptr) matrices_callback = function;
  matrices_user = user;
}

uint GasGeometryBundle::get_update_slice(uint thread_count) const {
  return gas_get_slice_length(table.get_accepted_count(), thread_count);
}

void GasGeometryBundle::fill_matrices(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  CoreBasicArray<Matrix> at_sample;
  double time = motion_blur.get_frame_begin();
  for (uint sample = 0; sample < motion_blur.get_sample_count(); ++sample) {
    ctx.get_application().check_stop();
    gas_need(at_sample.assign(matrices.get_items(), matrices.get_count()));  // for a callback that writes nothing
    matrices_callback(matrices_user, time, at_sample.get_items());
    for (const uint instance : table.indices) data.get_matrices(instance)[sample] = at_sample[instance];
    time += motion_blur.get_sample_step();
  }
}

void GasGeometryBundle::measure(const CtxEval& ctx, uint accepted, double time, Matrix& /*filled*/,
                                GMathBbox3<float>* boxes) const {
  const uint instance = table.indices[accepted];
  const CoreBasicArray<void*> clusters = table.get_clusters(accepted);
  if (is_displaced(instance)) {
    std::fill_n(boxes, clusters.get_count(), gmath_round_outwards(get_geometry(instance)->get_bbox_at(ctx, time)));
  } else if (const GasClusterable* structure = get_geometry_gas(ctx, instance); structure != nullptr) {
    structure->get_clusters_bboxes_at(ctx, time, clusters, boxes);
  }
}

void GasGeometryBundle::get_clusters(CoreVector<void*>& clusters, const unsigned int& count,
                                     const float& /*ratio*/) const {
  bvh_get_clusters(tree, count, clusters);
}

void GasGeometryBundle::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  bvh_get_clusters_bboxes(tree, clusters, boxes);
}

void GasGeometryBundle::get_clusters_bboxes_at(const CtxEval& ctx, const double& time,
                                               const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  const MotionData* data = refit_if_stale(ctx);
  if (data == nullptr) return get_clusters_bboxes(clusters, boxes);
  const GasMotionSpan span(*ctx.get_motion_blur(), time);
  bvh_get_clusters_bboxes_at(tree, data->refit, span.first, span.second, static_cast<float>(span.fraction), clusters,
                             boxes);
}

void GasGeometryBundle::get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const {
  bvh_get_clusters_weights(tree, clusters, weights);
}
