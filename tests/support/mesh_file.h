// tests/support/mesh_file.h
//
// Reads just enough of two file formats for a folder of test meshes: OBJ with `v` and `f` lines, and PLY, binary little
// endian, with float coordinates first in each vertex and one list of faces.
#pragma once
#include <cstdlib>
#include <cstring>
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

inline bool read_ply(std::istream& in, PolyMeshData& data) {
  std::string line, element;
  std::size_t vertices = 0, faces = 0, vertex_bytes = 0;
  bool binary = false, short_lists = false;
  while (std::getline(in, line) && line.rfind("end_header", 0) != 0) {
    std::istringstream words(line);
    std::string word, type;
    words >> word;
    if (word == "format") binary = (words >> type) && type == "binary_little_endian";
    if (word == "element") {
      words >> element;
      words >> (element == "vertex" ? vertices : faces);
    }
    if (word == "property" && element == "vertex") {
      words >> type;
      if (type != "float" && type != "float32") return false;
      vertex_bytes += sizeof(float);
    }
    if (word == "property" && element == "face") short_lists = line.find("list uchar int ") != std::string::npos;
  }
  if (!binary || !short_lists || vertex_bytes < 12) return false;
  std::vector<char> record(vertex_bytes);
  for (std::size_t k = 0; k < vertices && in.read(record.data(), static_cast<std::streamsize>(vertex_bytes)); ++k) {
    data.positions.emplace_back();
    std::memcpy(static_cast<void*>(&data.positions.back()), record.data(), sizeof(GMathVec3<float>));
  }
  for (std::size_t k = 0; k < faces; ++k) {
    std::vector<u32> corners(static_cast<unsigned char>(in.get()));
    in.read(reinterpret_cast<char*>(corners.data()), static_cast<std::streamsize>(corners.size() * sizeof(u32)));
    if (!in) return false;
    for (const u32 corner : corners)
      if (corner >= data.positions.size()) return false;
    add_polygon(data, corners);
  }
  return faces > 0;
}

/// The meshes of the folder that the environment variable VQ_TEST_DATA names, by file name; none without it. A file
/// that is not understood is told and left out.
inline std::vector<MeshScene> read_mesh_folder() {
  std::vector<MeshScene> scenes;
  const char* folder = std::getenv("VQ_TEST_DATA");
  if (folder == nullptr || !std::filesystem::is_directory(folder)) return scenes;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string kind = entry.path().extension().string();
    if (kind != ".obj" && kind != ".ply") continue;
    MeshScene scene{entry.path().filename().string(), {}};
    std::ifstream file(entry.path(), std::ios::binary);
    if (kind == ".obj" ? read_obj(file, scene.data) : read_ply(file, scene.data)) {
      scenes.push_back(std::move(scene));
    } else {
      std::printf("%s was left out: not a mesh that this test reads\n", scene.name.c_str());
    }
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
