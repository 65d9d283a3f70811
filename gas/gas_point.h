// gas/gas_point.h
//
// The structure over the points of a cloud, for frustums and beams. create() sorts the points into parts; the tree of a
// part is built when a query first reaches it.
//
//   frustum --> grid --> points inside --> count | all planes | position | vertex
//   beam    --> grid --> nearer points --> plane through the point --> cross-section --> weight --> record
//
// A point takes 4 bytes until its part is built. A part requests its positions again, and keeps them in the order of
// its tree: about 22 bytes a point then, and no query has to look up a point in the cloud.
#pragma once
#include "gas/frame/gas_memory.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_grid_tree.h"
#include "vq_gas_base/gas_object.h"

class GeometryPointCloud;
class ParticleCloud;

class VQ_EXPORT GasPoint : public GasObject {
 public:
  /// An empty structure: queries find nothing.
  GasPoint() = default;
  /// Copies the grid with all parts unbuilt; the copy answers queries as the source does. Empty if there is no memory.
  /// No query of the source may run meanwhile.
  GasPoint(const GasPoint& other);
  GasPoint& operator=(const GasPoint& other);
  ~GasPoint() override;

  /// Builds the structure over the points of `cloud`, which must outlive it, and replaces its former content. Points
  /// that are not finite are left out, with a warning in the log. Empty when the cloud is null or has no points, when
  /// there is no memory (logged) and after a stop request. No query may be running. Throws nothing.
  /// Cost: O(n) time and 36 bytes a point meanwhile. The number of parts is eight times the application's threads: it
  /// decides the order in which points are appended, and which of several at the same distance a beam finds.
  /// @param progress  or null
  void create(const AppBase& app, const CtxEval& ctx, const ParticleCloud* cloud, AppProgressBar* progress);

  /// Points of the cloud when it was indexed, those left out included. O(1).
  const uint& get_primitive_count() const { return point_count; }
  /// The box of all points; inverted if there are none. O(1).
  GMathBbox3<double> get_bbox() const override;
  /// Bytes of the object and its grid. Thread-safe.
  u64 get_memory_size() const override;
  /// For reports and tests.
  const GasGridTree& get_grid() const { return grid; }

  /// Writes the boxes of the points `leaves`. Thread-safe. Throws AppStopped.
  static void get_leaf_bboxes(const ParticleCloud* cloud, const CtxEval& ctx, const unsigned int& count,
                              const unsigned int* leaves, GMathBbox3<float>* out);

  // Query callbacks of GasObject. None throws: if memory runs out, the query keeps what it has found so far.

  /// Mode any counts the points inside; mode all counts them too, and sets `outside` at the first that is not:
  /// everything is inside when hit_count equals total, the number of points. Modes points and vertices append them.
  /// Clears query.result first.
  static void frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryFrustumCtx&);
  /// The nearest point of each beam. A point on the border of a beam is inside of it.
  static void ray_frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRayFrustumCtx&);

  // Callbacks of the grid; `structure` is the GasPoint. Thread-safe; they only read the structure.

  static void leaf_frustum_hit_callback(void* structure, const GasGridItems& leaves, const CtxEval&, CtxShader&,
                                        GeometryFrustumCtx&);
  static void leaf_ray_frustum_hit_callback(void* structure, const GasGridItems& leaves, const CtxEval&, CtxShader&,
                                            GeometryRayFrustumCtx&);
  // The same for one point of the cloud.
  void leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                        GeometryFrustumCtx& query) const;
  void leaf_ray_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                            GeometryRayFrustumCtx& query) const;

 private:
  void build(const AppBase& app, const CtxEval& ctx, AppProgressBar* progress);
  void hit_frustum(const GasGridItems& leaves, GeometryFrustumCtx& query) const;
  static void hit_beam(const GMathVec3<double>& position, uint point, GeometryRayFrustumCtx& query);
  void install_grid_callbacks();
  void clear();

  const ParticleCloud* cloud = nullptr;        ///< not owned
  const GeometryPointCloud* points = nullptr;  ///< of the cloud
  uint point_count = 0;
  GasGridTree grid;
  mutable GasMemoryAccount memory_account;
};
