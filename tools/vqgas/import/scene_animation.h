// tools/vqgas/import/scene_animation.h
//
// What moves in a file, as curves over frames: places of nodes, weights of morph targets.
#pragma once
#include <assimp/anim.h>
#include <assimp/quaternion.h>
#include <assimp/scene.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "vq_gmath/gmath_matrix.h"

/// Keys in the order of their times, which are finite; where two have the same, the value jumps from one to the other.
/// Before the first and after the last it stays.
template <class T>
struct AnimationCurve {
  struct Key {
    double frame;
    T value;
  };
  std::vector<Key> keys;

  void sort();
  /// The keys around `frame` and how far it is from the first to the second. Only with keys.
  double find(double frame, const Key*& before, const Key*& after) const;
};

using AnimationVector = GMathVec3<double>;
using AnimationQuaternion = aiQuaterniont<double>;

/// A node's place relative to its parent's: rotations take the shortest way from key to key on the sphere, everything
/// else straight lines. What a file leaves unkeyed is as in the node itself.
class NodeMotion {
 public:
  NodeMotion(const aiNodeAnim& channel, const aiNode& node, double frames_per_tick);

  GMathMatrix4x4<double> get_matrix(double frame) const;
  void add_key_frames(std::vector<double>& frames) const;
  /// How far the node turns, in radians, and how much it is scaled, as a logarithm, between two frames without a key of
  /// it between them: by that much what is carried along leaves the straight line.
  double get_bend(double begin, double end) const;

 private:
  AnimationQuaternion get_rotation(double frame) const;

  AnimationCurve<AnimationVector> position_, scale_;
  AnimationCurve<AnimationQuaternion> rotation_;
};

/// The weight of each morph target of a mesh.
class MorphMotion {
 public:
  MorphMotion(const aiMeshMorphAnim& channel, double frames_per_tick);
  /// The target's weight; `rest` for one without keys.
  double get_weight(uint target, double frame, double rest) const;

 private:
  std::vector<AnimationCurve<double>> weights_;
};

/// The animations of a file that are played: the first, and of the others those that move nothing which is moved
/// already. So the many actions of one figure do not mix, and figures with an action each move all. Where a file does
/// not tell how long a tick is, it is a frame.
class SceneAnimation {
 public:
  SceneAnimation(const aiScene& scene, double frames_per_second);

  // Nothing for what stands still.
  std::optional<NodeMotion> find_motion(const aiNode& node) const;
  const MorphMotion* find_morph(const aiNode& node, const aiMesh& mesh) const;

 private:
  struct Channel {
    const aiNodeAnim* channel;
    double frames_per_tick;
  };
  void play(const aiAnimation& animation, double frames_per_second);

  std::unordered_map<std::string, Channel> channels_;
  std::unordered_map<std::string, MorphMotion> morphs_;
};
