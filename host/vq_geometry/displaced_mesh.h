// host/vq_geometry/displaced_mesh.h
//
// A mesh whose polygons are cut into micro-triangles and moved along the interpolated normal by a height function. One
// primitive is one polygon of the base mesh, with the same number and shading group, so that the displaced mesh can
// stand beside the base mesh or in its place. Micro-triangles exist only while they are used: rays compute them tile by
// tile (displaced_mesh_tile.h) and keep them in a cache of limited size (displaced_mesh_cache.h). The idea: Pharr,
// Hanrahan 1996, "Geometry Caching for Ray-Tracing Displacement Maps".
//
//   polygon --PolyMesh's triangles--> patches --rate cuts an edge--> rate^2 micro-triangles each, in tiles
//
// The surface is exactly that of a PolyMesh of all micro-triangles: single-precision micro-vertices, the watertight ray
// test, straight motion between the base mesh's motion samples. Closed meshes stay closed: displaced_mesh_input.h.
//
// Ray test: displaced_mesh_ray.cpp. Frustum test: displaced_mesh_frustum.cpp. Points on the surface:
// displaced_mesh_surface.cpp.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_geometry/displaced_mesh_cache.h"
#include "vq_geometry/displaced_mesh_input.h"

struct DisplacedMeshSettings {
  std::shared_ptr<const GeometryHeight> height;
  double bound = 0.0;                      ///< heights are clamped to [-bound, bound]; finite, 0 or more
  uint rate = 1;                           ///< parts into which an edge of a polygon is cut, 1 to 1024
  u64 cache_bytes = u64{64} << 20;         ///< limit of the cached micro-triangles; 0: nothing is cached
  static constexpr uint most_rate = 1024;  ///< limit of `rate`
};

/// The boxes of all tiles that were computed so far. Threads may write the same box at once: it has the same bits.
class DisplacedMeshBoxes {
 public:
  /// Throws std::bad_alloc.
  explicit DisplacedMeshBoxes(std::size_t count) : boxes_(count), states_(std::make_unique<std::atomic<u8>[]>(count)) {}

  bool get(std::size_t index, GMathBbox3<float>& box) const {
    if (states_[index].load(std::memory_order_acquire) != ready) return false;
    box = boxes_[index];
    return true;
  }
  /// One thread writes; the others go on with the box that they have computed themselves.
  void put(std::size_t index, const GMathBbox3<float>& box) {
    u8 state = unknown;
    if (!states_[index].compare_exchange_strong(state, writing, std::memory_order_relaxed)) return;
    boxes_[index] = box;
    states_[index].store(ready, std::memory_order_release);
  }
  u64 get_memory_size() const { return boxes_.size() * (sizeof(GMathBbox3<float>) + 1); }

 private:
  static constexpr u8 unknown = 0, writing = 1, ready = 2;
  std::vector<GMathBbox3<float>> boxes_;
  std::unique_ptr<std::atomic<u8>[]> states_;
};

class VQ_EXPORT DisplacedMesh final : public GeometryObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// No primitives.
  DisplacedMesh() = default;
  DisplacedMesh(const DisplacedMesh&) = delete;
  DisplacedMesh& operator=(const DisplacedMesh&) = delete;

  /// Replaces the mesh. No other thread may use it. `base` must outlive the mesh and not change.
  /// Cost: O(corners * motion samples), and one call of the height function per vertex; no micro-triangle is computed.
  /// @return false, with one sentence in `error` and the mesh unchanged, for settings out of range, a height function
  ///         that cannot be evaluated or needs a UV map that the mesh does not have, a polygon with 2^32 or more
  ///         micro-triangles, and when there is no memory
  bool create(const PolyMesh& base, const DisplacedMeshSettings& settings, CoreString& error);

  /// Parts into which an edge of a polygon is cut.
  uint get_rate() const { return rate_; }
  /// The micro-triangles of all primitives; they are never in memory all at once.
  u64 get_micro_triangle_count() const { return input_ == nullptr ? 0 : get_patch_count() * rate_ * rate_; }
  /// The bytes of the micro-triangles in memory now, and the most there have been: at most the settings' cache_bytes,
  /// and five tiles (below 0.7 MB each) per running query. Thread-safe.
  u64 get_cache_bytes() const;
  u64 get_peak_cache_bytes() const;
  /// The settings' cache_bytes, rounded down to a multiple of the number of shards.
  u64 get_cache_limit() const { return cache_ == nullptr ? 0 : cache_->get_limit(); }
  /// Micro-vertex (i, j), i + j <= rate, of patch `part` of a primitive, as drawn in displaced_mesh_input.h; a patch is
  /// the triangle with that number in PolyMesh::get_part_vertices(). NaN: at rest. Computed, not read from the cache.
  GMathVec3<double> get_micro_vertex(uint primitive, uint part, uint i, uint j, double time) const;

  /// Includes the micro-triangles cached now. advert_memory_changed() is called when the size differs by more than 5 %
  /// from the one last reported.
  u64 get_memory_size() const override;

  uint get_primitive_count() const override { return base_ == nullptr ? 0 : base_->get_primitive_count(); }
  const CoreArray<CoreString>& get_shading_groups() const override;
  uint get_primitive_shading_group(const uint& primitive) const override {
    return base_->get_primitive_shading_group(primitive);
  }
  /// Grows with the logarithm of the rate: a ray descends through a hierarchy in the primitive.
  double get_build_parameter() const override;
  bool has_motion() const override { return base_ != nullptr && base_->has_motion(); }
  /// Also true for a group that does not move itself but shares a vertex with one that does: its normals turn.
  bool has_shading_group_motion(const uint& group) const override {
    return input_ != nullptr && input_->is_group_moving(group);
  }

  /// The box of the primitive's micro-vertices; NaN when one of them is not finite. The first call for a primitive
  /// computes them, later ones read the boxes of its tiles. Throws std::bad_alloc.
  GMathBbox3<double> get_primitive_bbox(const CtxEval& ctx, const uint& primitive) const override;
  /// The same at `time`, enlarged for motion keys between the samples of the context's motion blur. At motion samples
  /// as cheap as at rest; at other times every call goes through the micro-vertices.
  GMathBbox3<double> get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                           const uint& primitive) const override;

  /// Part and u, v of a hit: number of the micro-triangle in the primitive, patch by patch, and barycentric coordinates
  /// in it. Allocates and computes only for tiles that are not cached, and for more than a few exact hits of
  /// micro-edges by one ray of an all-hits query. Throws std::bad_alloc.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override;
  /// Exact on micro-triangles. Modes points and vertices: no points, as get_point_cloud() is null.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                             const uint& primitive) const override;
  /// Shading normals are interpolated from the micro-vertices, whose normals are the area-weighted mean of the
  /// primitive's micro-triangles around them: smooth within a polygon. NaN: at rest. Cost: reads of the cached tile;
  /// for neighbors outside of it, calls of the height function.
  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double& time) const override;

  uint get_render_mode() const override { return base_ == nullptr ? 0 : base_->get_render_mode(); }
  uint get_uv_count() const override { return base_ == nullptr ? 0 : base_->get_uv_count(); }
  const GeometryUvMap* get_uv_map(uint index) const override {
    return base_ == nullptr ? nullptr : base_->get_uv_map(index);
  }

  // The polygons are those of the base mesh.
  uint get_polygon_count() const override { return get_primitive_count(); }
  uint get_polygon_vertex_count(uint polygon) const override { return base_->get_polygon_vertex_count(polygon); }
  uint get_polygon_vertex(uint polygon, uint corner) const override {
    return base_->get_polygon_vertex(polygon, corner);
  }
  bool is_polygon_valid(uint polygon) const override { return base_->is_polygon_valid(polygon); }
  bool is_edge_visible(uint polygon, uint corner) const override { return base_->is_edge_visible(polygon, corner); }
  GMathVec3<float> get_polygon_uv(const CtxEval& ctx, uint map, uint polygon,
                                  const GMathVec3<double>& uvw) const override {
    return base_ == nullptr ? GMathVec3<float>() : base_->get_polygon_uv(ctx, map, polygon, uvw);
  }
  /// That of the same point of the base mesh.
  double get_edge_proximity(const GeometryIntersection& hit) const override;

 private:
  class RayTest;
  class FrustumTest;
  class MicroVertices;

  /// The frames between which a time lies: (1 - fraction) of the first and fraction of the next.
  struct Moment {
    uint first_frame = 0;
    uint frame_count = 1;  ///< 2 between motion samples
    double fraction = 0.0;
  };
  /// Where a tile is.
  struct TilePlace {
    uint primitive = 0, part = 0;
    uint row = 0, column = 0;  ///< in the patch, in tiles
    u64 index = 0;             ///< among the tiles of all patches
  };
  /// A micro-triangle by its cell.
  struct MicroTriangle {
    uint part = 0, i = 0, j = 0;
    bool upper = false;
  };

  Moment get_moment(double time) const;
  u64 get_patch_count() const { return base_->get_first_part(base_->get_polygon_count()); }
  /// Calls function(place) -> bool for the primitive's tiles, in order, until it returns false.
  template <class Function>
  bool for_each_tile(uint primitive, const Function& function) const;
  DisplacedMeshCache::Pin get_tile(const TilePlace& place, const Moment& moment) const;
  DisplacedMeshCache::Pin compute_tile(const TilePlace& place, const Moment& moment) const;
  void report_memory() const;
  GMathBbox3<float> get_tile_box(const TilePlace& place, const Moment& moment, uint frame) const;
  GMathBbox3<double> compute_blended_box(const TilePlace& place, const Moment& moment) const;
  GMathBbox3<double> compute_bbox(uint primitive, double time) const;
  u32 get_part_number(uint part, uint i, uint j, bool upper) const {
    return (part * rate_ + i) * rate_ + i * (rate_ - i) + 2 * j + (upper ? 1 : 0);
  }
  MicroTriangle get_micro_triangle(u32 part_number) const;
  GeometryIntersection get_base_hit(const GeometryIntersection& hit) const;
  bool touches_frustum(const GeometryFrustumCtx& query, uint primitive) const;
  bool lies_in_frustum(const GeometryFrustumCtx& query, uint primitive) const;

  const PolyMesh* base_ = nullptr;
  std::unique_ptr<const DisplacedMeshInput> input_;
  std::vector<DisplacedMeshTileShape> shapes_;  // by distance of a tile from the patch's third edge, in tiles
  uint rate_ = 1;
  uint tile_cells_ = 1;  // along a side of a tile
  uint tile_rows_ = 1;   // of a patch
  uint tiles_of_patch_ = 1;
  // Queries write what they have computed. Both are thread-safe.
  std::unique_ptr<DisplacedMeshBoxes> boxes_;  // [tile * frame count + frame]
  std::unique_ptr<DisplacedMeshCache> cache_;
  mutable std::atomic<u64> reported_bytes_{0};
};

template <class Function>
bool DisplacedMesh::for_each_tile(uint primitive, const Function& function) const {
  TilePlace place;
  place.primitive = primitive;
  place.index = u64{base_->get_first_part(primitive)} * tiles_of_patch_;
  const uint parts = base_->get_part_count(primitive);
  for (; place.part < parts; ++place.part)
    for (place.row = 0; place.row < tile_rows_; ++place.row)
      for (place.column = 0; place.column < tile_rows_ - place.row; ++place.column, ++place.index)
        if (!function(place)) return false;
  return true;
}
