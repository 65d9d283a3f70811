// tests/support/mesh_file.h
//
// Reads just enough of OBJ for a folder of test meshes: its `v` and `f` lines.
#pragma once
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/mesh_scenes.h"

/// False when the file is not read to its end as such a mesh.
inline bool read_obj(std::istream& in, PolyMeshData& data) {
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == "v") {
      GMathVec3<float> p;
      if (!(words >> p.x >> p.y >> p.z)) return false;
      data.positions.push_back(p);
    } else if (word == "f") {
      std::vector<u32> vertices;
      while (words >> word) {
        const long number = std::atol(word.c_str());
        const long index = number < 0 ? static_cast<long>(data.positions.size()) + number : number - 1;
        if (index < 0 || index >= static_cast<long>(data.positions.size())) return false;
        vertices.push_back(static_cast<u32>(index));
      }
      add_polygon(data, vertices);
    }
  }
  return !data.polygon_sizes.empty();
}

/// The meshes of the folder that the environment variable VQ_TEST_DATA names, by file name; none without it. A file
/// that is not understood is left out.
inline std::vector<MeshScene> read_mesh_folder() {
  std::vector<MeshScene> scenes;
  const char* folder = std::getenv("VQ_TEST_DATA");
  if (folder == nullptr || !std::filesystem::is_directory(folder)) return scenes;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".obj") continue;
    MeshScene scene{entry.path().filename().string(), {}};
    std::ifstream file(entry.path());
    if (read_obj(file, scene.data)) scenes.push_back(std::move(scene));
  }
  std::sort(scenes.begin(), scenes.end(), [](const MeshScene& a, const MeshScene& b) { return a.name < b.name; });
  return scenes;
}

/// The polygons as a fan of triangles each: what two triangle tracers can be given alike.
inline PolyMeshData triangulated(const PolyMeshData& data) {
  PolyMeshData out;
  out.positions = data.positions;
  std::size_t first = 0;
  for (const u32 size : data.polygon_sizes) {
    for (u32 k = 2; k < size; ++k)
      add_polygon(
          out, {data.polygon_vertices[first], data.polygon_vertices[first + k - 1], data.polygon_vertices[first + k]});
    first += size;
  }
  return out;
}
