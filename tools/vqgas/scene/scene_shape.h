// tools/vqgas/scene/scene_shape.h
//
// A geometry with the structure over it, which any number of objects show.
//
//   mesh   PolyMesh      GasGeometryBvh4
//   hair   TubeMeshFast  GasFur
#pragma once
#include <memory>

#include "gas/bvh/gas_bvh.h"
#include "gas/gas_clusterable.h"
#include "tools/vqgas/source/scene_source.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_gmath/gmath_time_sampling.h"

class AppProgressBar;
class CtxEval;

/// How hair is to be taken in.
struct HairSettings {
  bool is_linear = false;             ///< straight pieces from point to point instead of smooth curves
  bool is_aligned_only = false;       ///< no oriented nodes, for comparison
  bool has_nearest_queries = true;    ///< and any hits: oriented nodes serve them
  bool has_all_hits_queries = false;  ///< they need nodes that are not oriented
};

struct SceneShape {
  std::string name;
  std::shared_ptr<const GeometryObject> geometry;
  std::shared_ptr<const GasClusterable> structure;
  /// The structure to ask for all hits. Queries for all hits miss what lies below an oriented node, so hair has a
  /// second structure for them when its settings announced them.
  std::shared_ptr<const GasClusterable> all_hits_structure;
  const GasBvh<4>* tree = nullptr;     ///< of the structure
  const TubeMeshFast* hair = nullptr;  ///< the geometry; null for a mesh
  uint point_count = 0;                ///< vertices of a mesh, points of hair as they are stored
  GMathTimeSampling motion_sampling;   ///< when its motion samples are; one for a shape that does not deform

  // Where the shape's own numbers begin among those of the scene.
  uint first_primitive = 0, first_group = 0;
};

/// Makes the structure on all threads of the bar's application. Throws InputError when the source is not sound; a shape
/// of which nothing can be hit has an empty tree.
SceneShape make_shape(const CtxEval& ctx, ShapeSource&& source, const HairSettings& settings, AppProgressBar* progress);
