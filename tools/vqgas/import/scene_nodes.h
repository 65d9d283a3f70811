// tools/vqgas/import/scene_nodes.h
//
// The nodes of a file with their world matrices over time.
//
//   nodes_   [node]   parents before children, otherwise in the order of the file
#pragma once
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/vqgas/import/scene_animation.h"
#include "tools/vqgas/source/scene_source.h"

struct SceneNode {
  const aiNode* source = nullptr;
  uint parent = core_invalid_index;
  GMathMatrix4x4<double> rest;       ///< relative to the parent
  std::optional<NodeMotion> motion;  ///< instead of `rest`
  bool is_moving = false;            ///< by itself or with a parent
};

class SceneNodes {
 public:
  using Matrix = GMathMatrix4x4<double>;

  /// Names should be unique; a channel moves the first node of its name.
  SceneNodes(const aiNode& root, const SceneAnimation& animation);

  const std::vector<SceneNode>& get_nodes() const { return nodes_; }
  /// The first node of that name, or core_invalid_index.
  uint find(const aiString& name) const;

  /// World matrices of all nodes at `frame`.
  void compute_worlds(double frame, std::vector<Matrix>& worlds) const;

  /// World matrices of the needed nodes: one key for a node that is static in these times. Else a key at each key of
  /// the node and its parents and at each sample of the shutter, and more where the node turns or scales much, since
  /// the host blends matrices entry by entry. If that gives more than `most_frames` for a node or `most_keys` in all,
  /// frames in even steps replace those of the file.
  std::vector<std::vector<ModuleMatrixKey>> compute_keys(const std::vector<u8>& is_needed,
                                                         const SceneTimes& times) const;
  static constexpr std::size_t most_frames = 1024, most_keys = std::size_t{1} << 20;

 private:
  std::vector<double> find_frames(const std::vector<u8>& is_needed, const SceneTimes& times) const;
  uint get_part_count(const std::vector<u8>& is_needed, double begin, double end, std::vector<double>& bends) const;

  std::vector<SceneNode> nodes_;
  std::unordered_map<std::string, uint> by_name_;
};

/// Sample times of a shutter, both ends included; one if it opens and closes at the same time.
std::vector<double> get_sample_frames(const SceneTimes& times);

GMathMatrix4x4<double> convert_matrix(const aiMatrix4x4& from);
