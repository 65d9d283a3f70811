#pragma once
#include <optional>
#include <string>

#include "vq_core/core_types.h"

/// How the meshes of a scene are displaced.
struct DisplaceOptions {
  std::string height;           ///< "noise", or the name of a gray PNG file; empty: not at all
  std::optional<double> bound;  ///< largest height; none: 2 % of the diagonal of each mesh
  uint rate = 16;               ///< parts into which an edge of a polygon is cut
  std::optional<uint> cache;    ///< limit of all cached micro-triangles, in MB; none: a quarter of the machine's memory

  bool is_file() const { return !height.empty() && height != "noise"; }
};
