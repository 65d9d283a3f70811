#include "tools/vqgas/scene_import.h"

#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/scene.h>
#include <assimp/Importer.hpp>

#include <fstream>
#include <iostream>
#include <map>
#include <new>

#include "tools/vqgas/input_error.h"
#include "tools/vqgas/input_file.h"
#include "tools/vqgas/memory_limit.h"

namespace {

/// Whether the header of a PLY file names an element of strips: Assimp takes one for a list of polygons and returns a
/// few wrong ones without a word.
bool has_triangle_strips(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!std::getline(file, line) || !line.starts_with("ply")) return false;
  for (uint lines = 0; lines < 1000 && std::getline(file, line); ++lines) {
    if (line.starts_with("element tristrips")) return true;
    if (line.starts_with("end_header")) return false;
  }
  return false;
}

void check_file(const std::string& path) {
  check_input_file(path);
  if (has_triangle_strips(path))
    throw InputError(path, "holds PLY triangle strips, which cannot be read; only faces can");
}

/// Importers' messages may run over several lines.
std::string make_one_line(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text.empty() ? "cannot be read" : text;
}

/// Some importers chat on the program's own streams; while it lives they speak to nobody.
class SilencedStreams {
 public:
  SilencedStreams() : out_(std::cout.rdbuf(&nobody_)), err_(std::cerr.rdbuf(&nobody_)) {}
  ~SilencedStreams() {
    std::cout.rdbuf(out_);
    std::cerr.rdbuf(err_);
  }
  SilencedStreams(const SilencedStreams&) = delete;
  SilencedStreams& operator=(const SilencedStreams&) = delete;

 private:
  struct Nobody : std::streambuf {
    int overflow(int letter) override { return letter; }
  };
  Nobody nobody_;
  std::streambuf* out_;
  std::streambuf* err_;
};

const aiScene* read_scene(Assimp::Importer& importer, const std::string& path) {
  importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
  const aiScene* scene = importer.ReadFile(path, 0);
  if (scene == nullptr) {
    const std::string fault = importer.GetErrorString();
    if (fault.find("bad_alloc") != std::string::npos) throw std::bad_alloc();
    throw InputError(path, make_one_line(fault));
  }
  if (scene->mRootNode == nullptr || scene->mNumMeshes == 0) throw InputError(path, "holds no mesh");
  return scene;
}

Color get_material_color(const aiMaterial& material, uint group) {
  aiColor3D diffuse;
  if (material.Get(AI_MATKEY_COLOR_DIFFUSE, diffuse) != AI_SUCCESS) return palette_color(group);
  // What importers put where a file is silent.
  const aiColor3D untold(0.6f, 0.6f, 0.6f), white(1.0f, 1.0f, 1.0f);
  if (diffuse == untold || diffuse == white) return palette_color(group);
  const auto channel = [](float value) { return std::clamp(decode_srgb(value), 0.03f, 0.85f); };
  return {channel(diffuse.r), channel(diffuse.g), channel(diffuse.b)};
}

class SceneReader {
 public:
  SceneReader(const std::string& path, const aiScene& scene) : path_(path), scene_(scene) {}

  MeshSource read() {
    read_node(*scene_.mRootNode, aiMatrix4x4());
    if (!has_polygon_) throw InputError(path_, "holds no polygon");
    return builder_.finish();
  }

 private:
  void read_node(const aiNode& node, const aiMatrix4x4& parent) {
    const aiMatrix4x4 matrix = parent * node.mTransformation;
    for (uint k = 0; k < node.mNumMeshes; ++k) {
      if (node.mMeshes[k] >= scene_.mNumMeshes || scene_.mMeshes[node.mMeshes[k]] == nullptr)
        throw InputError(path_, "a node names a mesh that does not exist");
      read_mesh(*scene_.mMeshes[node.mMeshes[k]], matrix);
    }
    // Some importers announce more children than they attach.
    for (uint k = 0; k < node.mNumChildren; ++k) {
      if (node.mChildren[k] != nullptr) read_node(*node.mChildren[k], matrix);
    }
  }

  void read_mesh(const aiMesh& mesh, const aiMatrix4x4& matrix) {
    const uint first_vertex = builder_.get_vertex_count();
    for (uint k = 0; k < mesh.mNumVertices; ++k) {
      const aiVector3D p = matrix * mesh.mVertices[k];
      builder_.add_vertex({p.x, p.y, p.z});
    }
    const uint first_normal = mesh.HasNormals() ? read_normals(mesh, matrix) : 0;
    uint first_uv = 0;
    for (uint k = 0; mesh.HasTextureCoords(0) && k < mesh.mNumVertices; ++k) {
      const aiVector3D& uv = mesh.mTextureCoords[0][k];
      const uint index = builder_.add_uv({uv.x, uv.y, uv.z});
      if (k == 0) first_uv = index;
    }
    const uint group = find_group(mesh);
    for (uint k = 0; k < mesh.mNumFaces; ++k) read_face(mesh, k, group, first_vertex, first_normal, first_uv);
  }

  uint read_normals(const aiMesh& mesh, const aiMatrix4x4& matrix) {
    const aiMatrix3x3 normal_matrix = aiMatrix3x3(matrix).Inverse().Transpose();
    uint first = 0;
    for (uint k = 0; k < mesh.mNumVertices; ++k) {
      const aiVector3D n = normal_matrix * mesh.mNormals[k];
      const uint index = builder_.add_normal(GMathVec3<float>(n.x, n.y, n.z).get_normalized());
      if (k == 0) first = index;
    }
    return first;
  }

  void read_face(const aiMesh& mesh, uint number, uint group, uint first_vertex, uint first_normal, uint first_uv) {
    const aiFace& face = mesh.mFaces[number];
    vertices_.clear(), normals_.clear(), uvs_.clear();
    for (uint k = 0; k < face.mNumIndices; ++k) {
      const uint index = face.mIndices[k];
      if (index >= mesh.mNumVertices)
        throw InputError(path_, "polygon " + std::to_string(number) + " names a vertex that does not exist");
      vertices_.push_back(first_vertex + index);
      if (mesh.HasNormals()) normals_.push_back(first_normal + index);
      if (mesh.HasTextureCoords(0)) uvs_.push_back(first_uv + index);
    }
    has_polygon_ |= face.mNumIndices >= 3;
    builder_.add_polygon(vertices_, group, normals_, uvs_);
  }

  uint find_group(const aiMesh& mesh) {
    std::string name;
    const aiMaterial* material =
        mesh.mMaterialIndex < scene_.mNumMaterials ? scene_.mMaterials[mesh.mMaterialIndex] : nullptr;
    if (material != nullptr) name = material->GetName().C_Str();
    if (name.empty() || name == AI_DEFAULT_MATERIAL_NAME) name = mesh.mName.C_Str();
    if (name.empty()) name = "default";
    const auto [place, is_new] = groups_.try_emplace(name, static_cast<uint>(groups_.size()));
    if (is_new) {
      const uint group = place->second;
      builder_.add_group(name, material != nullptr ? get_material_color(*material, group) : palette_color(group));
    }
    return place->second;
  }

  const std::string& path_;
  const aiScene& scene_;
  MeshBuilder builder_;
  std::map<std::string, uint> groups_;
  std::vector<u32> vertices_, normals_, uvs_;
  bool has_polygon_ = false;
};

}  // namespace

SceneSource import_scene(const std::string& path, const SceneTimes& /*times*/) {
  check_file(path);
  try {
    const MemoryLimit limit;
    const SilencedStreams silence;
    Assimp::Importer importer;
    SceneSource scene;
    scene.add_object("", SceneReader(path, *read_scene(importer, path)).read());
    return scene;
  } catch (const InputError&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw InputError(path, "asks for more memory than there is");
  } catch (const std::exception& error) {
    throw InputError(path, make_one_line(error.what()));
  }
}
