#include "tools/vqgas/import/scene_import.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <assimp/Importer.hpp>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <new>
#include <span>

#include "tools/vqgas/import/gltf_check.h"
#include "tools/vqgas/import/import_guard.h"
#include "tools/vqgas/import/obj_check.h"
#include "tools/vqgas/import/point_ply.h"
#include "tools/vqgas/import/scene_mesh_reader.h"
#include "tools/vqgas/import/scene_node_import.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/quote.h"

namespace {

/// True if the header of a PLY file has an element of triangle strips: Assimp reads it as a list of polygons and
/// returns a few wrong ones without an error.
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

bool has_extension(const std::string& path, std::initializer_list<const char*> list) {
  return std::find(list.begin(), list.end(), get_extension(path)) != list.end();
}

/// Returns what to read instead of the file; empty: the file.
std::string check_file(const std::string& path) {
  check_input_file(path);
  if (has_triangle_strips(path))
    throw InputError(path, "holds PLY triangle strips, which cannot be read; only faces can");
  // Assimp loops for minutes over a damaged header, and reads behind the end of a file that is cut off.
  if (get_extension(path) == ".ply") check_ply(path);
  if (get_extension(path) == ".obj") return check_obj(path);
  return has_extension(path, {".gltf", ".glb"}) ? check_gltf(path) : std::string();
}

/// The files of the disk, but one of them with other bytes.
class ReplacedFile final : public Assimp::DefaultIOSystem {
 public:
  ReplacedFile(const std::string& path, const std::string& bytes) : path_(path), bytes_(bytes) {}
  Assimp::IOStream* Open(const char* name, const char* mode) override {
    if (name != path_) return DefaultIOSystem::Open(name, mode);
    return new Assimp::MemoryIOStream(reinterpret_cast<const u8*>(bytes_.data()), bytes_.size());
  }

 private:
  const std::string& path_;
  const std::string& bytes_;
};

/// Discards what importers print to std::cout and std::cerr during its lifetime.
class SilencedStreams {
 public:
  SilencedStreams() : out_(std::cout.rdbuf(&null_buffer_)), err_(std::cerr.rdbuf(&null_buffer_)) {}
  ~SilencedStreams() {
    std::cout.rdbuf(out_);
    std::cerr.rdbuf(err_);
  }
  SilencedStreams(const SilencedStreams&) = delete;
  SilencedStreams& operator=(const SilencedStreams&) = delete;

 private:
  struct NullBuffer : std::streambuf {
    int overflow(int letter) override { return letter; }
  };
  NullBuffer null_buffer_;
  std::streambuf* out_;
  std::streambuf* err_;
};

/// False for formats without nodes; nodes that their importers make are groups of faces.
bool has_nodes(const std::string& path) {
  return !has_extension(path, {".nff", ".obj", ".off", ".ply", ".raw", ".stl"});
}

/// The importer of MDL returns all bones of a figure as siblings, though each is relative to another.
bool has_valid_bones(const std::string& path) { return !has_extension(path, {".mdl"}); }

const aiScene* read_scene(Assimp::Importer& importer, const std::string& path) {
  importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
  importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_BONEWEIGHTS);
  const aiScene* scene = importer.ReadFile(path, has_valid_bones(path) ? 0u : uint{aiProcess_RemoveComponent});
  if (scene == nullptr) {
    const std::string fault = importer.GetErrorString();
    if (fault.find("bad_alloc") != std::string::npos) throw std::bad_alloc();
    throw InputError(path, make_one_line(fault));
  }
  if (scene->mRootNode == nullptr || scene->mNumMeshes == 0) throw InputError(path, "holds no mesh");
  return scene;
}

/// The whole file as one static mesh.
MeshSource read_flat(const std::string& path, const aiScene& scene) {
  SceneMeshReader reader(path, scene);
  struct Open {
    const aiNode* node;
    aiMatrix4x4 parent;
  };
  std::vector<Open> open = {{scene.mRootNode, aiMatrix4x4()}};
  while (!open.empty()) {
    const aiNode& node = *open.back().node;
    const aiMatrix4x4 matrix = open.back().parent * node.mTransformation;
    open.pop_back();
    for (uint k = 0; k < node.mNumMeshes; ++k) reader.add(reader.get_mesh(node, k), matrix);
    // Some importers count more children than they set.
    for (uint k = node.mNumChildren; k-- > 0;) {
      if (node.mChildren[k] != nullptr) open.push_back({node.mChildren[k], matrix});
    }
  }
  if (!reader.has_polygon()) throw InputError(path, "holds no polygon");
  return reader.finish();
}

/// Pictures have one color a shading group.
std::vector<std::string> list_not_shown(const aiScene& scene) {
  bool has_textures = false, has_opacity = false, has_colors = false;
  for (const aiMaterial* material : std::span(scene.mMaterials, scene.mNumMaterials)) {
    if (material == nullptr) continue;
    for (const aiTextureType type : {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR, aiTextureType_OPACITY})
      has_textures = has_textures || material->GetTextureCount(type) > 0;
    ai_real opacity = 1;
    has_opacity = has_opacity || (material->Get(AI_MATKEY_OPACITY, opacity) == aiReturn_SUCCESS && opacity < 1);
  }
  for (const aiMesh* mesh : std::span(scene.mMeshes, scene.mNumMeshes))
    has_colors = has_colors || (mesh != nullptr && mesh->HasVertexColors(0));
  std::vector<std::string> list;
  if (has_textures) list.emplace_back("textures");
  if (has_colors) list.emplace_back("vertex colors");
  if (has_opacity) list.emplace_back("transparency");
  return list;
}

/// @param bytes  to read instead of the file; empty: the file
SceneSource read_file(const std::string& path, const std::string& bytes, const SceneTimes& times) {
  const SilencedStreams silence;
  Assimp::Importer importer;
  if (!bytes.empty()) importer.SetIOHandler(new ReplacedFile(path, bytes));
  const aiScene& scene = *read_scene(importer, path);
  SceneSource source;
  if (has_nodes(path))
    source = import_nodes(path, scene, times);
  else
    source.add_object("", read_flat(path, scene));
  source.notes.not_shown = list_not_shown(scene);
  return source;
}

}  // namespace

SceneSource import_scene(const std::string& path, const SceneTimes& times) {
  const std::string bytes = check_file(path);
  try {
    SceneSource source;
    run_import_guarded(path, [&] {
      const MemoryLimit limit;
      source = read_file(path, bytes, times);
    });
    return source;
  } catch (const InputError&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw InputError(path, "asks for more memory than there is");
  } catch (const std::exception& error) {
    throw InputError(path, make_one_line(error.what()));
  }
}
