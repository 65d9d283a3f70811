#include "tools/vqgas/import/scene_deformation.h"

#include <cmath>

namespace {

using Matrix = SceneNodes::Matrix;
using Point = GMathVec3<double>;

Point convert(const aiVector3D& v) { return {v.x, v.y, v.z}; }

/// Calls `visit(bone, vertex, weight)` for each valid weight.
template <class Visit>
void for_each_weight(const aiMesh& mesh, const Visit& visit) {
  for (uint bone = 0; bone < mesh.mNumBones; ++bone) {
    const aiBone* from = mesh.mBones[bone];
    for (uint k = 0; from != nullptr && from->mWeights != nullptr && k < from->mNumWeights; ++k) {
      const aiVertexWeight& weight = from->mWeights[k];
      if (weight.mVertexId < mesh.mNumVertices && weight.mWeight > 0.0f && std::isfinite(weight.mWeight))
        visit(bone, weight.mVertexId, weight.mWeight);
    }
  }
}

}  // namespace

SkinWeights::SkinWeights(const aiMesh& mesh) : first(mesh.mNumVertices + 1, 0) {
  std::vector<double> sums(mesh.mNumVertices, 0.0);
  for_each_weight(mesh, [&](uint, uint vertex, float weight) {
    ++first[vertex + 1];
    sums[vertex] += weight;
  });
  for (uint vertex = 0; vertex < mesh.mNumVertices; ++vertex) first[vertex + 1] += first[vertex];
  influences.resize(first.back());
  std::vector<uint> next(first.begin(), first.end() - 1);
  for_each_weight(mesh, [&](uint bone, uint vertex, float weight) {
    influences[next[vertex]++] = {bone, static_cast<float>(weight / sums[vertex])};
  });
}

bool SceneDeformation::is_animated(const aiMesh& mesh, uint node) const {
  if (has_morphs(mesh) && animation_.find_morph(*nodes_.get_nodes()[node].source, mesh) != nullptr) return true;
  for (uint bone = 0; bone < mesh.mNumBones && has_skin(mesh); ++bone) {
    const uint holder = mesh.mBones[bone] != nullptr ? nodes_.find(mesh.mBones[bone]->mName) : core_invalid_index;
    if (holder != core_invalid_index && nodes_.get_nodes()[holder].is_moving) return true;
  }
  return false;
}

void SceneDeformation::add_positions(const aiMesh& mesh, uint node, double frame, const std::vector<Matrix>& worlds,
                                     bool in_world, std::vector<GMathVec3<float>>& positions) {
  moved_.clear();
  for (uint k = 0; k < mesh.mNumVertices; ++k) moved_.push_back(convert(mesh.mVertices[k]));
  if (has_morphs(mesh)) compute_morph(mesh, node, frame);
  if (in_world) apply_skin(mesh, node, worlds);
  for (const Point& p : moved_) positions.emplace_back(p);
}

void SceneDeformation::compute_morph(const aiMesh& mesh, uint node, double frame) {
  const MorphMotion* motion = animation_.find_morph(*nodes_.get_nodes()[node].source, mesh);
  const bool is_relative = mesh.mMethod == aiMorphingMethod_MORPH_RELATIVE;  // targets are offsets
  for (uint target = 0; target < mesh.mNumAnimMeshes; ++target) {
    const aiAnimMesh* to = mesh.mAnimMeshes[target];
    if (to == nullptr || to->mVertices == nullptr || to->mNumVertices != mesh.mNumVertices) continue;
    const double weight = motion != nullptr ? motion->get_weight(target, frame, to->mWeight) : to->mWeight;
    if (weight == 0.0 || !std::isfinite(weight)) continue;
    for (uint k = 0; k < mesh.mNumVertices; ++k) {
      const Point base = is_relative ? Point() : convert(mesh.mVertices[k]);
      moved_[k] += (convert(to->mVertices[k]) - base) * weight;
    }
  }
}

void SceneDeformation::apply_skin(const aiMesh& mesh, uint node, const std::vector<Matrix>& worlds) {
  std::vector<Matrix> bones(has_skin(mesh) ? mesh.mNumBones : 0, worlds[node]);
  for (std::size_t bone = 0; bone < bones.size(); ++bone) {
    if (mesh.mBones[bone] == nullptr) continue;
    const uint holder = nodes_.find(mesh.mBones[bone]->mName);
    if (holder != core_invalid_index) bones[bone] = worlds[holder] * convert_matrix(mesh.mBones[bone]->mOffsetMatrix);
  }
  const SkinWeights& skin = skins_.try_emplace(&mesh, mesh).first->second;
  for (uint k = 0; k < mesh.mNumVertices; ++k) {
    if (skin.first[k] == skin.first[k + 1]) {
      moved_[k] = worlds[node].transform_point(moved_[k]);
      continue;
    }
    Point sum;
    for (uint at = skin.first[k]; at < skin.first[k + 1]; ++at) {
      const SkinWeights::Influence& influence = skin.influences[at];
      sum += bones[influence.bone].transform_point(moved_[k]) * influence.weight;
    }
    moved_[k] = sum;
  }
}
