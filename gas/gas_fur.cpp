#include "gas/gas_fur.h"

#include <limits>

#include "gas/frame/gas_class.h"
#include "gas/structure/gas_bboxes_at.h"
#include "gas/structure/gas_bvh_geometry_impl.h"
#include "gas/structure/gas_leaf.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"

template class GasStructure<GasFur, GasClusterable, GasRefitRecord<GasFur>>;
template class GasBvhStructure<GasFur, GasClusterable>;
template class GasBvhGeometry<GasFur, GasClusterable>;

namespace {

constexpr uint parallel_primitives = 1024;  // from this number on boxes and spaces are computed in tasks

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasFur::class_info();

/// The weight of a hit on the material for a ray of this type: the share of light it stops. 0 for camera rays and 1 for
/// shadow rays: for these the host's shading computes what a curve transmits.
double get_hit_weight(const Material* material, uint type) {
  if (type == GMathRay::camera) return 0.0;
  if (type == GMathRay::shadow || material == nullptr) return 1.0;
  return (material->kind_mask >> (type & 31u) & 1u) != 0 ? 1.0 - material->transparency : 1.0;
}

// Callbacks of the split strategy.
GMathBbox3<float> measure_set(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                              SysThreadManager* threads) {
  return GasFur::compute_space_bbox(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
}

void measure_items(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, GMathBbox3<float>* boxes,
                   void* owner, SysThreadManager* threads) {
  GasFur::compute_space_bboxes(items, space, boxes, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
}

/// Callback of the refit, for the boxes of oriented lanes.
GMathBbox3<float> measure_at(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space, void* owner,
                             SysThreadManager* threads) {
  return GasFur::compute_space_bbox_at(items, space, static_cast<GasFur::ComputeSpaceBboxesData*>(owner), threads);
}

/// True if a leaf has more than one primitive.
bool has_large_leaf(const GasBvh<4>& tree) {
  const auto is_large = [](BvhChildRef ref) { return ref.is_leaf() && ref.get_count() > 1; };
  bool found = is_large(tree.root);
  for (u32 k = 0; k < tree.aligned_count; ++k)
    for (const BvhChildRef ref : tree.aligned[k].child) found |= is_large(ref);
  for (u32 k = 0; k < tree.quantized_count; ++k)
    for (uint lane = 0; lane < 4; ++lane) found |= is_large(tree.quantized[k].get_child(lane));
  for (u32 k = 0; k < tree.oriented_count; ++k)
    for (const BvhChildRef ref : tree.oriented[k].child) found |= is_large(ref);
  return found;
}

}  // namespace

const CoreClassInfo& GasFur::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasFur", GasClusterable::class_info());
  return info;
}

GasFur::GasFur() : GasBvhGeometry(this) {}

GasFur::GasFur(const GasFur& other) : GasBvhGeometry(other, this) { copy_fields(other); }

GasFur& GasFur::operator=(const GasFur& other) {
  if (this == &other) return *this;
  GasBvhGeometry::operator=(other);
  copy_fields(other);
  return *this;
}

void GasFur::copy_fields(const GasFur& other) {
  ctx = other.ctx;
  base_geometry = other.base_geometry;
  geometry = other.geometry;
  primitive_count = other.primitive_count;
  has_motion = other.has_motion;
  oriented_nodes_allowed = other.oriented_nodes_allowed;
  has_large_leaves = other.has_large_leaves;
  group_primitive_counts = other.group_primitive_counts;
  const bool is_whole = tree.is_empty() == other.tree.is_empty() &&
                        group_primitive_counts.get_count() == other.group_primitive_counts.get_count() &&
                        records.is_whole_copy_of(other.records);
  if (!is_whole) clear();  // no memory
}

GasFur::~GasFur() = default;

void GasFur::clear() {
  tree.clear();
  records.clear();
  group_primitive_counts.remove_all();
}

struct GasFur::Primitives {
  CoreAlignedArray<GMathBbox3<float>> boxes;
  CoreAlignedArray<GMathLinearSpace3<float>> spaces;
  CoreVector<uint> valid;  ///< the primitives with finite boxes, in increasing order; the items of the tree
};

/// Computes static boxes and spaces of a slice of the primitives.
class GasFur::StaticBboxTask final : public GasTask {
 public:
  const CtxEval* ctx = nullptr;
  const GeometryObject* geometry = nullptr;
  Primitives* primitives = nullptr;
  uint first = 0, end = 0;
  CoreVector<uint> valid;
  AppProgressBar* progress = nullptr;

  void work(const uint& thread_index) override {
    measure(ctx->get_or_create_thread_ctx(thread_index), *geometry, first, end, *primitives, valid, progress);
  }

  /// In pieces, so that a stop request takes effect after at most 16384 primitives.
  static void measure(const CtxEval& ctx, const GeometryObject& geometry, uint first, uint end, Primitives& primitives,
                      CoreVector<uint>& valid, AppProgressBar* progress) {
    constexpr uint piece_length = 16384;
    gas_need(valid.reserve(valid.get_count() + end - first));
    for (uint piece = first; piece < end; piece += piece_length) {
      ctx.get_application().check_stop();
      compute_bboxes_and_spaces(ctx, &geometry, piece, std::min(piece + piece_length, end), primitives.boxes.get(),
                                primitives.spaces.get(), valid, progress);
    }
  }
};

void GasFur::compute_primitives(const CtxEval& build_ctx, Primitives& primitives, AppProgressBar* progress) const {
  const bool lends_contexts = build_ctx.get_thread_index() >= build_ctx.get_thread_ctx_count();
  if (primitive_count < parallel_primitives || !lends_contexts || build_ctx.get_thread_ctx_count() == 0) {
    return StaticBboxTask::measure(build_ctx, *geometry, 0, primitive_count, primitives, primitives.valid, progress);
  }
  SysThreadTaskManager manager(build_ctx.get_application().get_thread_manager());
  const uint slice = gas_get_slice_length(primitive_count, manager.get_max_thread_count());
  const auto tasks = gas_run_slices<StaticBboxTask>(manager, primitive_count, slice, [&](StaticBboxTask& task) {
    task.ctx = &build_ctx;
    task.geometry = geometry;
    task.primitives = &primitives;
    task.progress = progress;
  });
  gas_need(primitives.valid.reserve(primitive_count));
  for (const StaticBboxTask& task : tasks) {
    for (const uint primitive : task.valid) primitives.valid.add(primitive);
  }
}

bool GasFur::create(const CtxEval& new_ctx, const GeometryObject* new_base_geometry, const GeometryObject* new_geometry,
                    AppProgressBar* progress) {
  ctx = &new_ctx;
  base_geometry = new_base_geometry;
  geometry = new_geometry;
  const auto build = [&] {
    primitive_count = geometry->get_primitive_count();
    has_motion = geometry->has_motion();
    Primitives primitives;
    if (primitive_count > 0) {
      primitives.boxes = CoreAlignedArray<GMathBbox3<float>>(primitive_count);
      primitives.spaces = CoreAlignedArray<GMathLinearSpace3<float>>(primitive_count);
      gas_need(primitives.boxes && primitives.spaces);
    }
    {
      const AppProgressScope stage(progress, "Compute primitives AABB", 0.2, primitive_count);
      if (primitive_count > 0) compute_primitives(new_ctx, primitives, progress);
    }
    records.clear();
    GasLeafRecordWork record_work(get_recorded_geometry(), get_item_primitives(), &new_ctx.get_application());
    {
      const AppProgressScope stage(progress, "Build BVH", 0.8);
      build_tree(new_ctx, primitives, progress, record_work);
    }
    count_groups();
    has_large_leaves = has_large_leaf(tree);
    leaf_functions = {nullptr, nullptr, this, leaf_frustum_hit_callback, this};
    make_records(record_work);
  };
  rebuild("GasFur.create", build);
  install_callbacks(has_motion);
  return true;
}

void GasFur::build_tree(const CtxEval& build_ctx, const Primitives& primitives, AppProgressBar* progress,
                        BvhOrderWork& order_work) {
  ComputeSpaceBboxesData measured{&build_ctx, geometry, 0.0};
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = primitives.boxes.get();
  split_ctx.item_spaces = primitives.spaces.get();
  split_ctx.measure_set = measure_set;
  split_ctx.measure_items = measure_items;
  split_ctx.measure_owner = &measured;
  split_ctx.application = &build_ctx.get_application();
  if (!oriented_nodes_allowed) split_ctx.oriented_cost = std::numeric_limits<float>::infinity();
  BvhBuildParams params;
  params.item_cost = static_cast<float>(geometry->get_build_parameter());
  params.leaf_threshold = 1;
  params.max_leaf = 0xFFFFFFFF;
  params.quantization_depth = 10;
  tree.build<GasBvhSplitUnaligned>(split_ctx, primitives.valid.get_items(), primitives.valid.get_count(), params,
                                   progress, &order_work);
}

/// A primitive in a group that the geometry does not list can be hit if the query's table has links for the group, but
/// it is not counted for frustum queries.
void GasFur::count_groups() {
  const uint group_count = geometry->get_shading_groups().get_count();
  group_primitive_counts = CoreBasicArray<uint>(group_count);
  gas_need(group_primitive_counts.get_count() == group_count);
  for (uint position = 0; position < tree.item_count; ++position) {
    const uint group = geometry->get_primitive_shading_group(tree.order[position]);
    if (group < group_primitive_counts.get_count()) ++group_primitive_counts[group];
  }
}

void GasFur::choose_ray_functions() {
  const bool has_records = records.get_size() != 0;
  BvhRayLeafFunction ray = has_large_leaves ? multi_primitive_ray_hit_callback : single_primitive_ray_hit_callback;
  if (has_records) ray = has_large_leaves ? ray_hit<true, false> : ray_hit<true, true>;
  leaf_functions.ray = leaf_functions.nearest = ray;
}

template <bool has_records>
void GasFur::test_item(const CtxEval& query_ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                       const uint* item) const {
  const uint primitive = *item;
  const uint group = geometry->get_primitive_shading_group(primitive) + query.shading_group_offset;
  const auto describe = [&](const ShadingGroupLinks& links) {
    query.material = shader.override_material != nullptr ? shader.override_material : links.material;
    query.shading_variables = links.variables != nullptr ? links.variables : &ShadingVariablesCtx::get_default_ctx();
  };
  gas_test_primitive(query, geometry, primitive, group, describe, [&] {
    const double outer_weight = query.hit_weight;
    // Usually one ray. A tree that is a single leaf gets the whole packet, whose rays may be of different types.
    const uint first = query.first_ray, last = query.last_ray;
    for (uint ray = first; ray <= last && ray < query.ray_count; ++ray) {
      query.first_ray = query.last_ray = ray;
      query.hit_weight = get_hit_weight(query.material, query.intervals[ray].type);
      if constexpr (has_records) {
        const void* record = records.get(static_cast<std::size_t>(item - tree.order));
        geometry->ray_hit_record(query_ctx, shader, query, primitive, record);
      } else {
        geometry->ray_hit_primitive(query_ctx, shader, query, primitive);
      }
    }
    query.first_ray = first;
    query.last_ray = last;
    query.hit_weight = outer_weight;
  });
}

template <bool has_records, bool is_single>
void GasFur::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                     const CoreBasicArray<uint>& leaf, void* user) {
  const auto& structure = *static_cast<const GasFur*>(user);
  const uint* first = leaf.get_items();
  if constexpr (is_single) return structure.test_item<has_records>(ctx, shader, query, first);
  for (const uint* item = first; item != first + leaf.get_count(); ++item)
    structure.test_item<has_records>(ctx, shader, query, item);
}

void GasFur::single_primitive_ray_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                               const CoreBasicArray<unsigned int>& leaf, void* user) {
  ray_hit<false, true>(ctx, shader, query, leaf, user);
}

void GasFur::multi_primitive_ray_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                              const CoreBasicArray<unsigned int>& leaf, void* user) {
  ray_hit<false, false>(ctx, shader, query, leaf, user);
}

void GasFur::leaf_frustum_hit_callback(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                       const CoreBasicArray<unsigned int>& leaf, void* user) {
  const GeometryObject* geometry = static_cast<const GasFur*>(user)->geometry;
  for (const uint primitive : leaf) {
    const uint group = geometry->get_primitive_shading_group(primitive) + query.shading_group_offset;
    gas_test_primitive(ctx, shader, query, geometry, primitive, group);
  }
}

/// Computes the boxes of a slice of the primitives at one sample time, in pieces: a stop request takes effect after at
/// most 4096 primitives.
class GasFur::MotionBboxTask final : public GasBboxesAtTask<GasFur> {
 public:
  void measure(const CtxEval& thread_ctx) const override {
    constexpr uint piece_length = 4096;
    for (uint piece = first; piece < end; piece += piece_length) {
      thread_ctx.get_application().check_stop();
      compute_bboxes_at(thread_ctx, structure->geometry, time, piece, std::min(piece + piece_length, end), boxes,
                        nullptr);
    }
  }
};

void GasFur::update_samples(const CtxEval& query_ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  ComputeSpaceBboxesData measured{&query_ctx, geometry, 0.0};
  // Most of the time goes into oriented lanes: every primitive is measured for each oriented node above it.
  constexpr double box_share = 0.1;
  refit_from_boxes(
      query_ctx, motion_blur, data, primitive_count, box_share,
      [&](double time, GMathBbox3<float>* boxes) {
        measured.time = time;
        gas_compute_bboxes_at<MotionBboxTask>(query_ctx, *this, primitive_count, time, boxes);
      },
      [&](uint sample, std::span<const GMathBbox3<float>> boxes, AppProgressBar* progress) {
        return data.refit.update_sample_unaligned(sample, boxes, {measure_at, &measured}, progress);
      });
}
