// tools/vqgas/scene/uv_statistics.h
//
// What artists check of a UV layout before they paint.
#pragma once
#include <vector>

#include "tools/vqgas/scene/uv_layout.h"
#include "vq_gas_base/gas_tree.h"
#include "vq_of/of_app.h"

/// Parts of the layout whose polygons hang together: two polygons are in one island when they share an edge both in the
/// mesh and in the map. O(n log n).
uint count_uv_islands(const UvLayout& layout);

/// Polygons of negative area. Of those without an area none.
uint count_flipped_polygons(const UvLayout& layout);

/// A tree over the boxes of the polygons in UV space. The layout must outlive it.
class UvPolygonTree {
 public:
  /// Throws std::bad_alloc, Interrupted.
  UvPolygonTree(OfApp& application, const UvLayout& layout);

  /// Polygons that overlap another one: a triangle of one and a triangle of the other have more than uv_touching in
  /// common across each of their edges. Runs on all threads. Throws Interrupted.
  uint count_overlapping() const;

  /// The share of the tiles' area that no polygon covers, at samples_per_side^2 points of each. Runs on all threads.
  /// Throws Interrupted.
  double get_unused_share(const std::vector<UvTile>& tiles) const;
  static constexpr uint samples_per_side = 1024;

 private:
  struct OverlapQuery;
  struct PointQuery;

  bool overlaps_other(const CtxEval& ctx, CtxShader& shader, OverlapQuery& query, uint polygon) const;
  bool overlap(uint polygon, uint other) const;
  bool covers(uint polygon, const UvPoint& point) const;
  uint count_unused(const UvTile& tile, uint first_row, uint end_row) const;

  OfApp& application_;
  const UvLayout& layout_;
  std::vector<uint> first_triangle_;   ///< [polygon + 1]
  std::vector<UvTriangle> triangles_;  ///< those with an area, counter-clockwise
  CoreVector<GMathBbox3<float>> boxes_;
  GasTree tree_;
};
