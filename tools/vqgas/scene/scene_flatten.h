// tools/vqgas/scene/scene_flatten.h
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// Joins the scene's meshes, as its objects show them at `frame`, to one static mesh. Leaves out hair, points and
/// objects whose matrix is not invertible. The mesh may have no polygons.
MeshSource flatten_scene(const SceneSource& scene, double frame);

/// Loads a file or built-in scene at frame 0 as one mesh, with normals that are smooth below the crease angle. Throws
/// InputError when it holds no polygon.
/// @param use  for the error: "fur could grow on"
void load_surface_mesh(const std::string& name, const char* use, PolyMesh& mesh);
