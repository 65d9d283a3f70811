// tools/vqgas/scene_source.h
#pragma once
#include <optional>
#include <vector>

#include "tools/vqgas/hair_source.h"
#include "tools/vqgas/mesh_builder.h"

/// What a scene is made from. Meshes are joined to one; hair stays apart, file by file.
struct SceneSource {
  std::optional<MeshSource> mesh;
  std::vector<HairSource> hairs;
};
