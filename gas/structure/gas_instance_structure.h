// gas/structure/gas_instance_structure.h
//
// Shared by the structures whose leaves are clusters of other structures: scenes and bundles. At a leaf the query
// continues in the instance's space, in a nested record of the thread, restricted to the cluster. Distances are the
// same in all spaces, because directions are transformed but not normalized. Under motion blur the tree is refitted to
// the instances' matrices and boxes at the sample times of the description; each ray gets the instance's matrix
// blended, entry by entry, to its own time.
//
// World boxes are blended linearly too. Where a shape deforms while its instance turns they are enlarged, so that the
// blend holds all positions between two samples (gas_world_bbox.h).
//
//   table       the accepted instances and their clusters, in the order of the instances
//   leaves      [place in the tree's order] what a query reads at a leaf; `leaf` in queries is this place
//   instances   [accepted instance] the same for an instance
//
// The definitions are in gas_instance_structure_impl.h and gas_instance_update.h. `Self` has this class as its friend
// and supplies, beyond what gas_bvh_structure.h names:
//
//   void describe_instance(accepted, GasInstance&)      all but the frame, after each build and copy
//   struct Entry                                        what a query enters
//   bool find_entry(ctx, shader, type, instance, Entry&)
//                                                       false: invisible to rays of this type, or without a structure
//   GasNestedTarget get_target(parent, type, instance)  identifies the nested query; all but the cluster
//   void query_entry<hits>(ctx, shader, parent, local, instance, Entry&, is_moving)
//                                                       continues a ray query
//   bool must_enter(instance)                           true: also if the ray misses the leaf's local box
//   uint get_path_depth(parent)                         for GeometryIntersectionMap::transform_path()
//
//   bool wants_frustum(query, instance)                 false: the leaf need not be asked
//   void begin_frustum(query, record, instance)         completes the nested query
//   void query_entry(ctx, shader, local, Entry&)        continues a frustum query
//   void end_frustum(query, local, instance)            modes any and all: adds the nested result
//
//   uint get_key_count(), get_key(accepted)             rows of the matrices of motion data
//   void fill_matrices(ctx, motion_blur, MotionData&)   before anything is measured
//   void measure(ctx, accepted, time, matrix, boxes)    matrix, unless filled, and local boxes of the clusters
//   GasBboxSurplus get_growth(accepted)                 added to the world boxes
//   uint get_update_slice(thread_count)                 instances that one task updates
//
// All are const.
#pragma once
#include "gas/structure/gas_bvh_structure.h"
#include "gas/structure/gas_cluster_table.h"
#include "gas/structure/gas_instance_entry.h"
#include "gas/structure/gas_instance_motion.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_gmath/gmath_ray.h"

struct GasNestedTarget;
struct GasRayCtx;
template <class Structure>
class GasInstanceMotionTask;

template <class Self, class Base>
class GasInstanceStructure : public GasBvhStructure<Self, Base, GasInstanceMotion<Self>> {
 public:
  using MotionData = GasInstanceMotion<Self>;

 protected:
  friend class GasStructure<Self, Base, MotionData>;
  friend class GasBvhStructure<Self, Base, MotionData>;
  friend MotionData;
  friend class GasInstanceMotionTask<Self>;

  explicit GasInstanceStructure(Self* self);
  /// Copies the tree and its leaves. The structure then calls refer_instances().
  GasInstanceStructure(const GasInstanceStructure& other, Self* self)
      : GasBvhStructure<Self, Base, MotionData>(other, self), table(other.table), leaves(other.leaves) {}
  GasInstanceStructure& operator=(const GasInstanceStructure& other);

  /// After the build of the tree: fills `leaves` and `instances`. Throws std::bad_alloc.
  /// @param local_boxes  [leaf of the table] in the instances' spaces
  void fill_entries(const GMathBbox3<float>* local_boxes);
  /// After a copy: fills `instances` again, which refer to arrays of the structure. Throws std::bad_alloc.
  void refer_instances(const GasInstanceStructure& other);
  void clear_entries();
  bool is_whole_copy_of(const GasInstanceStructure& other) const;
  u64 get_entry_bytes() const;

  /// Starts a query: forgets what nested records hold of another query.
  struct QueryScope {
    QueryScope(const Self&, CtxShader& shader, GeometryRaytraceCtx& query, BvhHits hits);
  };
  bool can_move() const { return true; }
  /// Reports every refit, however small.
  void report_growth(u64 old_size, u64 new_size) const;
  BvhLeafFunctions get_leaf_functions(const MotionData* data, const GeometryRaytraceCtx& query) const;

  static void leaf_ray_hit_static_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                           const CoreBasicArray<unsigned int>& node_leaves, void* user);
  static void leaf_ray_hit_nearest_static_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                   const CoreBasicArray<unsigned int>& node_leaves, void* user);
  static void leaf_frustum_hit_callback(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<unsigned int>& node_leaves, void* user);
  static void leaf_ray_hit_motion_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                           const CoreBasicArray<unsigned int>& node_leaves, void* user);
  static void leaf_ray_hit_nearest_motion_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                   const CoreBasicArray<unsigned int>& node_leaves, void* user);
  static void leaf_ray_hit_nearest_motion_vectors_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                           const CoreBasicArray<unsigned int>& node_leaves, void* user);
  void leaf_ray_hit_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                           GeometryRaytraceCtx& query) const;
  void leaf_ray_hit_nearest_static(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                   GeometryRaytraceCtx& query) const;
  void leaf_ray_hit_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                           MotionData& data) const;
  void leaf_ray_hit_nearest_motion(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                   GeometryRaytraceCtx& query, MotionData& data) const;
  void leaf_ray_hit_nearest_motion_vectors(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                           GeometryRaytraceCtx& query, MotionData& data) const;
  void leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                        GeometryFrustumCtx& query) const;

  /// Where a leaf leads: its records, and what find_entry() found.
  struct Target {
    const GasInstanceLeaf& leaf;
    const GasInstance& instance;
    typename Self::Entry entry;
    GMathRay::Type type;
  };
  /// The nested query of `parent` for a leaf, with the parent's rays in the instance's space; the motion form
  /// transforms each ray at its own time. `ray_ctx` must have room for the parent's rays. Null if the ray misses the
  /// leaf's local box.
  GeometryRaytraceCtx* get_local_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const Target& target) const;
  GeometryRaytraceCtx* get_local_motion_ctx(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const Target& target,
                                            const MotionData& data) const;
  GasNestedTarget get_nested_target(const GeometryRaytraceCtx& parent, const Target& target) const;
  /// Transforms the active rays with transform(ray) unless they are cached, then tests a single one against the leaf's
  /// local box if that holds in this query. False if the leaf need not be entered.
  template <class Transform>
  bool transform_rays(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const Target& target, double tnear,
                      GasInstanceBoxes least, const Transform& transform) const;
  /// Calls query(target, ray_ctx) for a leaf, with a nested record that has room for the parent's rays. Does nothing if
  /// the instance cannot be entered or there is no memory for the record.
  template <class Query>
  void enter(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent,
             const Query& query) const;
  /// The place in the tree's order of the first of a leaf callback's leaves.
  uint get_place(const CoreBasicArray<unsigned int>& node_leaves) const {
    return static_cast<uint>(node_leaves.get_items() - this->tree.order);
  }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;

  GasClusterTable table;
  CoreArray<GasInstanceLeaf> leaves;
  CoreAlignedArray<GasInstance> instances;

 private:
  const Self& self() const { return static_cast<const Self&>(*this); }
};
