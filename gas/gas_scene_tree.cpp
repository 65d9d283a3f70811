#include "gas/gas_scene_tree.h"

#include <algorithm>
#include <bit>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_tasks.h"
#include "gas/gas_scene_tree_motion.h"
#include "gas/structure/gas_bvh_structure_impl.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_module/module_scene_object.h"

template class GasStructure<GasSceneTree, GasObject, GasSceneTreeMotion>;
template class GasBvhStructure<GasSceneTree, GasObject, GasSceneTreeMotion>;

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasSceneTree::class_info();

/// Arguments of get_clusters() for all objects. With a count of 0 a single object is one cluster.
struct ClusterRequest {
  uint count = 0;
  float ratio = 0.0f;
  explicit ClusterRequest(uint object_count)
      : count(object_count > 1 ? 1024 : 0), ratio(object_count > 1 ? 0.3f : 0.0f) {}
};

/// True if the matrix is finite and invertible.
bool is_invertible(const GMathMatrix4x4<double>& matrix) {
  const double determinant = matrix.get_determinant();
  return determinant != 0.0 && gmath_isfinited(determinant);
}

/// Length of a slice: at most four slices per thread.
uint get_slice_length(const AppBase& app, uint count) {
  const uint task_count = std::min(4 * app.get_max_thread_count(), count);
  return task_count > 0 ? (count + task_count - 1) / task_count : 1;
}

}  // namespace

const CoreClassInfo& GasSceneTree::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasSceneTree", GasObject::class_info());
  return info;
}

GasSceneTree::GasSceneTree() : GasBvhStructure(this) {
  install_callbacks(true);
  leaf_functions = {leaf_ray_hit_static_callback, leaf_ray_hit_nearest_static_callback, this, leaf_frustum_hit_callback,
                    this};
}

GasSceneTree::GasSceneTree(const GasSceneTree& other) : GasBvhStructure(other, this) { *this = other; }

GasSceneTree& GasSceneTree::operator=(const GasSceneTree& other) {
  if (this == &other) return *this;
  GasBvhStructure::operator=(other);
  objects = other.objects;
  overrides = other.overrides;
  object_indices = other.object_indices;
  cluster_counts = other.cluster_counts;
  first_leaves = other.first_leaves;
  leaf_clusters = other.leaf_clusters;
  leaf_objects = other.leaf_objects;
  geometry_count = other.geometry_count;
  primitive_count = other.primitive_count;
  if (!is_whole_copy_of(other)) clear();  // no memory
  return *this;
}

GasSceneTree::~GasSceneTree() = default;

bool GasSceneTree::is_whole_copy_of(const GasSceneTree& other) const {
  return objects.get_count() == other.objects.get_count() && overrides.get_count() == other.overrides.get_count() &&
         object_indices.get_count() == other.object_indices.get_count() &&
         cluster_counts.get_count() == other.cluster_counts.get_count() &&
         first_leaves.get_count() == other.first_leaves.get_count() &&
         leaf_clusters.get_count() == other.leaf_clusters.get_count() &&
         leaf_objects.get_count() == other.leaf_objects.get_count();
}

void GasSceneTree::clear() {
  tree.clear();
  object_indices.remove_all();
  cluster_counts.remove_all();
  first_leaves.remove_all();
  leaf_clusters.remove_all();
  leaf_objects.remove_all();
}

u64 GasSceneTree::get_array_bytes() const {
  return u64{objects.get_count()} * sizeof(ModuleSceneObject*) +
         u64{overrides.get_count()} * sizeof(GeometryOverride*) + u64{object_indices.get_count()} * 3 * sizeof(uint) +
         u64{leaf_objects.get_count()} * (sizeof(void*) + sizeof(uint));
}

/// Reports every refit, however small.
void GasSceneTree::report_growth(u64 /*old_size*/, u64 /*new_size*/) const {
  gas_try([&] { advert_memory_changed(); });
}

uint GasSceneTree::get_cluster_count(uint index) const {
  const uint* found = std::lower_bound(object_indices.begin(), object_indices.end(), index);
  return found != object_indices.end() && *found == index
             ? cluster_counts[static_cast<uint>(found - object_indices.begin())]
             : 0;
}

CoreBasicArray<void*> GasSceneTree::get_object_clusters(uint accepted) const {
  return CoreBasicArray<void*>::make_view(leaf_clusters.get_items() + first_leaves[accepted], cluster_counts[accepted]);
}

/// Gets the clusters of a slice of the objects. Writes only the lists of these objects.
class GasSceneTree::GasSceneTreeCheckTask final : public GasTask {
 public:
  const GasSceneTree* scene = nullptr;
  CoreVector<void*>* lists = nullptr;  ///< [object]
  ClusterRequest request{0};
  const AppBase* app = nullptr;
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;

  void work(const uint& /*thread_index*/) override {
    for (uint index = first; index < end; ++index) {
      app->check_stop();
      ModuleSceneObject* object = scene->objects[index];
      if (object != nullptr && object->get_primitive_count() != 0.0 && is_invertible(object->get_global_matrix())) {
        object->get_cluster_functions().get_clusters(object, scene->get_override(index), lists[index], request.count,
                                                     request.ratio);
      }
      if (progress != nullptr) progress->step(index + 1);
    }
  }
};

/// Computes world boxes and weights of the leaves of a slice of the accepted objects, and sums over these objects.
class GasSceneTree::GasSceneTreeBboxTask final : public GasTask {
 public:
  const GasSceneTree* scene = nullptr;
  GMathBbox3<float>* boxes = nullptr;
  float* weights = nullptr;
  const AppBase* app = nullptr;
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;
  double geometry_sum = 0.0, primitive_sum = 0.0;

  void work(const uint& /*thread_index*/) override {
    for (uint accepted = first; accepted < end; ++accepted) {
      app->check_stop();
      const uint index = scene->object_indices[accepted], first_leaf = scene->first_leaves[accepted];
      ModuleSceneObject* object = scene->objects[index];
      GeometryOverride* replaced = scene->get_override(index);
      const CoreBasicArray<void*> clusters = scene->get_object_clusters(accepted);
      const ModuleClusterFunctions& functions = object->get_cluster_functions();
      functions.get_clusters_bboxes(object, replaced, clusters, boxes + first_leaf);
      if (functions.get_clusters_weights != nullptr)
        functions.get_clusters_weights(object, replaced, clusters, weights + first_leaf);
      for (uint leaf = first_leaf; leaf < first_leaf + clusters.get_count(); ++leaf)
        boxes[leaf] = gas_get_world_bbox(boxes[leaf], object->get_global_matrix());
      geometry_sum += object->get_geometry_count();
      primitive_sum += object->get_primitive_count();
      if (progress != nullptr) progress->step(accepted + 1);
    }
  }
};

void GasSceneTree::create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& new_objects,
                          const CoreBasicArray<GeometryOverride*>& new_overrides, AppProgressBar* progress) {
  // Without memory for the new objects the former ones are removed too: they may no longer exist.
  if (!objects.assign(new_objects.get_items(), new_objects.get_count()) ||
      !overrides.assign(new_overrides.get_items(), new_overrides.get_count())) {
    objects.remove_all();
    overrides.remove_all();
  }
  create(app, progress);
}

void GasSceneTree::create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& new_objects,
                          AppProgressBar* progress) {
  create(app, new_objects, CoreBasicArray<GeometryOverride*>(), progress);
}

void GasSceneTree::create(const AppBase& app, AppProgressBar* progress) {
  motion_data.follow_slots();
  rebuild("GasSceneTree.create", [&] { build(app, progress); });
}

void GasSceneTree::build(const AppBase& app, AppProgressBar* progress) {
  if (objects.is_empty()) return clear();
  geometry_count = primitive_count = 0.0;
  {
    ClusterLists lists(objects.get_count());
    gas_need(lists.get_count() == objects.get_count());
    check_objects(app, lists, progress);
    gather_clusters(lists);
  }
  CoreArray<GMathBbox3<float>> boxes(leaf_objects.get_count());
  CoreBasicArray<float> weights(leaf_objects.get_count());
  gas_need(boxes.get_count() == leaf_objects.get_count() && weights.get_count() == leaf_objects.get_count());
  // Defaults where a module supplies no box or weight.
  std::fill(boxes.begin(), boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
  std::fill(weights.begin(), weights.end(), 1.0f);
  if (!boxes.is_empty()) compute_bboxes(app, boxes.get_items(), weights.get_items(), progress);
  const AppProgressScope stage(progress, "create tree", 0.3);
  build_tree(app, boxes, weights, progress);
}

void GasSceneTree::check_objects(const AppBase& app, ClusterLists& lists, AppProgressBar* progress) const {
  const uint count = lists.get_count();
  const AppProgressScope stage(progress, "check objects", 0.4, count);
  const uint length = get_slice_length(app, count);
  CoreArray<GasSceneTreeCheckTask> tasks(gas_get_slice_count(count, length));
  gas_need(!tasks.is_empty());
  SysThreadTaskManager manager(app.get_thread_manager());
  gas_run_slices_in(tasks, manager, count, length, [&](GasSceneTreeCheckTask& task) {
    task.scene = this;
    task.lists = lists.get_items();
    task.request = ClusterRequest(objects.get_count());
    task.app = &app;
    task.progress = progress;
  });
}

void GasSceneTree::gather_clusters(const ClusterLists& lists) {
  uint accepted_count = 0, leaf_count = 0;
  for (const CoreVector<void*>& clusters : lists) {
    accepted_count += clusters.get_count() > 0 ? 1 : 0;
    leaf_count += clusters.get_count();
  }
  gas_need(object_indices.resize(accepted_count) && cluster_counts.resize(accepted_count) &&
           first_leaves.resize(accepted_count) && leaf_clusters.resize(leaf_count) && leaf_objects.resize(leaf_count));
  uint accepted = 0, leaf = 0;
  for (uint index = 0; index < lists.get_count(); ++index) {
    if (lists[index].get_count() == 0) continue;
    object_indices[accepted] = index;
    cluster_counts[accepted] = lists[index].get_count();
    first_leaves[accepted] = leaf;
    for (void* cluster : lists[index]) {
      leaf_clusters[leaf] = cluster;
      leaf_objects[leaf++] = accepted;
    }
    ++accepted;
  }
}

void GasSceneTree::compute_bboxes(const AppBase& app, GMathBbox3<float>* boxes, float* weights,
                                  AppProgressBar* progress) {
  const uint count = object_indices.get_count();
  const AppProgressScope stage(progress, "create tree", 0.3, count);
  const uint length = get_slice_length(app, count);
  CoreArray<GasSceneTreeBboxTask> tasks(gas_get_slice_count(count, length));
  gas_need(!tasks.is_empty());
  SysThreadTaskManager manager(app.get_thread_manager());
  gas_run_slices_in(tasks, manager, count, length, [&](GasSceneTreeBboxTask& task) {
    task.scene = this;
    task.boxes = boxes;
    task.weights = weights;
    task.app = &app;
    task.progress = progress;
  });
  for (const GasSceneTreeBboxTask& task : tasks) {
    geometry_count += task.geometry_sum;
    primitive_count += task.primitive_sum;
  }
}

void GasSceneTree::build_tree(const AppBase& app, const CoreArray<GMathBbox3<float>>& boxes,
                              const CoreBasicArray<float>& weights, AppProgressBar* progress) {
  CoreBasicArray<u32> weight_bits(boxes.get_count());
  gas_need(weight_bits.get_count() == boxes.get_count());
  for (uint leaf = 0; leaf < boxes.get_count(); ++leaf) weight_bits[leaf] = std::bit_cast<u32>(weights[leaf]);
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = boxes.get_items();
  split_ctx.item_weights = weight_bits.get_items();
  split_ctx.application = &app;
  tree.build<GasBvhSplitAligned>(split_ctx, nullptr, boxes.get_count(), {1.0f, 1, 1, 10}, progress);
  tree.drop_item_weight_bits();  // only clusters need them, and a scene has none
}
