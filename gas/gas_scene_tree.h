// gas/gas_scene_tree.h
//
// The structure over a scene: a four-wide tree whose leaves are clusters of the objects' own structures.
//
//   objects[ ]       as passed to create(), null entries included
//   table            the accepted objects and their clusters (gas_cluster_table.h)
//
// What happens at a leaf and under motion blur: gas_instance_structure.h.
#pragma once
#include "gas/structure/gas_instance_structure.h"
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_object.h"
#include "vq_gmath/gmath_ray.h"

class AppBase;
class AppProgressBar;
class ModuleSceneObject;
struct GasNestedQueryCtx;
struct GeometryOverride;

class VQ_EXPORT GasSceneTree : public GasInstanceStructure<GasSceneTree, GasObject> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// An empty scene: queries find nothing.
  GasSceneTree();
  /// Copies the arrays and the tree, but no motion data; the copy answers queries as the source does. Empty if there is
  /// no memory.
  GasSceneTree(const GasSceneTree& other);
  GasSceneTree& operator=(const GasSceneTree& other);
  ~GasSceneTree() override;

  class GasSceneTreeCheckTask;
  class GasSceneTreeBboxTask;
  using UpdateObjectMotionTask = GasInstanceMotionTask<GasSceneTree>;

  /// Builds the tree and replaces its former content. Objects, overrides and the objects' structures must outlive it,
  /// and the objects' matrices at rest must not change before the next create(). Left out without a message: null
  /// objects, objects without primitives, objects whose matrix is not invertible or not finite, and objects without
  /// clusters. The scene is empty if there was no memory (a warning is logged) or the application requested a stop.
  ///
  /// @param app        runs the tasks
  /// @param objects    null entries are allowed
  /// @param overrides  [object] attributes that an instance replaces; null or missing entries replace nothing
  /// @param progress   gets "check objects" (0.4) and twice "create tree" (0.3 each); the tree is built on the threads
  ///                   of its application. Null: no progress, the tree is built on the calling thread
  /// Threads: one call at a time, no query meanwhile. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time over n clusters, plus the clusters and weights of each object. The tree and its
  /// arrays take 74 bytes a cluster in a scene of 490 thousand.
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects,
              const CoreBasicArray<GeometryOverride*>& overrides, AppProgressBar* progress);
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects, AppProgressBar* progress);

  /// The objects as passed to create(). Like all getters below: thread-safe between builds, O(1) unless said.
  const CoreArray<ModuleSceneObject*>& get_objects() const { return objects; }
  /// Sums over the accepted objects; doubles, because nested instances may exceed 2^32 many times.
  const double& get_geometry_count() const { return geometry_count; }
  const double& get_primitive_count() const { return primitive_count; }

  /// Number of clusters of the object at `index` in the tree; 0 if it was left out. O(log accepted objects).
  uint get_cluster_count(uint index) const { return table.get_cluster_count(index); }

 private:
  friend GasStructure;
  friend GasBvhStructure;
  friend GasInstanceStructure;
  friend UpdateObjectMotionTask;
  struct Entry {
    const ModuleSceneObject* object;
  };
  static constexpr const char* update_title = "Updating motion blur of scene GAS";

  void create(const AppBase& app, AppProgressBar* progress);
  void check_objects(const AppBase& app, GasClusterTable::Lists& lists, AppProgressBar* progress) const;
  void compute_bboxes(const AppBase& app, GMathBbox3<float>* local_boxes, GMathBbox3<float>* boxes, float* weights,
                      AppProgressBar* progress);
  void build(const AppBase& app, AppProgressBar* progress);
  void build_tree(const AppBase& app, const CoreArray<GMathBbox3<float>>& boxes, const CoreBasicArray<float>& weights,
                  AppProgressBar* progress);
  /// Empties the tree and its leaves.
  void clear();
  void copy_fields(const GasSceneTree& other);
  bool is_whole_copy_of(const GasSceneTree& other) const;
  GeometryOverride* get_override(uint index) const {
    return index < overrides.get_count() ? overrides[index] : nullptr;
  }
  u64 get_array_bytes() const;
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;

  // For GasInstanceStructure.
  bool describe_instance(uint accepted, GasInstance& instance) const;
  bool keeps_shape(uint accepted) const;
  bool find_entry(const CtxEval& ctx, CtxShader& shader, uint type, const GasInstance& instance, Entry& entry) const;
  inline void prefetch_entry(const GasInstance& instance) const;  // the one file that calls it defines it
  GasNestedTarget get_target(const GeometryRaytraceCtx& parent, GMathRay::Type type, const GasInstance& instance) const;
  template <BvhHits hits>
  void query_entry(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent, GeometryRaytraceCtx& local,
                   const GasInstance& instance, Entry& entry, bool is_moving) const;
  bool must_enter(const GasInstance&) const { return false; }
  uint get_path_depth(const GeometryRaytraceCtx&) const { return 0; }
  bool wants_frustum(const GeometryFrustumCtx& query, const GasInstance& instance) const;
  void begin_frustum(const GeometryFrustumCtx& query, GasNestedQueryCtx& record, const GasInstance& instance) const;
  void query_entry(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& local, Entry& entry) const;
  void end_frustum(GeometryFrustumCtx& query, const GeometryFrustumCtx& local, const GasInstance& instance) const;
  uint get_key_count() const { return table.get_accepted_count(); }
  uint get_key(uint accepted) const { return accepted; }
  void fill_matrices(const CtxEval&, const CtxMotionBlur&, MotionData&) const {}
  void measure(const CtxEval& ctx, uint accepted, double time, GMathMatrix4x4<double>& matrix,
               GMathBbox3<float>* boxes) const;
  GasBboxSurplus get_growth(uint) const { return {}; }
  uint get_update_slice(uint) const { return 1; }
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);

  CoreArray<ModuleSceneObject*> objects;
  CoreBasicArray<GeometryOverride*> overrides;
  double geometry_count = 0.0;
  double primitive_count = 0.0;
};

extern template class GasStructure<GasSceneTree, GasObject, GasInstanceMotion<GasSceneTree>>;
extern template class GasBvhStructure<GasSceneTree, GasObject, GasInstanceMotion<GasSceneTree>>;
extern template class GasInstanceStructure<GasSceneTree, GasObject>;
