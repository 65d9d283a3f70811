// tools/vqgas/commands/beam_input.h
//
// Beams as text. The cross-section is a square with upright sides, or has four corners in ring order:
//
//   ox,oy,oz,dx,dy,dz,SIZE[,tnear,tfar]
//   ox,oy,oz,dx,dy,dz,ax,ay,az,bx,by,bz,cx,cy,cz,ex,ey,ez[,tnear,tfar]
//
//                 SIZE                                        corners
//   perspective   degrees between two sides                   directions from the origin
//   parallel      width                                       offsets from the origin
#pragma once
#include <istream>
#include <string>
#include <vector>

#include "vq_geometry/geometry_ray_frustum_ctx.h"

inline constexpr const char* beam_form =
    "a beam ox,oy,oz,dx,dy,dz,SIZE[,tnear,tfar] with a direction and a width, or with four corners instead of SIZE";

/// False for text of another form, and for a beam without a direction or a width, or with corners that do not point
/// forwards.
bool parse_beam(const std::string& text, bool is_parallel, GeometryRayFrustumBeam& beam);
/// Throws UsageError when a beam of the command line cannot be parsed.
void check_beams(const std::vector<std::string>& texts, bool is_parallel);
