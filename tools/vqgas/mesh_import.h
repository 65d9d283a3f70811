// tools/vqgas/mesh_import.h
#pragma once
#include <string>

#include "tools/vqgas/mesh_builder.h"

/// Reads a mesh file of any format that Assimp knows. Polygons keep their corners and the order of the file; the meshes
/// of a file follow each other in its order, placed by its nodes. A shading group is a material, or a mesh where
/// materials have no names. Throws InputError when the file cannot be read or holds no polygon.
MeshSource import_mesh(const std::string& path);
