#include "gas/gas_scene_tree.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <new>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_tasks.h"
#include "gas/gas_scene_tree_motion.h"
#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_module/module_scene_object.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END,
                                            EVT_ID_GAS_MOTION_DIRTY};

// Known to the host by name from the moment the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasSceneTree::class_info();

/// How objects are cut. A single one decides by itself.
struct ClusterWishes {
  uint count = 0;
  float ratio = 0.0f;
  explicit ClusterWishes(uint object_count)
      : count(object_count > 1 ? 1024 : 0), ratio(object_count > 1 ? 0.3f : 0.0f) {}
};

/// Whether a finite place and no flattening can be had from the matrix.
bool is_placed(const GMathMatrix4x4<double>& matrix) {
  const double determinant = matrix.get_determinant();
  return determinant != 0.0 && gmath_isfinited(determinant);
}

/// Tasks for at most four slices a thread, each of the same length.
uint get_slice_length(const AppBase& app, uint count) {
  const uint task_count = std::min(4 * app.get_max_thread_count(), count);
  return task_count > 0 ? (count + task_count - 1) / task_count : 1;
}

/// The extents of boxes within these bounds, and of what is around them, are finite.
constexpr float outermost = std::numeric_limits<float>::max() / 4;

GMathBbox3<float> bring_into_bounds(GMathBbox3<float> box) {
  for (uint axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::clamp(box.min[axis], -outermost, outermost);
    box.max[axis] = std::clamp(box.max[axis], -outermost, outermost);
  }
  return box;
}

/// Of the eight transformed corners. A corner is a sum of products, and a rounded sum grows with its terms: so the
/// least corner is, in every bit but for the signs of zeros, the sum of the lesser products. A sum that is not finite
/// says nothing.
GMathBbox3<double> get_corner_extremes(const GMathBbox3<float>& box, const GMathMatrix4x4<double>& matrix) {
  GMathBbox3<double> extremes;
  for (uint row = 0; row < 3; ++row) {
    double low = 0.0, high = 0.0;
    for (uint axis = 0; axis < 3; ++axis) {
      const double a = matrix.m[row][axis] * box.min[axis], b = matrix.m[row][axis] * box.max[axis];
      low += std::min(a, b);
      high += std::max(a, b);
    }
    extremes.min[row] = low + matrix.m[row][3];
    extremes.max[row] = high + matrix.m[row][3];
  }
  return extremes;
}

bool is_finite(const GMathBbox3<double>& box) {
  for (uint axis = 0; axis < 3; ++axis) {
    if (!gmath_isfinited(box.min[axis]) || !gmath_isfinited(box.max[axis])) return false;
  }
  return true;
}

}  // namespace

GMathBbox3<float> gas_get_world_bbox(const GMathBbox3<float>& local, const GMathMatrix4x4<double>& matrix) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  const GMathBbox3<float> bounded = bring_into_bounds(local);  // infinity times a zero of the matrix would be NaN
  const GMathBbox3<double> extremes = get_corner_extremes(bounded, matrix);
  if (!local.is_empty() && is_finite(extremes)) return bring_into_bounds(GMathBbox3<float>(extremes));
  GMathBbox3<float> box({infinity, infinity, infinity}, {-infinity, -infinity, -infinity});
  for (uint corner = 0; corner < 8; ++corner)
    box.add(GMathVec3<float>(matrix.transform_point(GMathVec3<double>(bounded.get_corner(corner)))));
  if (!local.is_empty() && !box.is_empty()) return bring_into_bounds(box);
  GMathVec3<float> place;
  for (uint axis = 0; axis < 3; ++axis) {
    const float value = static_cast<float>(matrix.m[axis][3]);
    if (std::isfinite(value)) place[axis] = value;
  }
  return {place, place};
}

const CoreClassInfo& GasSceneTree::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasSceneTree", GasObject::class_info());
  return info;
}

GasSceneTree::GasSceneTree() : motion_data(this) {
  callbacks.ray_hit_static = ray_hit_static_callback;
  callbacks.ray_hit_motion = ray_hit_motion_callback;
  callbacks.ray_hit_nearest_static = ray_hit_nearest_static_callback;
  callbacks.ray_hit_nearest_motion = ray_hit_nearest_motion_callback;
  callbacks.frustum_hit = frustum_hit_callback;
  install_leaf_functions();
}

GasSceneTree::GasSceneTree(const GasSceneTree& other) : GasObject(other), motion_data(this) { *this = other; }

GasSceneTree& GasSceneTree::operator=(const GasSceneTree& other) {
  if (this == &other) return *this;
  GasObject::operator=(other);
  objects = other.objects;
  overrides = other.overrides;
  object_indices = other.object_indices;
  cluster_counts = other.cluster_counts;
  first_leaves = other.first_leaves;
  leaf_clusters = other.leaf_clusters;
  leaf_objects = other.leaf_objects;
  bvh = other.bvh;
  geometry_count = other.geometry_count;
  primitive_count = other.primitive_count;
  const bool is_whole = objects.get_count() == other.objects.get_count() &&
                        overrides.get_count() == other.overrides.get_count() &&
                        object_indices.get_count() == other.object_indices.get_count() &&
                        cluster_counts.get_count() == other.cluster_counts.get_count() &&
                        first_leaves.get_count() == other.first_leaves.get_count() &&
                        leaf_clusters.get_count() == other.leaf_clusters.get_count() &&
                        leaf_objects.get_count() == other.leaf_objects.get_count();
  if (!is_whole) clear();  // no memory
  install_leaf_functions();
  motion_data.invalidate();
  return *this;
}

GasSceneTree::~GasSceneTree() = default;

void GasSceneTree::install_leaf_functions() {
  leaf_functions = {leaf_ray_hit_static_callback, leaf_ray_hit_nearest_static_callback, this, leaf_frustum_hit_callback,
                    this};
}

GMathBbox3<double> GasSceneTree::get_bbox() const { return GMathBbox3<double>(bvh.box); }

u64 GasSceneTree::get_memory_size() const {
  u64 size = sizeof(*this) + bvh.get_array_bytes() + u64{objects.get_count()} * sizeof(ModuleSceneObject*) +
             u64{overrides.get_count()} * sizeof(GeometryOverride*) +
             u64{object_indices.get_count()} * 3 * sizeof(uint) +
             u64{leaf_objects.get_count()} * (sizeof(void*) + sizeof(uint));
  motion_data.visit_all([&](const MotionData& data) { size += sizeof(data) + data.get_array_bytes(); });
  return size;
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

/// Asks a slice of the objects for their clusters. Writes only their own lists.
class GasSceneTree::GasSceneTreeCheckTask final : public GasTask {
 public:
  const GasSceneTree* scene = nullptr;
  CoreVector<void*>* lists = nullptr;  ///< [object]
  ClusterWishes wishes{0};
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;

  void run(const uint& /*thread_index*/) override {
    for (uint index = first; index < end; ++index) {
      ModuleSceneObject* object = scene->objects[index];
      if (object != nullptr && object->get_primitive_count() != 0.0 && is_placed(object->get_global_matrix())) {
        object->get_cluster_functions().get_clusters(object, scene->get_override(index), lists[index], wishes.count,
                                                     wishes.ratio);
      }
      if (progress != nullptr) progress->step(index + 1);
    }
  }
};

/// World boxes and weights of the leaves of a slice of the accepted objects, and sums over these objects.
class GasSceneTree::GasSceneTreeBboxTask final : public GasTask {
 public:
  const GasSceneTree* scene = nullptr;
  GMathBbox3<float>* boxes = nullptr;
  float* weights = nullptr;
  uint first = 0, end = 0;
  AppProgressBar* progress = nullptr;
  double geometry_sum = 0.0, primitive_sum = 0.0;

  void run(const uint& /*thread_index*/) override {
    for (uint accepted = first; accepted < end; ++accepted) {
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
  // Without memory for the new ones the former must not stay: they may be gone.
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

void GasSceneTree::clear() {
  bvh.clear();
  object_indices.remove_all();
  cluster_counts.remove_all();
  first_leaves.remove_all();
  leaf_clusters.remove_all();
  leaf_objects.remove_all();
}

void GasSceneTree::create(const AppBase& app, AppProgressBar* progress) {
  if (objects.is_empty()) {
    clear();
    motion_data.invalidate();
    return;
  }
  geometry_count = primitive_count = 0.0;
  try {
    build_tree(app, progress);
  } catch (const std::bad_alloc&) {  // from the host's queue of tasks
    clear();
  }
  motion_data.invalidate();
}

void GasSceneTree::build_tree(const AppBase& app, AppProgressBar* progress) {
  {
    ClusterLists lists(objects.get_count());
    check_objects(app, lists, progress);
    if (!gather_clusters(lists)) clear();  // no memory
  }
  CoreArray<GMathBbox3<float>> boxes(leaf_objects.get_count());
  CoreBasicArray<float> weights(leaf_objects.get_count());
  if (boxes.get_count() != leaf_objects.get_count() || weights.get_count() != leaf_objects.get_count()) {
    clear();  // no memory
    boxes.remove_all();
  }
  // What a module does not say.
  std::fill(boxes.begin(), boxes.end(), GMathBbox3<float>({0, 0, 0}, {0, 0, 0}));
  std::fill(weights.begin(), weights.end(), 1.0f);
  if (!boxes.is_empty()) compute_bboxes(app, boxes.get_items(), weights.get_items(), progress);
  if (progress != nullptr) progress->begin_task("create tree", 0.3);
  build_tree(boxes, weights, progress);
  if (progress != nullptr) progress->end_task();
}

void GasSceneTree::check_objects(const AppBase& app, ClusterLists& lists, AppProgressBar* progress) const {
  const uint count = lists.get_count();
  if (progress != nullptr) {
    progress->begin_task("check objects", 0.4);
    progress->set_step_count(objects.get_count());
  }
  const uint length = get_slice_length(app, count);
  CoreArray<GasSceneTreeCheckTask> tasks(gas_get_slice_count(count, length));
  SysThreadTaskManager manager(app.get_thread_manager());
  gas_run_slices_in(tasks, manager, count, length, [&](GasSceneTreeCheckTask& task) {
    task.scene = this;
    task.lists = lists.get_items();
    task.wishes = ClusterWishes(objects.get_count());
    task.progress = progress;
  });
  if (progress != nullptr) progress->end_task();
}

bool GasSceneTree::gather_clusters(const ClusterLists& lists) {
  uint accepted_count = 0, leaf_count = 0;
  for (const CoreVector<void*>& clusters : lists) {
    accepted_count += clusters.get_count() > 0 ? 1 : 0;
    leaf_count += clusters.get_count();
  }
  if (!object_indices.resize(accepted_count) || !cluster_counts.resize(accepted_count) ||
      !first_leaves.resize(accepted_count) || !leaf_clusters.resize(leaf_count) || !leaf_objects.resize(leaf_count))
    return false;
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
  return true;
}

void GasSceneTree::compute_bboxes(const AppBase& app, GMathBbox3<float>* boxes, float* weights,
                                  AppProgressBar* progress) {
  const uint count = object_indices.get_count();
  if (progress != nullptr) {
    progress->begin_task("create tree", 0.3);
    progress->set_step_count(count);
  }
  const uint length = get_slice_length(app, count);
  CoreArray<GasSceneTreeBboxTask> tasks(gas_get_slice_count(count, length));
  SysThreadTaskManager manager(app.get_thread_manager());
  gas_run_slices_in(tasks, manager, count, length, [&](GasSceneTreeBboxTask& task) {
    task.scene = this;
    task.boxes = boxes;
    task.weights = weights;
    task.progress = progress;
  });
  for (const GasSceneTreeBboxTask& task : tasks) {
    geometry_count += task.geometry_sum;
    primitive_count += task.primitive_sum;
  }
  if (progress != nullptr) progress->end_task();
}

void GasSceneTree::build_tree(const CoreArray<GMathBbox3<float>>& boxes, const CoreBasicArray<float>& weights,
                              AppProgressBar* progress) {
  CoreBasicArray<u32> weight_words(boxes.get_count());
  if (weight_words.get_count() != boxes.get_count()) return clear();  // no memory
  for (uint leaf = 0; leaf < boxes.get_count(); ++leaf) weight_words[leaf] = std::bit_cast<u32>(weights[leaf]);
  GasBvhSplitCtx split_ctx;
  split_ctx.item_boxes = boxes.get_items();
  split_ctx.item_weights = weight_words.get_items();
  bvh.build<GasBvhSplitAligned>(split_ctx, nullptr, boxes.get_count(), {1.0f, 1, 1, 10}, progress);
  install_leaf_functions();
}
