#pragma once
#include "tools/vqgas/scene/query_scene.h"

/// The parts of all grids of a scene, numbered consecutively, shape by shape.
class GridParts {
 public:
  /// No query may run meanwhile. The scene must outlive the object.
  explicit GridParts(const QueryScene& scene);

  /// The part that the primitive of a hit is in; core_invalid_index if it is not on a grid.
  /// After hide_unbuilt(): unbuilt_part for a part that was hidden.
  uint get_part(const SceneHit& hit) const;
  /// Hides the parts that no query has built yet, also when they are built later. No query may run meanwhile.
  void hide_unbuilt();

 private:
  const QueryScene& scene_;
  std::vector<std::vector<uint>> parts_;  // [shape][primitive]; empty for shapes without a grid
};

struct GridPartCounts {
  uint parts = 0, built = 0;
};

/// Sums over the grids of a scene.
GridPartCounts count_grid_parts(const QueryScene& scene);
