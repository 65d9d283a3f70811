// host/vq_geometry/geometry_uv_map.h
//
// A UV map with its own indices: neighboring polygons may share a vertex and still have different texture
// coordinates there (a seam).
//
//   corner_positions[corner] --> positions[]      corners run through the polygons in order, as the mesh stores them
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_gmath/gmath_vec.h"

struct VQ_EXPORT GeometryUvMap {
  CoreString name;
  std::vector<GMathVec3<float>> positions;  ///< u, v, w
  std::vector<u32> corner_positions;        ///< one index into `positions` per polygon corner
};
