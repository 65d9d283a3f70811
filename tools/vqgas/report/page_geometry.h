// tools/vqgas/report/page_geometry.h
//
// Surfaces, hair and points as the page draws them: every k-th primitive, as triangles, straight pieces or points.
#pragma once
#include <vector>

#include "tools/vqgas/scene/query_scene.h"

/// Pieces of one kind. `places` ascend.
struct PagePieces {
  std::vector<float> values;    ///< 9 a triangle, 8 a piece of hair (two points with radii), 4 a point with radius
  std::vector<u32> places;      ///< [piece] place of its primitive in the item order; in scenes the object or instance
  std::vector<u32> primitives;  ///< [piece] number in the scene; of a point in its cloud
};

struct PageGeometry {
  PagePieces triangles, strands, points;
  u64 shown = 0, total = 0;  ///< primitives
  u64 stride = 1;            ///< of the primitives, one in so many is shown

  u64 get_bytes() const;
};

/// A shape or a cloud, at a place of an outer structure.
struct PlacedShape {
  const SceneShape* shape = nullptr;
  const SceneCloud* cloud = nullptr;  ///< if there is no shape
  GMathMatrix4x4<double> matrix;
  uint owner = 0;  ///< number of the object or instance

  u64 get_primitive_count() const;
};

/// What the objects of a scene or group show, through all groups and bundles in it.
std::vector<PlacedShape> list_placed(const QueryScene& scene,
                                     const std::vector<std::shared_ptr<ModuleSceneObject>>& objects);
/// The instances of a bundle.
std::vector<PlacedShape> list_placed(const QueryScene& scene, const SceneBundle& bundle);

/// About the bytes of all primitives.
u64 estimate_geometry_bytes(const std::vector<PlacedShape>& placed);

/// One in so many primitives of all, so that they take about `most_bytes`. Throws Interrupted.
PageGeometry collect_geometry(const std::vector<PlacedShape>& placed, u64 most_bytes);

/// The same for the items of a tree over one shape or cloud.
/// @param primitives  [place in the item order] number in the shape
PageGeometry collect_geometry(const PlacedShape& shape, const std::vector<uint>& primitives, u64 most_bytes);
