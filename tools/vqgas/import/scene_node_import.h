// tools/vqgas/import/scene_node_import.h
#pragma once
#include <assimp/scene.h>

#include <string>

#include "tools/vqgas/source/scene_source.h"

/// Reads the nodes of a file, which must have a root, as objects. Each node with meshes becomes an object of its name;
/// its meshes are joined to a shape, which nodes with the same meshes share. Meshes that change their form are computed
/// for the samples of the shutter, or for the one moment; each of their nodes has a shape of its own, in the world if
/// bones hold it. Throws InputError when a node or polygon names what does not exist, or there is no polygon.
SceneSource import_nodes(const std::string& path, const aiScene& scene, const SceneTimes& times);
