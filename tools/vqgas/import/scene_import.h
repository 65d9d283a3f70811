// tools/vqgas/import/scene_import.h
#pragma once
#include <string>

#include "tools/vqgas/source/scene_source.h"

/// Reads a file of any format that Assimp reads. Polygons keep their corners and the order of the file. A shading group
/// is a material, or a mesh if materials have no names.
///
/// A file of a format without nodes (NFF, OBJ, OFF, PLY, RAW, STL) is one static object, its meshes in the order of the
/// file. In all other formats each node with meshes is an object, whose matrices over time come from the animations
/// that SceneAnimation plays; it is static before the first key and after the last. Skins (except those of MDL) and
/// morph targets become motion samples of their shapes; cameras and lights are ignored. A shape is named after the file
/// and its first mesh.
///
/// Throws InputError when the file cannot be read or holds no polygon.
SceneSource import_scene(const std::string& path, const SceneTimes& times);
