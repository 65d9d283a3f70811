// tools/vqgas/import/scene_import.h
#pragma once
#include <string>

#include "tools/vqgas/source/scene_source.h"

/// Reads a file of any format that Assimp knows. Polygons keep their corners and the order of the file. A shading group
/// is a material, or a mesh where materials have no names.
///
/// Formats without nodes (NFF, OBJ, OFF, PLY, RAW, STL) are one object at rest; the meshes of the file follow each
/// other in its order. In all others each node with meshes is an object, placed over the time by the file's
/// animations, of which the first is played and with it those that move other nodes; nothing moves before the first key
/// and after the last. Skins (but those of MDL) and morph targets become motion samples of their shapes; cameras
/// and lights are passed over. A shape is named by the file and its first mesh.
///
/// Throws InputError when the file cannot be read or holds no polygon.
SceneSource import_scene(const std::string& path, const SceneTimes& times);
