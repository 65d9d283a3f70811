// gas/gas_geometry.h
//
// The structure over a mesh on the host's grid tree. create() sorts the primitives into parts; the tree of a part is
// built when a query first reaches it. The choice for geometry whose primitives are costly and mostly out of sight.
//
//   grid -> position -> primitive, owner -> shading of its group -> owner's ray test -> the query's push_intersection
//
// Under motion blur the boxes of the parts are computed for all samples of the description at once, those within a part
// when a ray with a time first reaches it.
#pragma once
#include "gas/gas_geometry_base.h"
#include "gas/structure/gas_structure.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_grid_tree_motion.h"

class GasGeometry;

/// The grid's boxes at the samples of one motion-blur description.
struct VQ_EXPORT GasGeometryMotion {
  explicit GasGeometryMotion(GasGeometry* owner) : owner(owner) {}
  void clear() { motion.clear(); }
  u64 get_array_bytes() const { return motion.get_memory_size() - sizeof(motion); }
  uint get_sample_count() const { return motion.get_sample_count(); }
  const GMathBbox3<float>& get_bbox(uint sample) const { return motion.get_bbox(sample); }

  SysThreadLock lock;                           ///< held by the thread that refits
  GasGridTreeMotion motion;                     ///< no samples if there was no memory
  GasGridMemoryChange memory_change = nullptr;  ///< receives the changes of its parts' memory, with `owner`
  GasGeometry* owner;
  std::atomic<uint> stamp{0};  ///< stamp of the description that `motion` belongs to; 0: stale
};

class VQ_EXPORT GasGeometry : public GasStructure<GasGeometry, GasGeometryBase, GasGeometryMotion> {
 public:
  using MotionData = GasGeometryMotion;

  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// An empty structure: queries find nothing.
  GasGeometry();
  /// Copies the grid with all parts unbuilt, and no motion data; the copy answers queries as the source does. Empty if
  /// there is no memory. No query of the source may run meanwhile.
  GasGeometry(const GasGeometry& other);
  GasGeometry& operator=(const GasGeometry& other);
  ~GasGeometry() override;

  class GetLeafBboxesTask;
  class GetLeafBboxesAtTask;

  /// Builds the structure over the primitives of up to three geometries and replaces its former content: parameters,
  /// result, failures and threads are those of GasGeometryBvh4::create().
  /// Cost: O(n) time and one box per primitive meanwhile. 4 bytes a primitive stay, 8 where primitives were left out or
  /// come from several geometries; a part that was built adds about 30 bytes a primitive.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
              const CoreBasicArray<uint>& group_flags, AppProgressBar* progress);
  /// The same with one geometry for all groups; usually the same as `base_geometry`.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);

  void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const override;
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const override;
  void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) const override;
  /// 1 for each handle: the grid's clusters are weighted alike.
  void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const override;

  /// The number of positions: kept primitives of all owners. O(1).
  uint get_primitive_count() const { return kept_count; }
  /// The primitive at a position, below get_primitive_count(). O(1).
  uint get_primitive(const uint& position) const { return GasGeometryBase::get_primitive(position); }
  /// The geometry that owns the primitive at a position. O(1).
  const GeometryObject* get_geometry(const uint& position) const { return get_owner(position); }
  /// For reports and tests.
  const GasGridTree& get_grid() const { return grid; }

  // Callbacks of the grid; `structure` is the GasGeometry. Thread-safe; they only read the structure.

  /// Writes the static boxes of the primitives at `positions`, in tasks from 512 of them on if `ctx` has a context for
  /// each thread of the application.
  static void get_leaf_bboxes_callback(void* structure, const CtxEval& ctx, const uint& count, const uint* positions,
                                       GMathBbox3<float>* boxes);
  /// The same at `time`.
  static void get_leaf_bboxes_at_callback(void* structure, const CtxEval& ctx, const double& time, const uint& count,
                                          const uint* positions, GMathBbox3<float>* boxes);
  /// Tests the primitive at `position`; one variant for each way to find it.
  template <class MeshLeaf>
  static void primitive_ray_hit_callback(void* structure, const uint& position, const CtxEval& ctx, CtxShader& shader,
                                         GeometryRaytraceCtx& query);
  template <class MeshLeaf>
  static void primitive_frustum_hit_callback(void* structure, const uint& position, const CtxEval& ctx,
                                             CtxShader& shader, GeometryFrustumCtx& query);
  /// Counts memory that the grid or its motion has allocated in a query.
  static void memory_update_callback(const u64& old_size, const u64& new_size, void* structure);

 private:
  friend GasStructure;
  struct QueryScope;

  void build_grid(const CtxEval& ctx, const CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress);
  void choose_primitive_callbacks(const CtxEval& ctx);
  void install_grid_callbacks();
  void clear();
  bool can_move() const { return has_motion != 0; }
  bool has_tree() const { return !grid.is_empty(); }
  const GMathBbox3<float>& get_tree_bbox() const { return grid.get_bbox(); }
  u64 get_own_bytes() const { return get_primitive_array_bytes() + grid.get_memory_size() - sizeof(grid); }
  void report_growth(u64 old_size, u64 new_size) const { memory_account.update(old_size, new_size, *this); }
  template <BvhHits hits>
  void traverse(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const MotionData* data) const;
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;
  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);

  GasGridTree grid;
  // The variants for the primitives of the last create().
  GasTreeLeafCallback<GeometryRaytraceCtx> ray_callback = nullptr;
  GasTreeLeafCallback<GeometryFrustumCtx> frustum_callback = nullptr;
};

extern template class GasStructure<GasGeometry, GasGeometryBase, GasGeometryMotion>;
