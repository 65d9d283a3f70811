// tools/vqgas/scene/scene_flatten.h
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// The polygons of a joined mesh that are from one object.
struct FlatPart {
  uint shape = 0;                 ///< in the scene
  GMathMatrix4x4<double> matrix;  ///< of the object, to the world; invertible
  uint first_polygon = 0;         ///< the others follow, in the order of the shape
};

/// Joins the scene's meshes, as its objects show them at `frame`, to one static mesh. Leaves out hair, points and
/// objects whose matrix is not invertible. The mesh may have no polygons.
/// @param parts  written, or null
MeshSource flatten_scene(const SceneSource& scene, double frame, std::vector<FlatPart>* parts = nullptr);

/// The same at frame 0, with normals that are smooth below the crease angle. Throws InputError when there is no
/// polygon.
/// @param name, use  for the error: of the scene, "fur could grow on"
void make_surface_mesh(const SceneSource& scene, const std::string& name, const char* use, PolyMesh& mesh,
                       std::vector<FlatPart>* parts = nullptr);
