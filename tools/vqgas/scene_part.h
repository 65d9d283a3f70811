// tools/vqgas/scene_part.h
//
// One geometry with the structure over it. A scene is a list of them, asked one after the other.
//
//   mesh   PolyMesh      GasGeometryBvh4
//   hair   TubeMeshFast  GasFur
#pragma once
#include <memory>
#include <optional>

#include "gas/bvh/gas_bvh.h"
#include "gas/gas_clusterable.h"
#include "tools/vqgas/hair_source.h"
#include "tools/vqgas/mesh_builder.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_gmath/gmath_time_sampling.h"

class AppProgressBar;
class CtxEval;

/// How hair is to be taken in.
struct HairSettings {
  bool is_linear = false;          ///< straight pieces from point to point instead of smooth curves
  bool is_aligned_only = false;    ///< no oriented nodes, for comparison
  bool is_asked_all_hits = false;  ///< all hits will be asked for, which needs nodes that are not oriented
};

class ScenePart {
 public:
  virtual ~ScenePart() = default;
  virtual const GeometryObject& get_geometry() const = 0;
  virtual const GasClusterable& get_structure() const = 0;
  /// The structure to ask for all hits. Queries for all hits miss what lies below an oriented node, so hair has a
  /// second structure for them when its settings announced them.
  virtual const GasClusterable& get_all_hits_structure() const { return get_structure(); }
  virtual const GasBvh<4>& get_tree() const = 0;
  /// Null for a mesh.
  virtual const TubeMeshFast* get_hair() const { return nullptr; }
  /// Vertices of a mesh, points of hair as they are stored.
  virtual uint get_point_count() const = 0;
  /// When the motion samples are; a single sample stands for a part that does not move.
  const GMathTimeSampling& get_motion_sampling() const { return motion_sampling_; }

  // Where the part's own numbers begin among those of the scene; set by the scene.
  uint first_primitive = 0, first_group = 0;

 protected:
  GMathTimeSampling motion_sampling_;
};

// Both make the structure on all threads of the bar's application and keep references into themselves. They throw
// InputError when the source is not sound or nothing of it can be hit.
std::unique_ptr<ScenePart> make_mesh_part(const CtxEval& ctx, MeshSource&& source, AppProgressBar* progress);
std::unique_ptr<ScenePart> make_hair_part(const CtxEval& ctx, HairSource&& source, const HairSettings& settings,
                                          AppProgressBar* progress);
