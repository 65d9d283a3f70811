// tools/vqgas/import/scene_nodes.h
//
// The nodes of a file with their places in the world over time.
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
  bool is_moving = false;            ///< or one that it hangs from
};

class SceneNodes {
 public:
  using Matrix = GMathMatrix4x4<double>;

  /// Names should be unique; of nodes with the same name the first is the one that a channel moves.
  SceneNodes(const aiNode& root, const SceneAnimation& animation);

  const std::vector<SceneNode>& get_nodes() const { return nodes_; }
  /// The first node of that name, or none.
  uint find(const aiString& name) const;

  /// From each node to the world at `frame`.
  void compute_worlds(double frame, std::vector<Matrix>& worlds) const;

  /// The places of the wanted nodes: a single key for what does not move in these times, else keys where the file has
  /// them for the node or what it hangs from, at the samples of the shutter, and between where that turns or scales
  /// much, for the host blends matrices entry by entry. Where that were more than `most_frames` for a node or
  /// `most_keys` for all, frames in even steps replace the file's.
  std::vector<std::vector<ModuleMatrixKey>> compute_keys(const std::vector<u8>& is_wanted,
                                                         const SceneTimes& times) const;
  static constexpr std::size_t most_frames = 1024, most_keys = std::size_t{1} << 20;

 private:
  std::vector<double> find_frames(const std::vector<u8>& is_wanted, const SceneTimes& times) const;
  uint get_part_count(const std::vector<u8>& is_wanted, double begin, double end, std::vector<double>& bends) const;

  std::vector<SceneNode> nodes_;
  std::unordered_map<std::string, uint> by_name_;
};

/// The moments at which a shutter is sampled, ends included; one for a shutter that does not stay open.
std::vector<double> get_sample_frames(const SceneTimes& times);

GMathMatrix4x4<double> convert_matrix(const aiMatrix4x4& from);
