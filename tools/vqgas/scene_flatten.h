// tools/vqgas/scene_flatten.h
#pragma once
#include "tools/vqgas/scene_source.h"

/// The scene's meshes, as its objects show them at `frame`, as one mesh at rest; hair is left out. Without polygons
/// when the scene has no mesh.
MeshSource flatten_scene(const SceneSource& scene, double frame);
