#include "gas/gas_geometry_bvh4.h"

#include "gas/frame/gas_class.h"
#include "gas/structure/gas_bboxes_at.h"
#include "gas/structure/gas_bvh_geometry_impl.h"
#include "gas/structure/gas_mesh_leaf.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"

template class GasStructure<GasGeometryBvh4, GasGeometryBase, GasRefitRecord<GasGeometryBvh4>>;
template class GasBvhStructure<GasGeometryBvh4, GasGeometryBase>;
template class GasBvhGeometry<GasGeometryBvh4, GasGeometryBase>;

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasGeometryBvh4::class_info();

}  // namespace

/// The leaf callbacks of one variant of GasMeshLeaf. Every leaf of this tree has one primitive.
template <bool indexed, bool many_owners, bool one_group>
struct GasGeometryBvh4::Leaf {
  using MeshLeaf = GasMeshLeaf<GasGeometryBase, indexed, many_owners, one_group>;

  template <bool has_records>
  static void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                      const CoreBasicArray<uint>& leaf, void* user) {
    const auto& structure = *static_cast<const GasGeometryBvh4*>(user);
    const uint* item = leaf.get_items();
    if constexpr (has_records) {
      MeshLeaf(structure, *item).test_record(ctx, shader, query, get_record(structure, item));
    } else {
      MeshLeaf(structure, *item).test(ctx, shader, query);
    }
  }
  template <bool has_records>
  static void ray_hit_bare(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                           const CoreBasicArray<uint>& leaf, void* user) {
    const auto& structure = *static_cast<const GasGeometryBvh4*>(user);
    const uint* item = leaf.get_items();
    const uint& primitive = indexed ? structure.primitives[*item] : *item;
    if constexpr (has_records) {
      structure.geometry->ray_hit_record(ctx, shader, query, primitive, get_record(structure, item));
    } else {
      structure.geometry->ray_hit_primitive(ctx, shader, query, primitive);
    }
  }
  static void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                          const CoreBasicArray<uint>& leaf, void* user) {
    for (const uint position : leaf)
      MeshLeaf(*static_cast<const GasGeometryBvh4*>(user), position).test(ctx, shader, query);
  }
  template <bool has_records>
  static constexpr RayFunctions get_ray_functions() {
    if constexpr (many_owners && has_records) {
      return {};
    } else if constexpr (one_group && !many_owners) {
      return {ray_hit<has_records>, ray_hit_bare<has_records>};
    } else {
      return {ray_hit<has_records>, nullptr};
    }
  }

 private:
  static const void* get_record(const GasGeometryBvh4& structure, const uint* item) {
    return structure.records.get(static_cast<std::size_t>(item - structure.tree.order));
  }
};

const CoreClassInfo& GasGeometryBvh4::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasGeometryBvh4", GasGeometryBase::class_info());
  return info;
}

GasGeometryBvh4::GasGeometryBvh4() : GasBvhGeometry(this) {}

GasGeometryBvh4::GasGeometryBvh4(const GasGeometryBvh4& other)
    : GasBvhGeometry(other, this),
      plain_functions(other.plain_functions),
      recorded_functions(other.recorded_functions) {
  if (!is_whole_copy_of(other) || !records.is_whole_copy_of(other.records)) clear();
}

GasGeometryBvh4& GasGeometryBvh4::operator=(const GasGeometryBvh4& other) {
  GasBvhGeometry::operator=(other);
  plain_functions = other.plain_functions;
  recorded_functions = other.recorded_functions;
  if (!is_whole_copy_of(other) || !records.is_whole_copy_of(other.records)) clear();
  return *this;
}

GasGeometryBvh4::~GasGeometryBvh4() = default;

void GasGeometryBvh4::clear() {
  clear_primitives();
  tree.clear();
  records.clear();
}

bool GasGeometryBvh4::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                             const GeometryObject* new_geometry, AppProgressBar* progress) {
  // Flags are read only if alt_geometry or extra_geometry is given.
  return create(ctx, new_base_geometry, new_geometry, nullptr, nullptr, CoreBasicArray<uint>(), progress);
}

bool GasGeometryBvh4::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                             const GeometryObject* new_geometry, const GeometryObject* new_alt_geometry,
                             const GeometryObject* new_extra_geometry, const CoreBasicArray<uint>& group_flags,
                             AppProgressBar* progress) {
  bool accepted = true;
  rebuild("GasGeometry.create", [&] {
    accepted = prepare_and_build(ctx, new_base_geometry, new_geometry, new_alt_geometry, new_extra_geometry,
                                 group_flags, progress, "Build BVH", [&](auto& boxes) {
                                   records.clear();
                                   choose_leaf_functions(ctx);
                                   GasLeafRecordWork record_work(get_recorded_geometry(), get_item_primitives(),
                                                                 &ctx.get_application());
                                   build_tree(ctx, boxes, progress, record_work);
                                   make_records(record_work);
                                 });
  });
  if (accepted) install_callbacks(has_motion);
  return accepted;
}

void GasGeometryBvh4::build_tree(const CtxEval& ctx, CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress,
                                 BvhOrderWork& order_work) {
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = boxes.get_items();
  split_ctx.application = &ctx.get_application();
  BvhBuildParams params;
  params.item_cost = static_cast<float>(geometry->get_build_parameter());
  params.leaf_threshold = 1;
  params.max_leaf = 1;
  params.quantization_depth = 10;
  tree.build<GasBvhSplitAligned>(split_ctx, nullptr, boxes.get_count(), params, progress, &order_work);
}

void GasGeometryBvh4::choose_leaf_functions(const CtxEval& ctx) {
  leaf_functions = choose_leaf(ctx, [this]<bool indexed, bool many_owners, bool one_group>() {
    using Functions = Leaf<indexed, many_owners, one_group>;
    plain_functions = Functions::template get_ray_functions<false>();
    recorded_functions = Functions::template get_ray_functions<true>();
    return BvhLeafFunctions{plain_functions.lookup, plain_functions.lookup, this, Functions::frustum_hit, this};
  });
}

BvhLeafFunctions GasGeometryBvh4::get_leaf_functions(const MotionData* /*record*/, GeometryRaytraceCtx& query) const {
  const BvhRayLeafFunction bare = get_ray_functions().bare;
  if (bare == nullptr || query.primitive_filter != nullptr) return leaf_functions;
  const uint group = query.shading_group_offset;
  const ShadingGroupLinks* links = CtxHelpers::get_shading(query, group);
  if (!gas_is_shaded(links) || links->clip_map != nullptr) return leaf_functions;
  gas_set_current(query, geometry, group);
  return {bare, bare, leaf_functions.ray_user, leaf_functions.frustum, leaf_functions.frustum_user};
}

void GasGeometryBvh4::choose_ray_functions() {
  leaf_functions.ray = leaf_functions.nearest = get_ray_functions().lookup;
}

/// Computes the boxes of a slice of the primitives at one sample time.
class GasGeometryBvh4::GetLeafBboxesAtTask final : public GasBboxesAtTask<GasGeometryBvh4> {
 public:
  void measure(const CtxEval& thread_ctx) const override {
    for (uint position = first; position < end; ++position) {
      gas_check_stop(thread_ctx.get_application(), position - first);
      boxes[position] = structure->compute_bbox_at(thread_ctx, time, position);
    }
  }
};

GMathBbox3<float> GasGeometryBvh4::compute_bbox_at(const CtxEval& ctx, double time, uint position) const {
  const GeometryObject& object = *get_owner(position);
  const uint primitive = get_primitive(position);
  const GMathBbox3<double> box = object.get_primitive_bbox_at(ctx, time, primitive);
  // The primitive is in the tree because its static box was valid; that box replaces an invalid one at this time.
  return GMathBbox3<float>(gmath_is_valid_box(box) ? box : object.get_primitive_bbox(ctx, primitive));
}

void GasGeometryBvh4::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  const double box_share = 0.5 / ctx.get_application().get_max_thread_count();
  refit_from_boxes(
      ctx, motion_blur, data, kept_count, box_share,
      [&](double time, GMathBbox3<float>* boxes) {
        gas_compute_bboxes_at<GetLeafBboxesAtTask>(ctx, *this, kept_count, time, boxes);
      },
      [&](uint sample, std::span<const GMathBbox3<float>> boxes, AppProgressBar* progress) {
        return data.refit.update_sample(sample, boxes, progress);
      });
}

GMathBbox3<double> GasGeometryBvh4::blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b,
                                               double fraction) {
  return GMathBbox3<double>(gas_blend_bboxes(a, b, fraction));
}
