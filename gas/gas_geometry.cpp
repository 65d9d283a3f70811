#include "gas/gas_geometry.h"

#include <algorithm>
#include <cmath>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_tasks.h"
#include "gas/structure/gas_frustum_modes.h"
#include "gas/structure/gas_mesh_leaf.h"
#include "gas/structure/gas_structure_impl.h"
#include "gas/structure/gas_wireframe_filter.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

/// During a ray query: makes base_geometry the current geometry and filters it if it is a wireframe.
struct GasGeometry::QueryScope {
  QueryScope(const GasGeometry& structure, CtxShader& /*shader*/, GeometryRaytraceCtx& query, BvhHits hits)
      : wireframes(structure.base_geometry, query, hits) {}
  GasWireframeScope wireframes;
};

template class GasStructure<GasGeometry, GasGeometryBase, GasGeometryMotion>;

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasGeometry::class_info();

constexpr uint positions_per_task = 256;

}  // namespace

const CoreClassInfo& GasGeometry::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasGeometry", GasGeometryBase::class_info());
  return info;
}

GasGeometry::GasGeometry() : GasStructure(this) {}

GasGeometry::GasGeometry(const GasGeometry& other)
    : GasStructure(other, this),
      grid(other.grid),
      ray_callback(other.ray_callback),
      frustum_callback(other.frustum_callback) {
  install_grid_callbacks();
  if (!is_whole_copy_of(other) || grid.is_empty() != other.grid.is_empty()) clear();  // no memory
}

GasGeometry& GasGeometry::operator=(const GasGeometry& other) {
  if (this == &other) return *this;
  GasStructure::operator=(other);
  grid = other.grid;
  ray_callback = other.ray_callback;
  frustum_callback = other.frustum_callback;
  install_grid_callbacks();
  if (!is_whole_copy_of(other) || grid.is_empty() != other.grid.is_empty()) clear();  // no memory
  return *this;
}

GasGeometry::~GasGeometry() = default;

void GasGeometry::clear() {
  clear_primitives();
  grid.clear();
}

bool GasGeometry::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                         const GeometryObject* new_geometry, AppProgressBar* progress) {
  // Flags are read only if alt_geometry or extra_geometry is given.
  return create(ctx, new_base_geometry, new_geometry, nullptr, nullptr, CoreBasicArray<uint>(), progress);
}

bool GasGeometry::create(const CtxEval& ctx, const GeometryObject* new_base_geometry,
                         const GeometryObject* new_geometry, const GeometryObject* new_alt_geometry,
                         const GeometryObject* new_extra_geometry, const CoreBasicArray<uint>& group_flags,
                         AppProgressBar* progress) {
  bool accepted = true;
  rebuild("GasGeometry.create", [&] {
    accepted =
        prepare_and_build(ctx, new_base_geometry, new_geometry, new_alt_geometry, new_extra_geometry, group_flags,
                          progress, "Build grid", [&](auto& boxes) { build_grid(ctx, boxes, progress); });
  });
  if (accepted) install_callbacks(has_motion);
  return accepted;
}

void GasGeometry::build_grid(const CtxEval& ctx, const CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress) {
  choose_primitive_callbacks(ctx);
  // First, so that the grid does not keep the boxes.
  install_grid_callbacks();
  const uint resolution = std::max(1u, static_cast<uint>(std::lround(std::sqrt(double(boxes.get_count())))));
  grid.create(boxes, resolution, progress, &ctx.get_application());
}

void GasGeometry::install_grid_callbacks() {
  GasGridCallbacks block;
  block.leaf_boxes = get_leaf_bboxes_callback;
  block.ray = block.nearest = {ray_callback, this};
  block.frustum = {frustum_callback, this};
  block.memory = memory_update_callback;
  block.leaf_boxes_user = block.memory_user = this;
  grid.set_callbacks(block);
}

void GasGeometry::memory_update_callback(const u64& old_size, const u64& new_size, void* structure) {
  auto& self = *static_cast<GasGeometry*>(structure);
  self.memory_account.update(old_size, new_size, self);
}

template <BvhHits hits>
void GasGeometry::traverse(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                           const MotionData* data) const {
  constexpr bool is_nearest = hits == BvhHits::nearest;
  query.counter = 0;
  if (data != nullptr)
    return is_nearest ? data->motion.ray_hit_nearest(ctx, shader, query) : data->motion.ray_hit(ctx, shader, query);
  return is_nearest ? grid.ray_hit_nearest(ctx, shader, query) : grid.ray_hit(ctx, shader, query);
}

template <class MeshLeaf>
void GasGeometry::primitive_ray_hit_callback(void* structure, const uint& position, const CtxEval& ctx,
                                             CtxShader& shader, GeometryRaytraceCtx& query) {
  MeshLeaf(*static_cast<const GasGeometry*>(structure), position).test(ctx, shader, query);
}

template <class MeshLeaf>
void GasGeometry::primitive_frustum_hit_callback(void* structure, const uint& position, const CtxEval& ctx,
                                                 CtxShader& shader, GeometryFrustumCtx& query) {
  MeshLeaf(*static_cast<const GasGeometry*>(structure), position).test(ctx, shader, query);
}

void GasGeometry::choose_primitive_callbacks(const CtxEval& ctx) {
  choose_leaf(ctx, [this]<bool indexed, bool many_owners, bool one_group>() {
    using MeshLeaf = GasMeshLeaf<GasGeometryBase, indexed, many_owners, one_group>;
    ray_callback = primitive_ray_hit_callback<MeshLeaf>;
    frustum_callback = primitive_frustum_hit_callback<MeshLeaf>;
  });
}

void GasGeometry::answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
  query.geometry = base_geometry;
  if (!gas_begin_frustum(group_primitive_counts, geometry, query)) return;
  grid.frustum_hit(ctx, shader, query);
  gas_end_frustum(geometry, query);
}

/// Writes the static boxes of a slice of a list of positions.
class GasGeometry::GetLeafBboxesTask : public GasTask {
 public:
  const GasGeometry* structure = nullptr;
  const CtxEval* ctx = nullptr;
  const uint* positions = nullptr;
  GMathBbox3<float>* boxes = nullptr;
  uint first = 0, end = 0;

  virtual void measure(const CtxEval& thread_ctx) const {
    for (uint k = first; k < end; ++k) {
      const uint position = positions[k];
      const GeometryObject* owner = structure->get_owner(position);
      boxes[k] = GMathBbox3<float>(owner->get_primitive_bbox(thread_ctx, structure->get_primitive(position)));
    }
  }

  void set_input(const void* new_structure, const CtxEval& new_ctx, const uint* new_positions,
                 GMathBbox3<float>* new_boxes) {
    structure = static_cast<const GasGeometry*>(new_structure);
    ctx = &new_ctx;
    positions = new_positions;
    boxes = new_boxes;
  }

  /// Measures `count` positions: on this thread if they are few or `ctx` has no context for each thread.
  /// @param prepare  (task): sets its input
  template <class Task, class Prepare>
  static void run(const CtxEval& ctx, uint count, const Prepare& prepare) {
    SysThreadTaskManager manager(ctx.get_application().get_thread_manager());
    const uint task_count = count / positions_per_task;
    if (task_count < 2 || ctx.get_thread_ctx_count() < manager.get_thread_count()) {
      Task all;
      prepare(all);
      all.end = count;
      return all.measure(ctx);
    }
    gas_run_slices<Task>(manager, count, (count + task_count - 1) / task_count, prepare);
  }

 private:
  void work(const uint& thread_index) final { measure(ctx->get_or_create_thread_ctx(thread_index)); }
};

/// The same at a time.
class GasGeometry::GetLeafBboxesAtTask final : public GetLeafBboxesTask {
 public:
  double time = 0.0;

  void measure(const CtxEval& thread_ctx) const override {
    for (uint k = first; k < end; ++k) {
      const uint primitive = structure->get_primitive(positions[k]);
      const GeometryObject* owner = structure->get_owner(positions[k]);
      const GMathBbox3<double> box = owner->get_primitive_bbox_at(thread_ctx, time, primitive);
      // The primitive is in the grid because its static box was valid; that box replaces an invalid one at this time.
      boxes[k] = GMathBbox3<float>(gmath_is_valid_box(box) ? box : owner->get_primitive_bbox(thread_ctx, primitive));
    }
  }
};

void GasGeometry::get_leaf_bboxes_callback(void* structure, const CtxEval& ctx, const uint& count,
                                           const uint* positions, GMathBbox3<float>* boxes) {
  GetLeafBboxesTask::run<GetLeafBboxesTask>(
      ctx, count, [&](GetLeafBboxesTask& task) { task.set_input(structure, ctx, positions, boxes); });
}

void GasGeometry::get_leaf_bboxes_at_callback(void* structure, const CtxEval& ctx, const double& time,
                                              const uint& count, const uint* positions, GMathBbox3<float>* boxes) {
  GetLeafBboxesTask::run<GetLeafBboxesAtTask>(ctx, count, [&](GetLeafBboxesAtTask& task) {
    task.set_input(structure, ctx, positions, boxes);
    task.time = time;
  });
}

void GasGeometry::update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const {
  // The change of the whole is reported once, by the caller.
  data.motion.set_memory_reporting(nullptr, nullptr);
  data.memory_change = memory_update_callback;
  data.motion.configure(grid, get_leaf_bboxes_at_callback, data.owner);
  data.motion.update_samples(ctx, motion_blur);
  data.motion.set_memory_reporting(data.memory_change, data.owner);
}

GMathBbox3<double> GasGeometry::blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
  return GMathBbox3<double>(gas_blend_bboxes(a, b, fraction));
}

void GasGeometry::get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const {
  gas_try([&] { grid.get_clusters(clusters, count, ratio); });
}

void GasGeometry::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  grid.get_clusters_bboxes(clusters, boxes);
}

void GasGeometry::get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                                         GMathBbox3<float>* boxes) const {
  const MotionData* data = refit_if_stale(ctx);
  if (data == nullptr) return get_clusters_bboxes(clusters, boxes);
  const GasMotionSpan span(*ctx.get_motion_blur(), time);
  data->motion.get_clusters_bboxes(clusters, span.first, static_cast<float>(span.fraction), boxes);
}

void GasGeometry::get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const {
  std::fill_n(weights, clusters.get_count(), 1.0f);
}
