// tools/vqgas/import/scene_animation.h
//
// The animation of a file, as curves over frames: matrices of nodes, weights of morph targets.
#pragma once
#include <assimp/anim.h>
#include <assimp/quaternion.h>
#include <assimp/scene.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/vqgas/source/scene_source.h"
#include "vq_gmath/gmath_matrix.h"

/// Keys in the order of their times, which are finite; at two keys of one time the value jumps. Constant before the
/// first and after the last key.
template <class T>
struct AnimationCurve {
  struct Key {
    double frame;
    T value;
  };
  std::vector<Key> keys;

  void sort();
  /// Finds the keys around `frame` and returns its fraction between them, 0 to 1. There must be a key.
  double find(double frame, const Key*& before, const Key*& after) const;
};

using AnimationVector = GMathVec3<double>;
using AnimationQuaternion = aiQuaterniont<double>;

/// A node's matrix relative to its parent over time: rotations are interpolated on the sphere the shortest way,
/// positions and scales linearly. A channel without keys keeps the node's own value.
class NodeMotion {
 public:
  NodeMotion(const aiNodeAnim& channel, const aiNode& node, double frames_per_tick);

  GMathMatrix4x4<double> get_matrix(double frame) const;
  void add_key_frames(std::vector<double>& frames) const;
  /// Sum of the rotation angle, in radians, and the logarithm of the scaling between two frames that have no key
  /// between them: a measure of how far points leave straight lines.
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
  /// The target's weight at a frame; `rest` for a target without keys.
  double get_weight(uint target, double frame, double rest) const;

 private:
  std::vector<AnimationCurve<double>> weights_;
};

/// The animations of a file that are played: the first, and each other that moves no node of an animation already
/// played. So the alternative actions of one figure are not mixed, and several figures with an action each all move.
/// The default length of a tick is a frame.
class SceneAnimation {
 public:
  SceneAnimation(const aiScene& scene, double frames_per_second);

  // Empty or null for a static node or mesh.
  std::optional<NodeMotion> find_motion(const aiNode& node) const;
  const MorphMotion* find_morph(const aiNode& node, const aiMesh& mesh) const;
  /// From the first key to the last of all animations that are played; none without keys.
  const std::optional<SceneFileNotes::Frames>& get_frames() const { return frames_; }

 private:
  struct Channel {
    const aiNodeAnim* channel;
    double frames_per_tick;
  };
  void play(const aiAnimation& animation, double frames_per_second);
  template <class Key>
  void add_frames(const Key* keys, uint count, double frames_per_tick);

  std::unordered_map<std::string, Channel> channels_;
  std::unordered_map<std::string, MorphMotion> morphs_;
  std::optional<SceneFileNotes::Frames> frames_;
};
