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
//   instances   [number] the same for an instance, numbered in the order of their first leaves
//
// The definitions are in gas_instance_structure_impl.h and gas_instance_update.h. `Self` has this class as its friend
// and supplies, beyond what gas_bvh_structure.h names:
//
//   bool describe_instance(accepted, GasInstance&)      sets inverse, matrix, inner, index, is_visible after each
//                                                       build and copy; false: its local boxes do not hold it
//   bool keeps_shape(accepted)                          true: it is the same at all times in its own space; asked at
//                                                       each refit
//   struct Entry                                        what a query enters
//   bool find_entry(ctx, shader, type, instance, Entry&)
//                                                       false: invisible to rays of this type, or without a structure
//   void prefetch_entry(instance)                       what find_entry() and the query of the entry read
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
//   bool is_whole_copy_of(other)                        false: a member could not be copied
//   void clear()                                        empties the structure
//
// All but the last are const.
#pragma once
#include "gas/structure/gas_bvh_structure.h"
#include "gas/structure/gas_cluster_table.h"
#include "gas/structure/gas_instance_entry.h"
#include "gas/structure/gas_instance_motion.h"
#include "gas/structure/gas_world_bbox.h"
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_ray.h"

struct GasNestedQueryCtx;
struct GasNestedTarget;
struct GasRayCtx;
template <class Structure>
class GasInstanceMotionTask;

/// What a ray query continues for in an instance.
enum class GasLeafQuery {
  all,
  nearest,
  motion_vectors,  ///< nearest, with the hits at both ends of the rays' motion spans
};

template <class Self, class Base>
class VQ_EXPORT GasInstanceStructure : public GasBvhStructure<Self, Base, GasInstanceMotion<Self>> {
 public:
  using MotionData = GasInstanceMotion<Self>;

  /// Index in the input of create() of the instance at place `place` of the tree's item order. For reports.
  uint get_instance_index(uint place) const { return get_instance(place).index; }

 protected:
  friend class GasStructure<Self, Base, MotionData>;
  friend class GasBvhStructure<Self, Base, MotionData>;
  friend MotionData;
  friend class GasInstanceMotionTask<Self>;

  explicit GasInstanceStructure(Self* self);
  /// Copies the tree and its leaves. The structure then copies its own members and calls complete_copy().
  GasInstanceStructure(const GasInstanceStructure& other, Self* self)
      : GasBvhStructure<Self, Base, MotionData>(other, self),
        table(other.table),
        leaves(other.leaves),
        extent(other.extent) {}
  GasInstanceStructure& operator=(const GasInstanceStructure& other);

  /// After the build of the tree: fills `leaves` and `instances`. Throws std::bad_alloc.
  /// @param local_boxes  [leaf of the table] in the instances' spaces
  void fill_entries(const GMathBbox3<float>* local_boxes);
  /// Replaces the accepted instances in `leaves` by the numbers of their records.
  /// @param numbers  [accepted instance] written
  void number_instances(CoreBasicArray<uint>& numbers);
  /// Makes `instances` refer to the copied members; without memory, or if one was not copied, empties the structure.
  void complete_copy(const Self& other);
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
  /// Of whole objects it is the instance that does not fit a cache.
  BvhLeafRecords get_leaf_records() const {
    if (has_one_leaf_each()) return {instances.get(), sizeof(GasInstance)};
    return {leaves.get_items(), sizeof(GasInstanceLeaf)};
  }
  /// True if every instance has one leaf. A leaf's place is then its instance's number.
  bool has_one_leaf_each() const { return instances.get_count() == leaves.get_count(); }
  /// Does not wait for the leaf's record if it need not.
  uint get_instance_number(uint place) const { return has_one_leaf_each() ? place : leaves[place].instance; }
  const GasInstance& get_instance(uint place) const { return instances[get_instance_number(place)]; }

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

  /// Continues a ray query in the leaf's instance, if a ray of `parent` may hit it. Does nothing if there is no memory
  /// for the nested record.
  /// @param data  motion data: each ray is transformed at its own time; null: a static query
  template <GasLeafQuery kind, bool is_moving>
  void enter(uint place, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent,
             const MotionData* data) const;
  /// What enter() does where the local box is touched.
  template <GasLeafQuery kind, bool is_moving>
  void enter_reached(const GasInstanceLeaf& leaf, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent,
                     GasNestedQueryCtx& record, const MotionData* data) const;
  // Test a single active ray against the leaf's local box, if that holds in this query. False if the leaf need not be
  // entered.
  bool reach_still(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GasInstanceLeaf& leaf, uint number) const;
  /// Also transforms the active rays.
  bool reach_moving(GasRayCtx& ray_ctx, GeometryRaytraceCtx& parent, const GasInstanceLeaf& leaf, uint number,
                    const MotionData& data) const;
  /// Gives the nested query the matrices at the ends of the rays' motion spans. False if there is no memory for them.
  bool begin_motion_vectors(GasRayCtx& ray_ctx, const GeometryRaytraceCtx& parent, const GasInstance& instance,
                            const MotionData& data) const;
  /// The place in the tree's order of the first of a leaf callback's leaves.
  uint get_place(const CoreBasicArray<unsigned int>& node_leaves) const {
    return static_cast<uint>(node_leaves.get_items() - this->tree.order);
  }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  void choose_boxes(MotionData& data) const;

  GasClusterTable table;
  CoreArray<GasInstanceLeaf> leaves;
  CoreAlignedArray<GasInstance> instances;
  GasTreeExtent extent;  ///< of the tree at rest

 private:
  const Self& self() const { return static_cast<const Self&>(*this); }
};
