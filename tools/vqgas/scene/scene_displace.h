#pragma once
#include "tools/vqgas/source/displace_options.h"
#include "tools/vqgas/source/scene_source.h"

/// Sets the displacement of all meshes of the scene if there is a height. Throws InputError when the PNG file cannot be
/// used, the bound is more than ten times the diagonal of each mesh, or there is no mesh to displace.
/// @param name  of the scene, for errors
void set_displacement(SceneSource& scene, const std::string& name, const DisplaceOptions& options);
/// The same for a scene of files, and shares the cache among the displaced meshes in proportion to their corners.
void displace_meshes(SceneSource& scene, const DisplaceOptions& options);
