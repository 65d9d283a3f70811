// tools/vqgas/import/scene_node_import.h
#pragma once
#include <assimp/scene.h>

#include <string>

#include "tools/vqgas/source/scene_source.h"

/// Reads the nodes of a file, which must have a root, as objects. Each node with meshes becomes an object of its name;
/// its meshes are joined to a shape, which nodes with the same meshes share. Deforming meshes are computed at the
/// samples of the shutter, or at its single time; each of their nodes has its own shape, in world space if it has
/// bones. Throws InputError when a node or polygon has an invalid index, or there is no polygon.
SceneSource import_nodes(const std::string& path, const aiScene& scene, const SceneTimes& times);
