#include "gas/gas_geometry_bvh4.h"

#include "gas/bvh/bvh_clusters.h"
#include "gas/frame/gas_class.h"
#include "gas/gas_frustum_modes.h"
#include "gas/gas_geometry_bvh4_motion.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/ctx_helpers.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Known to the host by name from the moment the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasGeometryBvh4::class_info();

}  // namespace

template <bool indexed, bool many_owners, bool one_group>
struct GasGeometryBvh4::Leaf {
  const GeometryObject* owner;
  uint primitive;

  Leaf(const GasGeometryBvh4& structure, uint position) : owner(structure.geometry), primitive(position) {
    if constexpr (indexed) primitive = structure.primitives[position];
    if constexpr (many_owners) owner = structure.get_owner(position);
  }
  /// The scene-wide group.
  uint get_group(uint offset) const {
    return one_group ? offset : owner->get_primitive_shading_group(primitive) + offset;
  }

  static void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                      const CoreBasicArray<uint>& leaf, void* user) {
    // The tree is built with one primitive a leaf.
    const Leaf at(*static_cast<const GasGeometryBvh4*>(user), *leaf.get_items());
    const uint group = at.get_group(query.shading_group_offset);
    const ShadingGroupLinks* links = CtxHelpers::get_shading(query, group);
    if (!gas_is_shaded(links)) return;
    query.geometry = at.owner;
    query.shading_group = group;
    query.current_instance = query.instance;
    if (!query.apply_primitive_filters(at.primitive)) return;
    const bool clipped =
        links->clip_map != nullptr && query.push_filter({CtxHelpers::filter_clip_map_callback, 0.0, 0.0, 0, nullptr});
    at.owner->ray_hit_primitive(ctx, shader, query, at.primitive);
    if (clipped) query.pop_filter();
  }

  static void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                          const CoreBasicArray<uint>& leaf, void* user) {
    for (const uint position : leaf) {
      const Leaf at(*static_cast<const GasGeometryBvh4*>(user), position);
      const uint group = at.get_group(query.shading_group_offset);
      if (!gas_is_shaded(CtxHelpers::get_shading(query, group))) continue;
      query.geometry = at.owner;
      query.shading_group = group;
      query.current_instance = query.instance;
      at.owner->frustum_hit_primitive(ctx, shader, query, at.primitive);
    }
  }

  static BvhLeafFunctions make_table(GasGeometryBvh4* user) { return {ray_hit, ray_hit, user, frustum_hit, user}; }
};

const CoreClassInfo& GasGeometryBvh4::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasGeometryBvh4", GasGeometryBase::class_info());
  return info;
}

GasGeometryBvh4::GasGeometryBvh4() : motion_data(this) {}

GasGeometryBvh4::GasGeometryBvh4(const GasGeometryBvh4& other)
    : GasGeometryBase(other), tree(other.tree), leaf_functions(other.leaf_functions), motion_data(this) {
  leaf_functions.ray_user = leaf_functions.frustum_user = this;
}

GasGeometryBvh4& GasGeometryBvh4::operator=(const GasGeometryBvh4& other) {
  if (this == &other) return *this;
  GasGeometryBase::operator=(other);
  tree = other.tree;
  leaf_functions = other.leaf_functions;
  leaf_functions.ray_user = leaf_functions.frustum_user = this;
  motion_data.invalidate();
  return *this;
}

GasGeometryBvh4::~GasGeometryBvh4() = default;

bool GasGeometryBvh4::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                             const GeometryObject* new_geometry, AppProgressBar* progress) {
  const CoreBasicArray<uint> group_flags(new_base_geometry->get_shading_groups().get_count());
  return create(ctx, new_base_geometry, new_geometry, nullptr, nullptr, group_flags, progress);
}

bool GasGeometryBvh4::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                             const GeometryObject* new_geometry, const GeometryObject* new_alt_geometry,
                             const GeometryObject* new_extra_geometry, const CoreBasicArray<uint>& group_flags,
                             AppProgressBar* progress) {
  CoreVector<GMathBbox3<float>> boxes;
  if (progress != nullptr) progress->begin_task("Prepare primitives", 0.5);
  const bool prepared = init_primitives(ctx, new_base_geometry, new_geometry, new_alt_geometry, new_extra_geometry,
                                        group_flags, boxes, progress);
  if (progress != nullptr) progress->end_task();
  if (!prepared) return false;
  if (is_identity_order()) primitives.remove_all();
  if (progress != nullptr) progress->begin_task("Build BVH", 0.5);
  build_tree(boxes, progress);
  if (progress != nullptr) progress->end_task();
  choose_leaf_functions();
  install_callbacks();
  motion_data.invalidate();
  return true;
}

void GasGeometryBvh4::build_tree(CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress) {
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = boxes.get_items();
  BvhBuildParams params;
  params.item_cost = static_cast<float>(geometry->get_build_parameter());
  params.leaf_threshold = 1;
  params.max_leaf = 1;
  params.quantization_depth = 10;
  tree.build<GasBvhSplitAligned>(split_ctx, nullptr, boxes.get_count(), params, progress);
}

/// Whether every primitive is in group 0, so that leaves need not ask. The primitives are asked one by one: a geometry
/// of one group may still name others, which the query's table then knows or not.
bool GasGeometryBvh4::is_one_group() const {
  for (uint position = 0; position < kept_count; ++position) {
    if (get_owner(position)->get_primitive_shading_group(get_primitive(position)) != 0) return false;
  }
  return true;
}

void GasGeometryBvh4::choose_leaf_functions() {
  const auto choose = [&]<bool one_group>() {
    if (primitives.is_empty()) return Leaf<false, false, one_group>::make_table(this);
    if (alt_geometry != nullptr || extra_geometry != nullptr) return Leaf<true, true, one_group>::make_table(this);
    return Leaf<true, false, one_group>::make_table(this);
  };
  leaf_functions = is_one_group() ? choose.operator()<true>() : choose.operator()<false>();
}

/// What does not move answers timed rays with the static functions, and never touches motion data.
void GasGeometryBvh4::install_callbacks() {
  callbacks.ray_hit_static = ray_hit_static_callback;
  callbacks.ray_hit_nearest_static = ray_hit_nearest_static_callback;
  callbacks.frustum_hit = frustum_hit_callback;
  callbacks.ray_hit_motion = has_motion ? ray_hit_motion_callback : ray_hit_static_callback;
  callbacks.ray_hit_nearest_motion = has_motion ? ray_hit_nearest_motion_callback : ray_hit_nearest_static_callback;
}

GMathBbox3<double> GasGeometryBvh4::get_bbox() const { return GMathBbox3<double>(tree.box); }

u64 GasGeometryBvh4::get_memory_size() const {
  u64 size = sizeof(*this) + get_primitive_array_bytes() + tree.get_array_bytes();
  motion_data.visit_all([&](const MotionData& data) { size += sizeof(data) + data.refit.get_array_bytes(); });
  return size;
}

void GasGeometryBvh4::get_clusters(CoreVector<void*>& clusters, const unsigned int& count,
                                   const float& /*ratio*/) const {
  bvh_get_clusters(tree, count, clusters);
}

void GasGeometryBvh4::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  bvh_get_clusters_bboxes(tree, clusters, boxes);
}

void GasGeometryBvh4::get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const {
  bvh_get_clusters_weights(tree, clusters, weights);
}

template <BvhHits hits>
void GasGeometryBvh4::answer_static(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                    GeometryRaytraceCtx& query) {
  const auto& self = *static_cast<const GasGeometryBvh4*>(object);
  bvh_ray_hit<hits>({self.tree, nullptr, self.leaf_functions, self.base_geometry}, ctx, shader, query);
}

template <BvhHits hits>
void GasGeometryBvh4::answer_motion(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                    GeometryRaytraceCtx& query) {
  if (shader.motion_blur == nullptr) return answer_static<hits>(object, ctx, shader, query);
  const auto& self = *static_cast<const GasGeometryBvh4*>(object);
  const GasBvhMotion<4>* motion = self.get_motion_data(ctx, *shader.motion_blur).get_motion();
  bvh_ray_hit<hits>({self.tree, motion, self.leaf_functions, self.base_geometry}, ctx, shader, query);
}

void GasGeometryBvh4::ray_hit_static_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                              GeometryRaytraceCtx& query) {
  answer_static<BvhHits::all>(object, ctx, shader, query);
}

void GasGeometryBvh4::ray_hit_motion_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                              GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::all>(object, ctx, shader, query);
}

void GasGeometryBvh4::ray_hit_nearest_static_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                                      GeometryRaytraceCtx& query) {
  answer_static<BvhHits::nearest>(object, ctx, shader, query);
}

void GasGeometryBvh4::ray_hit_nearest_motion_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                                      GeometryRaytraceCtx& query) {
  answer_motion<BvhHits::nearest>(object, ctx, shader, query);
}

void GasGeometryBvh4::frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                           GeometryFrustumCtx& query) {
  const auto& self = *static_cast<const GasGeometryBvh4*>(object);
  gas_frustum_hit({self.tree, nullptr, self.leaf_functions, self.base_geometry}, self.group_primitive_counts,
                  self.geometry, ctx, shader, query);
}
