// tools/vqgas/mesh_load.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/mesh_builder.h"

/// Reads one mesh file, or makes a built-in scene when the name begins with "demo:". Throws InputError.
MeshSource load_mesh(const std::string& name);

/// All of `names` as one mesh, in their order. Throws InputError.
MeshSource load_meshes(const std::vector<std::string>& names);
