// tools/vqgas/render/hair_shading.h
//
// Light scattering of hair. The diffuse part is that of Kajiya and Kay 1989, "Rendering Fur with Three Dimensional
// Textures": a cylinder too thin to be resolved. The two highlights follow the structure of Marschner et al. 2003,
// "Light Scattering from Human Hair Fibers": cones of light around the mirrored inclination of the incoming light. One
// is reflected by the surface and tilted to the root by the scales of the hair; the other passes through the hair and
// back, is colored by it, wider, and tilted to the tip.
#pragma once
#include "vq_gmath/gmath_vec.h"

struct HairScattering {
  double diffuse = 0.0;    ///< times light and hair color
  double highlight = 0.0;  ///< times light
  double glow = 0.0;       ///< times light and hair color
};

/// @param tangent  along the hair from root to tip, of unit length
/// @param view     to the eye, of unit length
/// @param light    to the light, of unit length
HairScattering scatter_at_hair(const GMathVec3<double>& tangent, const GMathVec3<double>& view,
                               const GMathVec3<double>& light);
