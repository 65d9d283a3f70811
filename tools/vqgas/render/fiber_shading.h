// tools/vqgas/render/fiber_shading.h
//
// How a hair scatters light. The diffuse part is that of Kajiya and Kay 1989, "Rendering Fur with Three Dimensional
// Textures": a cylinder too thin to be resolved, seen as a whole. The two highlights follow the structure of Marschner
// et al. 2003, "Light Scattering from Human Hair Fibers": cones of light whose inclination is that of the incoming
// light mirrored, one reflected by the outside and tilted to the root by the scales of the fibre, one that ran through
// the fibre and back, coloured by it, wider, and tilted to the tip.
#pragma once
#include "vq_gmath/gmath_vec.h"

struct FiberScattering {
  double diffuse = 0.0;    ///< times light and fibre colour
  double highlight = 0.0;  ///< times light
  double glow = 0.0;       ///< times light and fibre colour
};

/// @param tangent  along the fibre from root to tip; it, `view` and `light` (both away from the fibre) of unit length
FiberScattering scatter_at_fiber(const GMathVec3<double>& tangent, const GMathVec3<double>& view,
                                 const GMathVec3<double>& light);
