// gas/gas_scene_tree.h
//
// The structure over a scene: a four-wide tree whose leaves are clusters of the objects' own structures.
//
//   objects[ ]            as the caller gave them, null entries allowed
//   object_indices[a]     accepted object a  -> its place in objects[ ]
//   cluster_counts[a]                        -> how many leaves it has
//   first_leaves[a]                          -> the first of them
//   leaf_clusters[leaf]   -> the object's handle of the cluster      leaves of one object lie next to each other
//   leaf_objects[leaf]    -> accepted object
//
// A query that reaches a leaf goes on in the object's space, in a nested record of the thread, restricted to the
// cluster. Distances are the same in all spaces, because directions are carried over without being normalised. Under
// motion blur the tree is refitted to the objects' matrices and boxes at the description's sample times, and each ray
// gets its object's matrix blended, entry by entry, to its own time.
//
// Boxes are blended in straight lines too. Where a shape deforms within an object that turns they grow so far that the
// blend holds everything in between (gas_world_bbox.h).
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

  /// An empty scene, which answers every query with nothing.
  GasSceneTree();
  /// A copy has deep copies of the arrays and the tree and no motion data; it answers queries as the source does.
  /// Without memory it is empty.
  GasSceneTree(const GasSceneTree& other);
  GasSceneTree& operator=(const GasSceneTree& other);
  ~GasSceneTree() override;

  class GasSceneTreeCheckTask;
  class GasSceneTreeBboxTask;
  class UpdateObjectMotionTask;

  /// Builds the tree, replacing whatever it held. Objects, overrides and the objects' structures must outlive it. Left
  /// out without a word are null objects, objects without primitives, objects whose matrix is singular or not finite,
  /// and objects without clusters. Where memory runs out (reported through the log), or the application asks to stop,
  /// the scene is empty.
  ///
  /// @param app        lends its threads
  /// @param overrides  what instances replace of their objects, by the objects' indices; entries may be null, and
  ///                   missing ones count as null
  /// @param progress   gets "check objects" (0.4) and twice "create tree" (0.3 each), and lends the threads of its
  ///                   application to the tree's build; null: no progress, and the tree is built on the calling thread
  /// Threads: one call at a time, and not while queries run. Same input, same tree, for any number of threads.
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects,
              const CoreBasicArray<GeometryOverride*>& overrides, AppProgressBar* progress);
  void create(const AppBase& app, const CoreBasicArray<ModuleSceneObject*>& objects, AppProgressBar* progress);

  /// As given to create().
  const CoreArray<ModuleSceneObject*>& get_objects() const { return objects; }
  /// Sums over the accepted objects. As doubles: they may pass 2^32 many times over.
  const double& get_geometry_count() const { return geometry_count; }
  const double& get_primitive_count() const { return primitive_count; }

  /// How many clusters the object at `index` has in the tree; 0 for one that was left out. O(accepted objects).
  uint get_cluster_count(uint index) const;

 private:
  friend GasBvhStructure;
  friend GasSceneTreeMotion;
  /// The clusters of each object, while the tree is made.
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

  /// Rays that were carried into objects for another query are not those of this one.
  struct QueryScope {
    QueryScope(const GasSceneTree&, CtxShader& shader, GeometryRaytraceCtx& query, BvhHits hits);
  };
  bool can_move() const { return true; }
  u64 get_own_bytes() const;
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

  // The query that `parent` puts to the object of a leaf: with the parent's rays in the object's space; with each ray
  // in the object's space at its own time. The record must have room for the parent's rays.
  GeometryRaytraceCtx& get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GMathRay::Type& type,
                                     const unsigned int& leaf) const;
  GeometryRaytraceCtx& get_local_motion_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GMathRay::Type& type,
                                            const unsigned int& leaf, const MotionData& data) const;
  GasNestedTarget get_target(const unsigned int& leaf, const GMathRay::Type& type) const;
  /// Calls query(object, type, record) for the object of a leaf, in a nested record with room for the parent's rays,
  /// unless the object is hidden from the parent's rays.
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

extern template class GasBvhStructure<GasSceneTree, GasObject, GasSceneTreeMotion>;
