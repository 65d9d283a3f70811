// tools/vqgas/scene/scene_flatten.h
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// The scene's meshes, as its objects show them at `frame`, as one mesh at rest; hair and objects without a place are
/// left out. Without polygons when nothing remains.
MeshSource flatten_scene(const SceneSource& scene, double frame);
