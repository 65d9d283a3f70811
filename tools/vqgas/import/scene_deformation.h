// tools/vqgas/import/scene_deformation.h
//
// Morph targets and skins of a file's meshes, computed vertex by vertex.
#pragma once
#include <assimp/scene.h>

#include <map>
#include <vector>

#include "tools/vqgas/import/scene_nodes.h"
#include "tools/vqgas/source/mesh_builder.h"

/// The bones of each vertex of a mesh.
///
///   influences of vertex v are [first[v]] … [first[v + 1] - 1]
///
/// Weights are positive and sum to 1; a vertex without bones has no influences.
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

  /// True if the file animates the mesh's bones or morph targets.
  bool is_animated(const aiMesh& mesh, uint node) const;

  /// Appends the vertices of a node's mesh at `frame`.
  /// @param worlds    of all nodes at that frame
  /// @param in_world  in world space instead of the node's; required for bones, which move vertices in world space. A
  ///                  vertex without bones, or with a bone that no node has the name of, moves with the mesh's node.
  void add_positions(const aiMesh& mesh, uint node, double frame, const std::vector<SceneNodes::Matrix>& worlds,
                     bool in_world, std::vector<GMathVec3<float>>& positions);

 private:
  void compute_morph(const aiMesh& mesh, uint node, double frame);
  void apply_skin(const aiMesh& mesh, uint node, const std::vector<SceneNodes::Matrix>& worlds);

  const SceneAnimation& animation_;
  const SceneNodes& nodes_;
  std::map<const aiMesh*, SkinWeights> skins_;
  std::vector<GMathVec3<double>> moved_;  ///< scratch: the vertices of one mesh
};
