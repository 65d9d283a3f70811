// gas/geometry_uv_map_data.h
//
// One UV map of a geometry, laid out flat as line segments: its UV positions and the edges between them. An edge that
// two polygons share appears once.
//
//   uvs    [vertex]  u, v, w
//   edges  [edge]    two indices into uvs; ordered by the first
//
// GasUvTree indexes the edges of many of these.
#pragma once
#include "gas/frame/gas_tasks.h"
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_bbox.h"

class AppBase;
class ModuleGeometry;

/// Indices into GeometryUvMapData::uvs.
struct GeometryUvEdge {
  uint first = core_invalid_index;
  uint second = core_invalid_index;
};

struct VQ_EXPORT GeometryUvMapData {
  static constexpr uint invalid_index = core_invalid_index;  ///< the end of a list, or an unused entry

  const ModuleGeometry* geometry = nullptr;  ///< not owned
  uint uv_map_index = 0;                     ///< 0 is the first map
  CoreBasicArray<GMathVec3<float>> uvs;
  CoreBasicArray<GeometryUvEdge> edges;

  /// Empty. Copies are deep, and empty where there is no memory.
  GeometryUvMapData() = default;
  GeometryUvMapData(const ModuleGeometry* geometry, unsigned int uv_map_index)
      : geometry(geometry), uv_map_index(uv_map_index) {}

  /// Fills `uvs` and `edges` from the visible edges of the polygons in visible shading groups. An edge that two
  /// polygons list in opposite directions is kept once; in the same direction, twice. When the geometry has no indexed
  /// map of this number, each corner of its valid triangles and quadrilaterals gets a UV position of its own, evaluated
  /// with a context of the module's application; polygons with more corners are then left out, and without an
  /// application there are no positions. Empty for a null geometry, when no edge is left, when there is no memory
  /// (logged), and after a stop request of the module's application. Throws nothing. O(corners) in practice; 20 bytes a
  /// corner meanwhile. Several threads may load different data of one geometry.
  void load();
  /// Resizes `boxes` to one box per edge, around its two UV positions. Throws std::bad_alloc.
  void get_bboxes(CoreVector<GMathBbox3<float>>& boxes) const;

  /// True without UV positions or without edges.
  bool is_empty() const { return uvs.is_empty() || edges.is_empty(); }
  /// Bytes of the structure and both arrays.
  u64 get_memory_size() const;

 private:
  friend class GeometryUvMapDataTask;
  /// As load(), but throws std::bad_alloc, and AppStopped after a stop request of `app`.
  /// @param app  or null
  void load_checked(const AppBase* app);
};

/// Loads one map, for stages of GasUvTree.
class VQ_EXPORT GeometryUvMapDataTask final : public GasTask {
 public:
  AppBase* app = nullptr;  ///< checked for stop requests
  GeometryUvMapData* data = nullptr;

 protected:
  void work(const uint& thread_index) override;
};
