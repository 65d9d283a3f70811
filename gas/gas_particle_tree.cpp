#include "gas/gas_particle_tree.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "gas/frame/gas_rebuild.h"
#include "gas/frame/gas_tasks.h"
#include "gas/structure/gas_nested_query.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/module_particle.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END};

bool is_valid(const ModuleSceneObject* object) {
  if (object == nullptr) return false;
  const double determinant = object->get_global_matrix().get_determinant();
  if (determinant == 0.0 || std::isnan(determinant)) return false;
  if (!object->is_kindof(ModuleParticle::class_info())) return false;
  const GeometryObject* geometry = static_cast<const ModuleGeometry*>(object)->get_geometry(true);
  return geometry != nullptr && geometry->get_primitive_count() != 0;
}

/// The box around the transformed corners, rounded outwards. Empty, which gets no leaf, if nothing can be found in the
/// object: its inverted corners would give a box around the whole world.
GMathBbox3<float> get_world_bbox(const ModuleSceneObject& object) {
  const GMathBbox3<double> local = object.get_local_bbox();
  if (local.is_empty()) return {};
  GMathBbox3<double> world({1e308, 1e308, 1e308}, {-1e308, -1e308, -1e308});
  for (uint corner = 0; corner < 8; ++corner)
    world.add(object.get_global_matrix().transform_point(local.get_corner(corner)));
  return gmath_round_outwards(world);
}

/// Runs `count` items in one task per thread, not more tasks than items, and returns the tasks in order.
template <class Task, class Prepare>
std::vector<Task> run_per_thread(const AppBase& app, uint count, const Prepare& prepare) {
  SysThreadTaskManager manager(app.get_thread_manager());
  const uint task_count = std::max(1u, std::min(manager.get_thread_count(), count));
  const uint length = std::max(1u, (count + task_count - 1) / task_count);  // also of no items
  return gas_run_slices<Task>(manager, count, length, prepare);
}

}  // namespace

/// Flags the objects that belong into the tree.
class GasParticleTree::GasParticleTreeCheckTask final : public GasTask {
 public:
  ModuleSceneObject* const* objects = nullptr;
  u8* flags = nullptr;  ///< [object] written
  const AppBase* app = nullptr;
  uint first = 0, end = 0;

  void work(const uint& /*thread_index*/) override {
    for (uint index = first; index < end; ++index) {
      gas_check_stop(*app, index);
      flags[index] = is_valid(objects[index]) ? 1 : 0;
    }
  }
};

/// Computes the boxes of valid objects and counts their particles.
class GasParticleTree::GasParticleTreeBboxTask final : public GasTask {
 public:
  ModuleSceneObject* const* objects = nullptr;
  const uint* valid_indices = nullptr;
  GMathBbox3<float>* boxes = nullptr;  ///< [valid object] written
  const AppBase* app = nullptr;
  uint first = 0, end = 0;
  double particle_sum = 0.0;

  void work(const uint& /*thread_index*/) override {
    for (uint valid = first; valid < end; ++valid) {
      gas_check_stop(*app, valid);
      const ModuleSceneObject& object = *objects[valid_indices[valid]];
      boxes[valid] = get_world_bbox(object);
      particle_sum += static_cast<const ModuleGeometry&>(object).get_geometry(true)->get_primitive_count();
    }
  }
};

GasParticleTree::GasParticleTree(const GasParticleTree& other) : GasObject(other) { *this = other; }

GasParticleTree& GasParticleTree::operator=(const GasParticleTree& other) {
  if (this == &other) return *this;
  GasObject::operator=(other);
  scene_objects = other.scene_objects;
  valid_indices = other.valid_indices;
  particle_count = other.particle_count;
  tree = other.tree;
  install_tree_callbacks();
  const bool is_whole = scene_objects.get_count() == other.scene_objects.get_count() &&
                        valid_indices.get_count() == other.valid_indices.get_count() &&
                        tree.is_empty() == other.tree.is_empty();
  if (!is_whole) clear();
  return *this;
}

GasParticleTree::~GasParticleTree() = default;

void GasParticleTree::clear() {
  tree.clear();
  scene_objects.remove_all();
  valid_indices.remove_all();
  particle_count = 0.0;
}

void GasParticleTree::create(const AppBase& app, const CoreArray<ModuleSceneObject*>& objects,
                             AppProgressBar* progress) {
  create(app, objects.get_items(), objects.get_count(), progress);
}

void GasParticleTree::create(const AppBase& app, const CoreVector<ModuleSceneObject*>& objects,
                             AppProgressBar* progress) {
  create(app, objects.get_items(), objects.get_count(), progress);
}

void GasParticleTree::create(const AppBase& app, ModuleSceneObject* const* objects, uint count,
                             AppProgressBar* progress) {
  const auto build_new = [&] {
    gas_need(scene_objects.assign(objects, count));
    build(app, progress);
  };
  gas_rebuild("GasParticleTree.create", build_new, [&] { clear(); });
}

void GasParticleTree::build(const AppBase& app, AppProgressBar* progress) {
  tree.clear();
  valid_indices.remove_all();
  if (scene_objects.is_empty()) return;
  particle_count = 0.0;
  const AppProgressScope stage(progress, "create particle tree", 1.0, scene_objects.get_count());
  collect_valid(app);
  CoreVector<GMathBbox3<float>> boxes;
  gas_need(boxes.resize(valid_indices.get_count()));
  compute_bboxes(app, boxes);
  tree.create(boxes, progress, &app);
  install_tree_callbacks();
  callbacks.frustum_hit = frustum_hit_callback;
  callbacks.ray_frustum_hit = ray_frustum_hit_callback;
}

void GasParticleTree::collect_valid(const AppBase& app) {
  const uint count = scene_objects.get_count();
  CoreBasicArray<u8> flags(count);
  gas_need(flags.get_count() == count);
  run_per_thread<GasParticleTreeCheckTask>(app, count, [&](GasParticleTreeCheckTask& task) {
    task.objects = scene_objects.get_items();
    task.flags = flags.get_items();
    task.app = &app;
  });
  gas_need(valid_indices.reserve(static_cast<uint>(std::count(flags.begin(), flags.end(), u8{1}))));
  for (uint index = 0; index < count; ++index)
    if (flags[index] != 0) valid_indices.add(index);
}

void GasParticleTree::compute_bboxes(const AppBase& app, CoreVector<GMathBbox3<float>>& boxes) {
  const auto tasks =
      run_per_thread<GasParticleTreeBboxTask>(app, boxes.get_count(), [&](GasParticleTreeBboxTask& task) {
        task.objects = scene_objects.get_items();
        task.valid_indices = valid_indices.get_items();
        task.boxes = boxes.get_items();
        task.app = &app;
      });
  for (const GasParticleTreeBboxTask& task : tasks) particle_count += task.particle_sum;
}

void GasParticleTree::install_tree_callbacks() {
  tree.set_frustum_leaf(leaf_frustum_hit_callback, this);
  tree.set_ray_frustum_leaf(leaf_ray_frustum_hit_callback, this);
}

GMathBbox3<double> GasParticleTree::get_bbox() const { return GMathBbox3<double>(tree.get_bbox()); }

u64 GasParticleTree::get_memory_size() const {
  return sizeof(GasParticleTree) - sizeof(GasTree) + tree.get_memory_size() +
         u64{scene_objects.get_count()} * sizeof(ModuleSceneObject*) + u64{valid_indices.get_capacity()} * sizeof(uint);
}

void GasParticleTree::frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                           GeometryFrustumCtx& query) {
  query.result = GeometryFrustumResult();
  gas_try([&] { static_cast<const GasParticleTree*>(object)->tree.frustum_hit(ctx, shader, query, false); });
}

void GasParticleTree::ray_frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                               GeometryRayFrustumCtx& query) {
  gas_try([&] {
    for (uint beam = 0; beam < query.get_frustum_count(); ++beam) {
      query.init(beam);
      static_cast<const GasParticleTree*>(object)->tree.ray_frustum_hit(ctx, shader, query, false);
    }
  });
}

void GasParticleTree::leaf_frustum_hit_callback(void* structure, const uint& leaf, const CtxEval& ctx,
                                                CtxShader& shader, GeometryFrustumCtx& query) {
  static_cast<const GasParticleTree*>(structure)->leaf_frustum_hit(leaf, ctx, shader, query);
}

void GasParticleTree::leaf_ray_frustum_hit_callback(void* structure, const uint& leaf, const CtxEval& ctx,
                                                    CtxShader& shader, GeometryRayFrustumCtx& query) {
  static_cast<const GasParticleTree*>(structure)->leaf_ray_frustum_hit(leaf, ctx, shader, query);
}

void GasParticleTree::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                       GeometryFrustumCtx& query) const {
  const uint index = valid_indices[leaf];
  ModuleSceneObject* object = scene_objects[index];
  if (!object->is_visible(query.kind, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  GasNestedQueryCtx* record = scope.get();
  gas_need(record != nullptr);
  GeometryFrustumCtx& local = record->frustum;
  local.begin_nested(query, object->get_inv_global_matrix(), object->get_global_matrix());
  gas_extend_path(record->frustum_path, query.path, {index, object, nullptr});
  local.path = &record->frustum_path;
  local.cluster = 0;
  const std::size_t first_point = query.get_points().size();
  object->frustum_hit(ctx, shader, local);
  switch (static_cast<GeometryFrustumMode>(query.mode)) {
    case GeometryFrustumMode::any:
      if (local.result.hit_count == 0) break;
      query.add_object(index);
      ++query.result.hit_count;
      break;
    case GeometryFrustumMode::all:
      ++query.result.total;
      if (local.result.hit_count == local.result.total) {
        query.add_object(index);
        ++query.result.hit_count;
      } else {
        query.result.outside = 1;
      }
      break;
    case GeometryFrustumMode::points:
    case GeometryFrustumMode::vertices:
      for (std::size_t k = first_point; k < query.get_points().size(); ++k) {
        GMathVec3<double>& position = query.get_points()[k].position;
        position = object->get_global_matrix().transform_point(position);
      }
      break;
  }
}

void GasParticleTree::leaf_ray_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                           GeometryRayFrustumCtx& query) const {
  ModuleSceneObject* object = scene_objects[valid_indices[leaf]];
  if (!object->is_visible(query.kind, shader.visibility_override)) return;
  const GasNestedScope scope(shader);
  GasNestedQueryCtx* record = scope.get();
  gas_need(record != nullptr);
  record->ray_frustum.init_local(query, object->get_inv_global_matrix(), object->get_global_matrix(), object);
  object->ray_frustum_hit(ctx, shader, record->ray_frustum);
}
