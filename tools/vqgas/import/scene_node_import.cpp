#include "tools/vqgas/import/scene_node_import.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tools/vqgas/import/scene_animation.h"
#include "tools/vqgas/import/scene_deformation.h"
#include "tools/vqgas/import/scene_mesh_reader.h"
#include "tools/vqgas/import/scene_nodes.h"
#include "tools/vqgas/support/input_error.h"

namespace {

/// Reads a file's nodes as objects.
class NodeImporter {
 public:
  NodeImporter(const std::string& path, const aiScene& scene, const SceneTimes& times)
      : path_(path),
        times_(times),
        reader_(path, scene),
        animation_(scene, times.frames_per_second),
        nodes_(*scene.mRootNode, animation_),
        deformation_(animation_, nodes_) {}

  SceneSource read() {
    for (uint node = 0; node < nodes_.get_nodes().size(); ++node) {
      if (nodes_.get_nodes()[node].source->mNumMeshes > 0) read_node(node);
    }
    bake();
    set_keys();
    if (!reader_.has_polygon()) throw InputError(path_, "holds no polygon");
    source_.notes.frames = animation_.get_frames();
    return std::move(source_);
  }

 private:
  /// A node with deforming meshes, which has its own shape.
  struct Deforming {
    uint node, object;
    bool in_world;  ///< space of the shape's vertices: world or node
    std::vector<const aiMesh*> meshes;
    std::vector<std::vector<GMathVec3<float>>> samples;
  };

  void read_node(uint index) {
    const aiNode& node = *nodes_.get_nodes()[index].source;
    Deforming deforming{index, static_cast<uint>(source_.objects.size()), false, {}, {}};
    bool is_deforming = false;
    for (uint k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = reader_.get_mesh(node, k);
      deforming.meshes.push_back(&mesh);
      deforming.in_world |= SceneDeformation::has_skin(mesh);
      is_deforming |= SceneDeformation::has_skin(mesh) || SceneDeformation::has_morphs(mesh);
    }
    ObjectSource& object = source_.objects.emplace_back(ObjectSource{node.mName.C_Str()});
    object.is_animated = nodes_.get_nodes()[index].is_moving;
    for (const aiMesh* mesh : deforming.meshes) object.is_animated |= deformation_.is_animated(*mesh, index);
    object_nodes_.push_back(deforming.in_world ? core_invalid_index : index);
    if (is_deforming) {
      deforming_.push_back(std::move(deforming));
    } else {
      object.shape = find_shape(deforming.meshes);
    }
  }

  /// Nodes with the same meshes share a shape.
  uint find_shape(const std::vector<const aiMesh*>& meshes) {
    const auto [place, is_new] = shapes_.try_emplace(meshes, static_cast<uint>(source_.shapes.size()));
    if (is_new) {
      for (const aiMesh* mesh : meshes) reader_.add(*mesh);
      add_shape(reader_.finish(), *meshes.front());
    }
    return place->second;
  }

  uint add_shape(MeshSource&& shape, const aiMesh& first) {
    shape.name = first.mName.length == 0 ? path_ : path_ + ":" + first.mName.C_Str();
    source_.shapes.emplace_back(std::move(shape));
    return static_cast<uint>(source_.shapes.size() - 1);
  }

  void bake() {
    if (deforming_.empty()) return;
    const std::vector<double> frames = get_sample_frames(times_);
    std::vector<SceneNodes::Matrix> worlds;
    for (const double frame : frames) {
      nodes_.compute_worlds(frame, worlds);
      for (Deforming& at : deforming_) {
        std::vector<GMathVec3<float>>& positions = at.samples.emplace_back();
        for (const aiMesh* mesh : at.meshes)
          deformation_.add_positions(*mesh, at.node, frame, worlds, at.in_world, positions);
      }
    }
    for (Deforming& at : deforming_) source_.objects[at.object].shape = add_deforming(at, frames);
  }

  uint add_deforming(Deforming& at, const std::vector<double>& frames) {
    const GMathVec3<float>* positions = at.samples.front().data();
    for (const aiMesh* mesh : at.meshes) {
      reader_.add(*mesh, positions);
      positions += mesh->mNumVertices;
    }
    const bool is_still = std::all_of(at.samples.begin() + 1, at.samples.end(),
                                      [&](const auto& sample) { return sample == at.samples.front(); });
    if (is_still) return add_shape(reader_.finish(), *at.meshes.front());
    MeshSource shape = reader_.finish_unwelded();
    shape.data.motion_positions = std::move(at.samples);
    shape.data.motion_begin = times_.open;
    shape.data.motion_step = (times_.close - times_.open) / double(frames.size() - 1);
    return add_shape(std::move(shape), *at.meshes.front());
  }

  /// Sets the objects' matrices; a shape in world space has none.
  void set_keys() {
    std::vector<u8> is_needed(nodes_.get_nodes().size(), 0);
    for (const uint node : object_nodes_) {
      if (node != core_invalid_index) is_needed[node] = 1;
    }
    std::vector<std::vector<ModuleMatrixKey>> keys = nodes_.compute_keys(is_needed, times_);
    for (std::size_t object = 0; object < object_nodes_.size(); ++object) {
      if (object_nodes_[object] != core_invalid_index)
        source_.objects[object].keys = std::move(keys[object_nodes_[object]]);
    }
  }

  const std::string& path_;
  const SceneTimes& times_;
  SceneMeshReader reader_;
  const SceneAnimation animation_;
  const SceneNodes nodes_;
  SceneDeformation deformation_;
  SceneSource source_;
  std::vector<uint> object_nodes_;  ///< of each object the node of its matrices, or none
  std::map<std::vector<const aiMesh*>, uint> shapes_;
  std::vector<Deforming> deforming_;
};

}  // namespace

SceneSource import_nodes(const std::string& path, const aiScene& scene, const SceneTimes& times) {
  return NodeImporter(path, scene, times).read();
}
