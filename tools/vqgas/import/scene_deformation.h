// tools/vqgas/import/scene_deformation.h
//
// Morph targets and skins of a file's meshes, computed vertex by vertex.
#pragma once
#include <assimp/scene.h>

#include <map>
#include <vector>

#include "tools/vqgas/import/scene_nodes.h"
#include "tools/vqgas/source/mesh_builder.h"

/// The bones of a mesh, turned round: what holds each vertex.
///
///   influences of vertex v are [first[v]] … [first[v + 1] - 1]
///
/// Weights are positive and add up to 1; a vertex that no bone holds has no influence.
struct SkinWeights {
  struct Influence {
    uint bone;
    float weight;
  };
  std::vector<uint> first;
  std::vector<Influence> influences;

  explicit SkinWeights(const aiMesh& mesh);
};

class SceneDeformation {
 public:
  SceneDeformation(const SceneAnimation& animation, const SceneNodes& nodes) : animation_(animation), nodes_(nodes) {}

  static bool has_skin(const aiMesh& mesh) { return mesh.mNumBones > 0 && mesh.mBones != nullptr; }
  static bool has_morphs(const aiMesh& mesh) { return mesh.mNumAnimMeshes > 0 && mesh.mAnimMeshes != nullptr; }

  /// Whether the file moves its bones or morph targets.
  bool is_animated(const aiMesh& mesh, uint node) const;

  /// Appends the vertices of a node's mesh at `frame`.
  /// @param worlds    of all nodes at that frame
  /// @param in_world  in the world instead of in the node's space; bones need it, for they hold vertices in the world,
  ///                  wherever the mesh's own node is. What no bone holds, and what is held by a bone that no node has
  ///                  the name of, stays with the mesh's node.
  void add_positions(const aiMesh& mesh, uint node, double frame, const std::vector<SceneNodes::Matrix>& worlds,
                     bool in_world, std::vector<GMathVec3<float>>& positions);

 private:
  void compute_morph(const aiMesh& mesh, uint node, double frame);
  void apply_skin(const aiMesh& mesh, uint node, const std::vector<SceneNodes::Matrix>& worlds);

  const SceneAnimation& animation_;
  const SceneNodes& nodes_;
  std::map<const aiMesh*, SkinWeights> skins_;
  std::vector<GMathVec3<double>> moved_;  ///< the vertices on their way
};
