// tools/vqgas/scene_import.h
#pragma once
#include <string>

#include "tools/vqgas/scene_source.h"

/// Reads a mesh file of any format that Assimp knows. Polygons keep their corners and the order of the file; the meshes
/// of a file follow each other in its order, placed by its nodes. A shading group is a material, or a mesh where
/// materials have no names. Throws InputError when the file cannot be read or holds no polygon.
SceneSource import_scene(const std::string& path, const SceneTimes& times);
