// tools/vqgas/scene/scene_flatten.h
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// Joins the scene's meshes, as its objects show them at `frame`, to one static mesh. Leaves out hair, points and
/// objects whose matrix is not invertible. The mesh may have no polygons.
MeshSource flatten_scene(const SceneSource& scene, double frame);

/// The same at frame 0, with normals that are smooth below the crease angle. Throws InputError when there is no
/// polygon.
/// @param name, use  for the error: of the scene, "fur could grow on"
void make_surface_mesh(const SceneSource& scene, const std::string& name, const char* use, PolyMesh& mesh);
