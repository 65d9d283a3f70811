// gas/gas_geometry_bundle.h
//
// The structure over a bundle of instances: each places one geometry of the bundle in the world through a matrix. A
// four-wide tree whose leaves are clusters of the geometries' own structures.
//
//   instance i --geometry_indices[i]--> g, its geometry index
//            --shading key-----------> k = g if shading groups are merged, else i: visibility[k], offsets[k]
//            --slot------------------> s = i if the bundle is displaced, else g: the structure that its queries enter
//
//   slots[s]   made by the first thread that needs it: create() for instances at rest, a query for displaced ones
//   table      the valid instances and their clusters (gas_cluster_table.h)
//
// A displaced instance is one cluster; its world box is that of the geometry, grown by the bound of its displacement.
// What happens at a leaf and under motion blur: gas/structure/gas_instance_structure.h.
#pragma once
#include <memory>

#include "gas/gas_clusterable.h"
#include "gas/structure/gas_instance_structure.h"
#include "vq_core/core_export.h"

class AppProgressBar;
class GeometryObject;
class ModuleDisplacement;
class OfApp;
struct GasBundleSlots;
struct GasNestedQueryCtx;

class VQ_EXPORT GasGeometryBundle : public GasInstanceStructure<GasGeometryBundle, GasObject> {
 public:
  using Matrix = GMathMatrix4x4<double>;
  /// Called once a leaf visit, before the query continues in the instance, with the outer query; the last argument is
  /// null. On any thread.
  using PreHitFunction = void (*)(const CtxEval&, GeometryRaytraceCtx&, void*);
  /// Writes the matrix of every instance at `time`, in the order of the instances. Called by the first query of a
  /// motion-blur description, once a sample.
  using MatricesCallback = void (*)(void* user, const double& time, Matrix* matrices);

  /// An empty bundle: queries find nothing.
  GasGeometryBundle();
  /// Copies the arrays and the tree, but no motion data; structures of geometries are shared. The copy answers queries
  /// as the source does. Empty if there is no memory.
  GasGeometryBundle(const GasGeometryBundle& other);
  GasGeometryBundle& operator=(const GasGeometryBundle& other);
  ~GasGeometryBundle() override;

  class GasGeometryBundleCheckTask;
  class GasGeometryBundleBboxTask;

  /// Builds the bundle and replaces its former content. Geometries must outlive it. The structure of an instance is a
  /// GasFur for a TubeMeshFast, a GasGeometry for a TubeMesh, else a GasGeometryBvh4; instances of one geometry share
  /// it. Left out without a message: instances whose geometry is null or without primitives, whose matrix is not finite
  /// or not invertible, whose index is out of range, or whose structure is empty, also for want of memory. The bundle
  /// is empty if there was no memory for itself (a warning is logged in both cases) or the application requested a
  /// stop.
  ///
  /// @param app                    runs the tasks
  /// @param first                  the current geometry of queries (its render mode counts); entries may be null
  /// @param second                 supplies primitives, boxes and tests; its type decides the structure
  /// @param first_indices          [instance] index in `first`; the same for all instances of one geometry
  /// @param geometry_indices       [instance] index in `second`
  /// @param shading_group_offsets  [shading key] first number of the instance's shading groups; 0 if missing
  /// @param matrices               [instance] to world; their count is the number of instances
  /// @param inverse_matrices       [instance] from world; computed where missing
  /// @param visibility             [shading key] false: no query finds the instance; empty or missing: visible
  /// @param pre_hits               [geometry index] null or missing: none
  /// @param merge_shading_groups   see the shading key above
  /// @param progress               gets "check bundle geometries" (0.4) and "create tree" (0.3, then 0.9); null: no
  ///                               progress, the tree is built on the calling thread
  /// Threads: one call at a time, no query meanwhile. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time over n clusters and one build per geometry. The tree and its arrays take 60 to 75 bytes a
  /// cluster, and an instance 530 bytes.
  void create(const OfApp& app, CoreBasicArray<GeometryObject*> first, CoreBasicArray<GeometryObject*> second,
              const CoreBasicArray<unsigned int>& first_indices, const CoreBasicArray<unsigned int>& geometry_indices,
              const CoreBasicArray<unsigned int>& shading_group_offsets, const CoreBasicArray<Matrix>& matrices,
              const CoreBasicArray<Matrix>& inverse_matrices, const CoreBasicArray<bool>& visibility,
              const CoreBasicArray<PreHitFunction>& pre_hits, const bool& merge_shading_groups,
              AppProgressBar* progress);
  /// The same with displacement: each instance has its own structure, a GasGeometry over three geometries unless it is
  /// made of tubes. That of a displaced instance is built when a query first reaches it.
  /// @param third, fourth   [instance] alternative and additional geometry, see GasGeometry::create()
  /// @param index_lists     [instance] group flags for GasGeometry::create(). [shading key] its length is the number
  ///                        of displacements of the instance
  /// @param displacements   an instance has those from shading_group_offsets[instance] on; it is displaced if one of
  ///                        them is active, and its world box grows by the largest of their bounds, per axis
  void create(const OfApp& app, CoreBasicArray<GeometryObject*> first, CoreBasicArray<GeometryObject*> second,
              CoreBasicArray<GeometryObject*> third, CoreBasicArray<GeometryObject*> fourth,
              const CoreBasicArray<unsigned int>& first_indices, const CoreBasicArray<unsigned int>& geometry_indices,
              const CoreBasicArray<unsigned int>& shading_group_offsets, const CoreBasicArray<Matrix>& matrices,
              const CoreBasicArray<Matrix>& inverse_matrices, const CoreBasicArray<bool>& visibility,
              const CoreBasicArray<PreHitFunction>& pre_hits, CoreArray<CoreVector<unsigned int>> index_lists,
              const CoreBasicArray<ModuleDisplacement*>& displacements, const bool& merge_shading_groups,
              AppProgressBar* progress);

  // The cluster operations of GasClusterable, over the bundle's own tree; see there. Boxes are in the bundle's space.
  void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const;
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const;
  void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) const;
  void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const;

  /// Sets the source of the instances' matrices in motion; instances stand still without one. A null function keeps the
  /// former one and replaces `user`. Call dirty_motion_blur() after it if queries have run. No query may be running.
  void set_matrices_callback(MatricesCallback function, void* user);
  /// Sets whether the structures of curves that are made from now on may have oriented nodes; initially true. With them
  /// queries for all hits miss curves, without them those for the nearest hit are slower (GasFur). To be called before
  /// create().
  void set_oriented_nodes(bool allowed) { oriented_nodes_allowed = allowed; }
  /// A pre-hit function that does nothing.
  static void default_pre_hit(const CtxEval&, GeometryRaytraceCtx&, void*) {}

  // Thread-safe between builds, O(1) unless said.
  unsigned int get_shading_group_offset(const unsigned int& i) const {
    return i < shading_group_offsets.get_count() ? shading_group_offsets[i] : 0;
  }
  bool is_merge_shading_groups() const { return merge_shading_groups; }
  bool is_displacement_on() const { return displacement_on; }
  /// Instances as passed to create(), and those of them in the tree.
  uint get_instance_count() const { return matrices.get_count(); }
  uint get_valid_instance_count() const { return table.get_accepted_count(); }
  /// Number of clusters of an instance in the tree; 0 if it was left out. O(log instances).
  uint get_cluster_count(uint instance) const { return table.get_cluster_count(instance); }
  /// The second geometry of an instance; null if its index is out of range.
  GeometryObject* get_geometry(uint instance) const;
  /// Number of structures below the tree: of geometries, or of instances with displacement.
  uint get_slot_count() const;
  /// The structure of a slot; null while it is not built, or if it has none.
  const GasClusterable* get_slot_structure(uint slot) const;
  /// Sums over the valid instances, by their geometries. O(instances).
  double get_primitive_count() const;

 private:
  friend GasStructure;
  friend GasBvhStructure;
  friend GasInstanceStructure;
  friend class GasInstanceMotionTask<GasGeometryBundle>;
  struct Entry {
    const GasClusterable* structure;
  };
  struct BuildCtx;
  class FirstUsers;
  static constexpr const char* update_title = "Updating motion blur of bundle GAS";

  /// Runs `set_arrays`, which throws std::bad_alloc, and builds the rest.
  template <class SetArrays>
  void create(const OfApp& app, AppProgressBar* progress, const SetArrays& set_arrays);
  void set_common_arrays(CoreBasicArray<GeometryObject*>& first, CoreBasicArray<GeometryObject*>& second,
                         const CoreBasicArray<unsigned int>& new_first_indices,
                         const CoreBasicArray<unsigned int>& new_geometry_indices,
                         const CoreBasicArray<unsigned int>& new_shading_group_offsets,
                         const CoreBasicArray<Matrix>& new_matrices, const CoreBasicArray<Matrix>& new_inverse_matrices,
                         const CoreBasicArray<bool>& new_visibility,
                         const CoreBasicArray<PreHitFunction>& new_pre_hits);
  void gather_displacements(const CoreBasicArray<ModuleDisplacement*>& displacements);
  void add_displacements(uint instance, const CoreBasicArray<ModuleDisplacement*>& displacements);
  void check_geometries(const BuildCtx& build, GasClusterTable::Lists& lists) const;
  void compute_bboxes(const BuildCtx& build, GMathBbox3<float>* local_boxes, GMathBbox3<float>* boxes) const;
  void build(const OfApp& app, AppProgressBar* progress);
  void clear();
  void copy_fields(const GasGeometryBundle& other);
  bool is_whole_copy_of(const GasGeometryBundle& other) const;
  u64 get_array_bytes() const;

  uint get_shading_key(uint instance) const { return merge_shading_groups ? geometry_indices[instance] : instance; }
  uint get_slot(uint instance) const { return displacement_on ? instance : geometry_indices[instance]; }
  bool is_visible(uint instance) const {
    const uint key = get_shading_key(instance);
    return key >= visibility.get_count() || visibility[key];
  }
  bool is_displaced(uint instance) const { return displacement_on && displaced[instance] != 0; }
  GasBboxSurplus get_bound(uint instance) const;
  /// The structure of an instance, built by the first call; null if it has none. Other slots are not blocked
  /// meanwhile. Throws AppStopped, and then the slot stays unbuilt.
  const GasClusterable* get_geometry_gas(const CtxEval& ctx, unsigned int instance) const;
  std::unique_ptr<GasClusterable> build_geometry_gas(const CtxEval& ctx, uint instance) const;
  std::unique_ptr<GasClusterable> build_geometry_gas(const CtxEval& ctx, uint instance, AppProgressBar* progress) const;
  GeometryObject* get_first_geometry(uint instance) const;

  // For GasInstanceStructure.
  bool describe_instance(uint accepted, GasInstance& instance) const;
  bool keeps_shape(uint accepted) const;
  bool find_entry(const CtxEval& ctx, CtxShader& shader, uint type, const GasInstance& instance, Entry& entry) const;
  [[gnu::always_inline]] void prefetch_entry(const GasInstance& instance) const { gas_prefetch(*instance.matrix); }
  GasNestedTarget get_target(const GeometryRaytraceCtx& parent, GMathRay::Type type, const GasInstance& instance) const;
  template <BvhHits hits>
  void query_entry(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& parent, GeometryRaytraceCtx& local,
                   const GasInstance& instance, Entry& entry, bool is_moving) const;
  PreHitFunction get_pre_hit(const GasInstance& instance) const;
  bool must_enter(const GasInstance& instance) const { return get_pre_hit(instance) != nullptr; }
  uint get_path_depth(const GeometryRaytraceCtx& parent) const;
  bool wants_frustum(const GeometryFrustumCtx&, const GasInstance&) const { return true; }
  void begin_frustum(const GeometryFrustumCtx& query, GasNestedQueryCtx& record, const GasInstance& instance) const;
  void query_entry(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& local, Entry& entry) const;
  void end_frustum(GeometryFrustumCtx& query, const GeometryFrustumCtx& local, const GasInstance& instance) const;
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;
  uint get_key_count() const { return matrices.get_count(); }
  uint get_key(uint accepted) const { return table.indices[accepted]; }
  void fill_matrices(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  void measure(const CtxEval& ctx, uint accepted, double time, Matrix& matrix, GMathBbox3<float>* boxes) const;
  GasBboxSurplus get_growth(uint accepted) const { return get_bound(table.indices[accepted]); }
  uint get_update_slice(uint thread_count) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
    return GMathBbox3<double>(gas_blend_bboxes(a, b, fraction));
  }

  CoreBasicArray<GeometryObject*> first_geometries;
  CoreBasicArray<GeometryObject*> second_geometries;
  CoreBasicArray<GeometryObject*> third_geometries;   ///< [instance], displacement only
  CoreBasicArray<GeometryObject*> fourth_geometries;  ///< [instance], displacement only
  std::shared_ptr<GasBundleSlots> slots;              ///< shared by copies; null while empty
  CoreBasicArray<uint> first_indices;
  CoreBasicArray<uint> geometry_indices;
  CoreBasicArray<uint> shading_group_offsets;
  CoreBasicArray<Matrix> matrices;
  CoreBasicArray<Matrix> inverse_matrices;
  CoreArray<CoreVector<uint>> index_lists;  ///< displacement only
  CoreBasicArray<u8> displaced;             ///< [instance], displacement only
  CoreBasicArray<double> bounds;            ///< [3 instance + axis], displacement only
  CoreBasicArray<bool> visibility;
  CoreBasicArray<PreHitFunction> pre_hits;
  bool merge_shading_groups = false;
  bool displacement_on = false;
  bool oriented_nodes_allowed = true;
  MatricesCallback matrices_callback;
  void* matrices_user = nullptr;
};

extern template class GasStructure<GasGeometryBundle, GasObject, GasInstanceMotion<GasGeometryBundle>>;
extern template class GasBvhStructure<GasGeometryBundle, GasObject, GasInstanceMotion<GasGeometryBundle>>;
extern template class GasInstanceStructure<GasGeometryBundle, GasObject>;
