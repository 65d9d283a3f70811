// gas/gas_scene_tree.h
//
// The structure over a scene: a four-wide tree whose leaves are clusters of the objects' own structures.
//
//   objects[ ]            as passed to create(), null entries included
//   object_indices[a]     index in objects[ ] of accepted object a
//   cluster_counts[a]     number of its leaves
//   first_leaves[a]       the first of them; the leaves of one object are adjacent
//   leaf_clusters[leaf]   the object's handle of the cluster
//   leaf_objects[leaf]    accepted object
//
// At a leaf the query continues in the object's space, in a nested record of the thread, restricted to the cluster.
// Distances are the same in all spaces, because directions are transformed but not normalized. Under motion blur the
// tree is refitted to the objects' matrices and boxes at the sample times of the description; each ray gets the
// object's matrix blended, entry by entry, to its own time.
//
// World boxes are blended linearly too. Where a shape deforms while its object turns they are enlarged, so that the
// blend holds all positions between two samples (gas_world_bbox.h).
#pragma once
#include "gas/structure/gas_bvh_structure.h"
#include "vq_core/core_array.h"
#include "vq_gas_base/gas_object.h"
#include "vq_gmath/gmath_ray.h"

class AppBase;
class AppProgressBar;
class ModuleSceneObject;
struct GasNestedTarget;
struct GasRayCtx;
struct GasSceneTreeMotion;
struct GeometryOverride;

class GasSceneTree : public GasBvhStructure<GasSceneTree, GasObject, GasSceneTreeMotion> {
 public:
  using MotionData = GasSceneTreeMotion;

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
  class UpdateObjectMotionTask;

  /// Builds the tree and replaces its former content. Objects, overrides and the objects' structures must outlive it.
  /// Left out without a message: null objects, objects without primitives, objects whose matrix is not invertible or
  /// not finite, and objects without clusters. The scene is empty if there was no memory (a warning is logged) or the
  /// application requested a stop.
  ///
  /// @param app        runs the tasks
  /// @param objects    null entries are allowed
  /// @param overrides  [object] attributes that an instance replaces; null or missing entries replace nothing
  /// @param progress   gets "check objects" (0.4) and twice "create tree" (0.3 each); the tree is built on the threads
  ///                   of its application. Null: no progress, the tree is built on the calling thread
  /// Threads: one call at a time, no query meanwhile. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time over n clusters, plus the clusters and weights of each object. The tree and its
  /// arrays take 53 bytes a cluster in a scene of 260 thousand.
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects,
              const CoreBasicArray<GeometryOverride*>& overrides, AppProgressBar* progress);
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects, AppProgressBar* progress);

  /// The objects as passed to create(). Like all getters below: thread-safe between builds, O(1) unless said.
  const CoreArray<ModuleSceneObject*>& get_objects() const { return objects; }
  /// Sums over the accepted objects; doubles, because nested instances may exceed 2^32 many times.
  const double& get_geometry_count() const { return geometry_count; }
  const double& get_primitive_count() const { return primitive_count; }

  /// Number of clusters of the object at `index` in the tree; 0 if it was left out. O(log accepted objects).
  uint get_cluster_count(uint index) const;

 private:
  friend GasStructure;
  friend GasBvhStructure;
  friend GasSceneTreeMotion;
  /// The clusters of each object, during the build.
  using ClusterLists = CoreArray<CoreVector<void*>>;

  void create(const AppBase& app, AppProgressBar* progress);
  void check_objects(const AppBase& app, ClusterLists& lists, AppProgressBar* progress) const;
  void gather_clusters(const ClusterLists& lists);
  void compute_bboxes(const AppBase& app, GMathBbox3<float>* boxes, float* weights, AppProgressBar* progress);
  void build(const AppBase& app, AppProgressBar* progress);
  void build_tree(const AppBase& app, const CoreArray<GMathBbox3<float>>& boxes, const CoreBasicArray<float>& weights,
                  AppProgressBar* progress);
  /// Empties the tree and the arrays of its leaves.
  void clear();
  bool is_whole_copy_of(const GasSceneTree& other) const;
  GeometryOverride* get_override(uint index) const {
    return index < overrides.get_count() ? overrides[index] : nullptr;
  }
  uint get_object_index(uint leaf) const { return object_indices[leaf_objects[leaf]]; }
  /// The clusters of an accepted object.
  CoreBasicArray<void*> get_object_clusters(uint accepted) const;

  /// Starts a query: forgets the rays that nested records have cached for another query.
  struct QueryScope {
    QueryScope(const GasSceneTree&, CtxShader& shader, GeometryRaytraceCtx& query, BvhHits hits);
  };
  bool can_move() const { return true; }
  u64 get_array_bytes() const;
  void report_growth(u64 old_size, u64 new_size) const;
  BvhLeafFunctions get_leaf_functions(const MotionData* data, const GeometryRaytraceCtx& query) const;
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;

  static void leaf_ray_hit_static_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                           const CoreBasicArray<unsigned int>& leaves, void* user);
  static void leaf_ray_hit_nearest_static_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                   const CoreBasicArray<unsigned int>& leaves, void* user);
  static void leaf_frustum_hit_callback(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<unsigned int>& leaves, void* user);
  static void leaf_ray_hit_motion_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                           const CoreBasicArray<unsigned int>& leaves, void* user);
  static void leaf_ray_hit_nearest_motion_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                   const CoreBasicArray<unsigned int>& leaves, void* user);
  static void leaf_ray_hit_nearest_motion_vectors_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                           const CoreBasicArray<unsigned int>& leaves, void* user);
  void leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                           GeometryRaytraceCtx& query) const;
  void leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                   GeometryRaytraceCtx& query) const;
  void leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                        GeometryFrustumCtx& query) const;
  void leaf_ray_hit_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                           MotionData& data) const;
  void leaf_ray_hit_nearest_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                   GeometryRaytraceCtx& query, MotionData& data) const;
  void leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                           GeometryRaytraceCtx& query, MotionData& data) const;

  // The nested query of `parent` for the object of a leaf, with the parent's rays in the object's space; the motion
  // form transforms each ray at its own time. `ray_ctx` must have room for the parent's rays.
  GeometryRaytraceCtx& get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GMathRay::Type& type,
                                     const unsigned int& leaf) const;
  GeometryRaytraceCtx& get_local_motion_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GMathRay::Type& type,
                                            const unsigned int& leaf, const MotionData& data) const;
  GasNestedTarget get_target(const unsigned int& leaf, const GMathRay::Type& type) const;
  /// Calls query(object, type, ray_ctx) for the object of a leaf, with a nested record that has room for the parent's
  /// rays. Does nothing if the object is invisible to the parent's rays or there is no memory for the record.
  template <class Query>
  void enter_object(const unsigned int& leaf, CtxShader& shader, GeometryRaytraceCtx& parent, const Query& query) const;

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);

  CoreArray<ModuleSceneObject*> objects;
  CoreBasicArray<GeometryOverride*> overrides;
  CoreBasicArray<uint> object_indices;
  CoreBasicArray<uint> cluster_counts;
  CoreBasicArray<uint> first_leaves;
  CoreBasicArray<void*> leaf_clusters;
  CoreBasicArray<uint> leaf_objects;
  double geometry_count = 0.0;
  double primitive_count = 0.0;
};

extern template class GasStructure<GasSceneTree, GasObject, GasSceneTreeMotion>;
extern template class GasBvhStructure<GasSceneTree, GasObject, GasSceneTreeMotion>;
