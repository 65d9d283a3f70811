#include "gas/gas_scene_tree.h"

#include <algorithm>
#include <bit>
#include <unordered_map>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_tasks.h"
#include "gas/structure/gas_instance_slices.h"
#include "gas/structure/gas_instance_structure_impl.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_module/module_scene_object.h"
#include "vq_sys/sys_thread_lock.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasSceneTree::class_info();

/// The weights of the structures that several objects may share: they cost a traversal of the structure. Thread-safe.
class StructureWeights {
 public:
  /// Writes `weights`. Threads do not wait for each other: some may compute the same.
  void get(const ModuleClusterFunctions& functions, ModuleSceneObject* object, GeometryOverride* replaced,
           const CoreBasicArray<void*>& clusters, float* weights) {
    const bool is_shared = functions.weights_depend_on_structure_only && clusters.get_count() > 1;
    if (is_shared && copy(object->get_structure(), clusters, weights)) return;
    functions.get_clusters_weights(object, replaced, clusters, weights);
    if (is_shared) keep(object->get_structure(), clusters, weights);
  }

 private:
  struct Known {
    CoreBasicArray<void*> clusters;
    CoreBasicArray<float> weights;
  };

  bool copy(const GasObject* structure, const CoreBasicArray<void*>& clusters, float* weights) {
    const SysThreadLockGuard guard(lock_);
    const auto found = known_.find(structure);
    if (found == known_.end() || !std::ranges::equal(found->second.clusters, clusters)) return false;
    std::ranges::copy(found->second.weights, weights);
    return true;
  }
  void keep(const GasObject* structure, const CoreBasicArray<void*>& clusters, const float* weights) {
    Known known;
    gas_need(known.clusters.assign(clusters.get_items(), clusters.get_count()) &&
             known.weights.assign(weights, clusters.get_count()));
    const SysThreadLockGuard guard(lock_);
    known_.try_emplace(structure, std::move(known));
  }

  SysThreadLock lock_;
  std::unordered_map<const GasObject*, Known> known_;
};

/// Arguments of get_clusters() for all objects. With a count of 0 a single object is one cluster.
struct ClusterRequest {
  uint count = 0;
  float ratio = 0.0f;
  explicit ClusterRequest(uint object_count)
      : count(object_count > 1 ? 1024 : 0), ratio(object_count > 1 ? 0.3f : 0.0f) {}
};

}  // namespace

const CoreClassInfo& GasSceneTree::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasSceneTree", GasObject::class_info());
  return info;
}

GasSceneTree::GasSceneTree() : GasInstanceStructure(this) {}

GasSceneTree::GasSceneTree(const GasSceneTree& other) : GasInstanceStructure(other, this) { copy_fields(other); }

GasSceneTree& GasSceneTree::operator=(const GasSceneTree& other) {
  if (this == &other) return *this;
  GasInstanceStructure::operator=(other);
  copy_fields(other);
  return *this;
}

void GasSceneTree::copy_fields(const GasSceneTree& other) {
  objects = other.objects;
  overrides = other.overrides;
  geometry_count = other.geometry_count;
  primitive_count = other.primitive_count;
  complete_copy(other);
}

GasSceneTree::~GasSceneTree() = default;

bool GasSceneTree::is_whole_copy_of(const GasSceneTree& other) const {
  return objects.get_count() == other.objects.get_count() && overrides.get_count() == other.overrides.get_count() &&
         GasInstanceStructure::is_whole_copy_of(other);
}

void GasSceneTree::clear() {
  tree.clear();
  clear_entries();
}

u64 GasSceneTree::get_array_bytes() const {
  return u64{objects.get_count()} * sizeof(ModuleSceneObject*) +
         u64{overrides.get_count()} * sizeof(GeometryOverride*) + get_entry_bytes();
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
      if (object != nullptr && object->get_primitive_count() != 0.0 && gas_is_invertible(object->get_global_matrix())) {
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
  GMathBbox3<float>* local_boxes = nullptr;  ///< [leaf], written
  GMathBbox3<float>* boxes = nullptr;        ///< [leaf] in the world, written
  float* weights = nullptr;
  StructureWeights* structure_weights = nullptr;
  const AppBase* app = nullptr;
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;
  double geometry_sum = 0.0, primitive_sum = 0.0;

  void work(const uint& /*thread_index*/) override {
    for (uint accepted = first; accepted < end; ++accepted) {
      app->check_stop();
      const uint index = scene->table.indices[accepted], first_leaf = scene->table.first_leaves[accepted];
      ModuleSceneObject* object = scene->objects[index];
      GeometryOverride* replaced = scene->get_override(index);
      const CoreBasicArray<void*> clusters = scene->table.get_clusters(accepted);
      const ModuleClusterFunctions& functions = object->get_cluster_functions();
      functions.get_clusters_bboxes(object, replaced, clusters, local_boxes + first_leaf);
      if (functions.get_clusters_weights != nullptr)
        structure_weights->get(functions, object, replaced, clusters, weights + first_leaf);
      for (uint leaf = first_leaf; leaf < first_leaf + clusters.get_count(); ++leaf)
        boxes[leaf] = gas_get_world_bbox(local_boxes[leaf], object->get_global_matrix());
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
    GasClusterTable::Lists lists(objects.get_count());
    gas_need(lists.get_count() == objects.get_count());
    check_objects(app, lists, progress);
    table.gather(lists);
  }
  const uint leaf_count = table.get_leaf_count();
  CoreArray<GMathBbox3<float>> local_boxes(leaf_count), boxes(leaf_count);
  CoreBasicArray<float> weights(leaf_count);
  gas_need(local_boxes.get_count() == leaf_count && boxes.get_count() == leaf_count &&
           weights.get_count() == leaf_count);
  // Defaults where a module supplies no box or weight.
  std::fill(local_boxes.begin(), local_boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
  std::fill(weights.begin(), weights.end(), 1.0f);
  if (leaf_count > 0) compute_bboxes(app, local_boxes.get_items(), boxes.get_items(), weights.get_items(), progress);
  const AppProgressScope stage(progress, "create tree", 0.3);
  build_tree(app, boxes, weights, progress);
  fill_entries(local_boxes.get_items());
}

void GasSceneTree::check_objects(const AppBase& app, GasClusterTable::Lists& lists, AppProgressBar* progress) const {
  const AppProgressScope stage(progress, "check objects", 0.4, lists.get_count());
  gas_run_instance_slices<GasSceneTreeCheckTask>(app, lists.get_count(), [&](GasSceneTreeCheckTask& task) {
    task.scene = this;
    task.lists = lists.get_items();
    task.request = ClusterRequest(objects.get_count());
    task.app = &app;
    task.progress = progress;
  });
}

void GasSceneTree::compute_bboxes(const AppBase& app, GMathBbox3<float>* local_boxes, GMathBbox3<float>* boxes,
                                  float* weights, AppProgressBar* progress) {
  const uint count = table.get_accepted_count();
  const AppProgressScope stage(progress, "create tree", 0.3, count);
  StructureWeights structure_weights;
  const auto tasks = gas_run_instance_slices<GasSceneTreeBboxTask>(app, count, [&](GasSceneTreeBboxTask& task) {
    task.scene = this;
    task.local_boxes = local_boxes;
    task.boxes = boxes;
    task.weights = weights;
    task.structure_weights = &structure_weights;
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
