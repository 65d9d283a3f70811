#pragma once
#include <optional>
#include <string>

#include "tools/vqgas/source/scene_source.h"

/// How the meshes of a scene are displaced.
struct DisplaceOptions {
  std::string height;           ///< "noise", or the name of a gray PNG file; empty: not at all
  std::optional<double> bound;  ///< largest height; none: 2 % of the diagonal of each mesh
  uint rate = 16;               ///< parts into which an edge of a polygon is cut
  std::optional<uint> cache;    ///< limit of all cached micro-triangles, in MB; none: a quarter of the machine's memory

  bool is_file() const { return !height.empty() && height != "noise"; }
};

/// Sets the displacement of all meshes of the scene if there is a height, and shares the cache among the displaced
/// meshes in proportion to their corners. Throws InputError when the PNG file cannot be used, the bound is more than
/// ten times the diagonal of each mesh, or there is no mesh to displace.
void displace_meshes(SceneSource& scene, const DisplaceOptions& options);
