// tools/vqgas/scene/scene_flatten.h
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// Joins the scene's meshes, as its objects show them at `frame`, to one static mesh. Leaves out hair and objects whose
/// matrix is not invertible. The mesh may have no polygons.
MeshSource flatten_scene(const SceneSource& scene, double frame);
