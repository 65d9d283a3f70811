// gas/gas_uv_tree.h
//
// The structure over the UV layouts of many geometries: how near is a point of UV space to their edges?
//
//   geometries --> uv_maps [map]   one a geometry, without the empty ones
//                  leaves  [leaf]  map and edge; the tree's box of a leaf is that of its edge
//
//   point, tolerance --> tree --> leaf: coverage = coverage x (distance to the edge's line / tolerance)
//
// The owner calls update() and build() when geometries or the names of their UV maps change; a structure that is dirty
// answers 1, no edges, rather than from old data.
#pragma once
#include "gas/geometry_uv_map_data.h"
#include "vq_core/core_export.h"
#include "vq_core/core_set.h"
#include "vq_core/core_string.h"
#include "vq_gas_base/gas_tree.h"

class OfObject;

/// Edge `edge` of map `map`.
struct GasUvLeaf {
  uint map, edge;
};

class VQ_EXPORT GasUvTree : public GasTree {
 public:
  /// Empty and dirty; the first UV map of each geometry is used.
  GasUvTree() = default;
  /// Copies share the geometries. Empty, dirty and without items if there is no memory.
  GasUvTree(const GasUvTree& other);
  GasUvTree& operator=(const GasUvTree& other);
  ~GasUvTree() override;

  /// Sets what build() indexes, and makes the structure dirty. Items must outlive the last build(). The set may be the
  /// structure's own. Without memory for the set: logged, no items. Throws nothing. No query may be running.
  /// @param use_first_uv_map  or the map called `uv_map_name`; an empty name also means the first map
  void update(AppBase& app, const CoreSet<OfObject*>& geometries, bool use_first_uv_map, const CoreString& uv_map_name);
  /// Indexes the visible edges of the enabled items. Left out are disabled items, those whose module is not a geometry,
  /// geometries without UV maps or without the named one, and edges with a coordinate that is not finite or above
  /// most_coordinate. Shows progress and runs on the application's threads: one task a geometry, then the tree. Empty
  /// and dirty after a stop request, without update(), and when there is no memory (logged). Throws nothing. No query
  /// may be running. O(n log n).
  void build();

  /// How near the rays' origins (x = u, y = v) are to edges: 1 when no edge is within the tolerance, 0 on an edge. Each
  /// edge whose box, grown by the tolerance, holds the point multiplies the result by its distance over the tolerance,
  /// at most 1. The distance is to the line through the edge, in single precision. The tolerance is the ray's extent
  /// and must be positive. Rays go along +z and start at or below get_bbox().min.z, which is 0 unless the UV positions
  /// have a w. All rays of the packet multiply into one result. Where it is not above the shading context's
  /// hit_threshold, a hit at distance 0 is pushed for the ray, whose geometry is the edge's and whose primitive is
  /// GeometryUvMapData::invalid_index. A dirty structure answers 1. Throws nothing; any number of threads. Sets the
  /// query's active range to all rays.
  float ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& rays) const;

  /// The distance of a point to the line through a and b, whose w is ignored; to the vertical line where their u are
  /// equal. Single precision.
  static float get_distance_from_point_to_line(const GMathVec2<float>& point, const GMathVec3<float>& a,
                                               const GMathVec3<float>& b);

  const CoreSet<OfObject*>* get_geometries() const { return &geometries; }
  bool get_use_first_uv_map() const { return use_first_uv_map; }
  const CoreString& get_uv_map_name() const { return uv_map_name; }
  const CoreVector<GeometryUvMapData>& get_uv_maps() const { return uv_maps; }
  const CoreVector<GasUvLeaf>& get_leaves() const { return leaves; }
  bool is_empty() const { return uv_maps.is_empty() && leaves.is_empty(); }
  bool is_dirty() const { return dirty; }
  /// Bytes of the object, the set, the name, the maps, the leaves and the tree. O(maps).
  u64 get_memory_size() const override;

  /// The callback of the tree; `user` is a LeafData.
  static void leaf_raytrace_callback(void* user, const unsigned int& leaf, const CtxEval&, CtxShader&,
                                     GeometryRaytraceCtx&);

  static constexpr float most_coordinate = 1e9f;  ///< of indexed edges: squares of lengths stay finite

 private:
  // Only build() fills the tree, and only ray_hit() passes what the callback needs.
  using GasTree::clear;
  using GasTree::create;
  using GasTree::ray_hit_extent;
  using GasTree::ray_hit_nearest;

  /// One lookup, on the caller's stack.
  struct LeafData {
    const GasUvTree* tree;
    float coverage;
  };

  void reset();
  void build_maps(AppProgressBar* progress);
  void find_maps();
  void load_maps();
  void collect_boxes(CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress);

  AppBase* app = nullptr;
  CoreSet<OfObject*> geometries;
  bool use_first_uv_map = true;
  CoreString uv_map_name;
  CoreVector<GeometryUvMapData> uv_maps;
  CoreVector<GasUvLeaf> leaves;
  bool dirty = true;
};
