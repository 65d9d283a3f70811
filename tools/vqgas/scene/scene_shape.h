// tools/vqgas/scene/scene_shape.h
//
// A geometry with its structure, which any number of objects show.
//
//   mesh   PolyMesh      GasGeometryBvh4, or GasGeometry on a grid; displaced: DisplacedMesh
//   hair   TubeMeshFast  GasFur
#pragma once
#include <memory>
#include <optional>

#include "gas/bvh/gas_bvh.h"
#include "gas/gas_clusterable.h"
#include "gas/gas_geometry.h"
#include "tools/vqgas/source/scene_source.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_gmath/gmath_time_sampling.h"

class AppProgressBar;
class CtxEval;
class PolyMesh;

/// How hair is built.
struct HairSettings {
  bool is_linear = false;             ///< straight segments from point to point instead of smooth curves
  bool is_aligned_only = false;       ///< no oriented nodes, for comparison
  bool has_nearest_queries = true;    ///< and any hits: oriented nodes serve them
  bool has_all_hits_queries = false;  ///< they need nodes that are not oriented
};

enum class MeshStructure { bvh4, grid };

/// How the shapes of a scene are built.
struct ShapeSettings {
  HairSettings hair;
  std::optional<MeshStructure> structure;  ///< over meshes; none: a grid for those that prefer it, else bvh4

  MeshStructure choose_structure(const MeshSource& mesh) const {
    return structure.value_or(mesh.prefers_grid ? MeshStructure::grid : MeshStructure::bvh4);
  }
};

/// Micro-triangles of displaced meshes, and the bytes of those in memory: now, the most there have been, and the limit
/// of the cache.
struct DisplacedMemory {
  u64 micro_triangles = 0, cache_bytes = 0, peak_cache_bytes = 0, cache_limit = 0;
};

struct SceneShape {
  std::string name;
  std::shared_ptr<const GeometryObject> geometry;
  /// Null for a shape that no object shows and no bundle places.
  std::shared_ptr<const GasClusterable> structure;
  /// Structure for queries for all hits, which miss curves below oriented nodes: a second one without such nodes if the
  /// settings of the hair have both kinds of queries, else the same.
  std::shared_ptr<const GasClusterable> all_hits_structure;
  // One of both is set, unless there is no structure.
  const GasBvh<4>* tree = nullptr;           ///< of the structure; null for a grid
  const GasGeometry* grid = nullptr;         ///< the structure, if it is a grid
  const PolyMesh* mesh = nullptr;            ///< the geometry, if it is a mesh that is not displaced
  const TubeMeshFast* hair = nullptr;        ///< the geometry, if it is hair
  const DisplacedMesh* displaced = nullptr;  ///< the geometry, if it is displaced
  uint point_count = 0;                      ///< vertices of a mesh, points of curves as they are stored
  GMathTimeSampling motion_sampling;         ///< of its motion; one sample for a static shape

  // Numbers in the scene of the shape's first primitive and group.
  uint first_primitive = 0, first_group = 0;

  /// All 0 for a mesh that is not displaced.
  DisplacedMemory get_displaced_memory() const;
  /// Primitives in the structure.
  uint get_kept_count() const {
    return tree != nullptr ? tree->item_count : grid != nullptr ? grid->get_primitive_count() : 0;
  }
  /// Sets the structure that a bundle has built over the shape.
  void set_bundle_structure(std::shared_ptr<const GasClusterable> built);
};

/// Builds the structure on all threads of the bar's application. Throws InputError when the source is invalid; a shape
/// without valid primitives has an empty tree.
/// @param has_structure  false: the shape gets its structure from a bundle
SceneShape make_shape(const CtxEval& ctx, ShapeSource&& source, const ShapeSettings& settings, bool has_structure,
                      AppProgressBar* progress);
