// tools/vqgas/scene_load.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/scene_source.h"

/// Reads mesh and hair files, and makes built-in scenes where a name begins with "demo:". Meshes are joined in the
/// order of the names. Throws InputError, also when two of them move at different sample times.
SceneSource load_scene(const std::vector<std::string>& names);
