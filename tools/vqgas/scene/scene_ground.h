#pragma once
#include <vector>

#include "tools/vqgas/scene/scene_flatten.h"
#include "tools/vqgas/source/groom.h"

/// Moves points of the joined meshes of a scene to where displacement moves the surface there; their normals lean with
/// it. Points of meshes that are not displaced stay, and those whose displaced position is not finite. Throws
/// InputError when a mesh cannot be displaced.
/// @param parts  of the joined mesh
void move_to_displaced(const SceneSource& scene, const std::vector<FlatPart>& parts,
                       std::vector<GroomSurface::Root>& points);
