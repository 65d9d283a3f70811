#include "tools/vqgas/import/scene_animation.h"

#include <assimp/mesh.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace {

/// More morph targets than any real file has; a damaged count must not exhaust the memory.
constexpr uint most_morph_targets = 65536;

bool is_finite(const AnimationVector& v) { return std::isfinite(v.x + v.y + v.z); }

/// Of length 1, or not finite for a zero quaternion.
AnimationQuaternion make_unit(AnimationQuaternion q) {
  const double length = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
  return {q.w / length, q.x / length, q.y / length, q.z / length};
}

AnimationQuaternion convert(const aiQuaternion& q) { return make_unit({q.w, q.x, q.y, q.z}); }
AnimationVector convert(const aiVector3D& v) { return {v.x, v.y, v.z}; }

bool is_finite(const AnimationQuaternion& q) { return std::isfinite(q.w + q.x + q.y + q.z); }

template <class T, class Key>
void read_curve(AnimationCurve<T>& curve, const Key* keys, uint count, double frames_per_tick) {
  if (keys == nullptr || count < 2) return;  // importers give constant channels one key, at time 0
  for (uint k = 0; k < count; ++k) {
    const double frame = keys[k].mTime * frames_per_tick;
    const T value = convert(keys[k].mValue);
    if (std::isfinite(frame) && is_finite(value)) curve.keys.push_back({frame, value});
  }
  curve.sort();
}

AnimationVector blend(const AnimationCurve<AnimationVector>& curve, double frame) {
  const AnimationCurve<AnimationVector>::Key *before, *after;
  const double fraction = curve.find(frame, before, after);
  return before->value * (1.0 - fraction) + after->value * fraction;
}

/// Removes the number of a mesh in its node, which some importers append as "name*0".
std::string cut_mesh_number(const std::string& name) {
  const std::size_t star = name.find_last_of('*');
  const bool is_number =
      star != std::string::npos && name.find_first_not_of("0123456789", star + 1) == std::string::npos;
  return is_number ? name.substr(0, star) : name;
}

}  // namespace

template <class T>
void AnimationCurve<T>::sort() {
  std::stable_sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) { return a.frame < b.frame; });
}

template <class T>
double AnimationCurve<T>::find(double frame, const Key*& before, const Key*& after) const {
  const auto next =
      std::upper_bound(keys.begin(), keys.end(), frame, [](double at, const Key& key) { return at < key.frame; });
  before = next == keys.begin() ? &keys.front() : &*(next - 1);
  after = next == keys.end() ? &keys.back() : &*next;
  return before == after ? 0.0 : (frame - before->frame) / (after->frame - before->frame);
}

NodeMotion::NodeMotion(const aiNodeAnim& channel, const aiNode& node, double frames_per_tick) {
  read_curve(position_, channel.mPositionKeys, channel.mNumPositionKeys, frames_per_tick);
  read_curve(rotation_, channel.mRotationKeys, channel.mNumRotationKeys, frames_per_tick);
  read_curve(scale_, channel.mScalingKeys, channel.mNumScalingKeys, frames_per_tick);
  aiVector3D scale, position;
  aiQuaternion rotation;
  node.mTransformation.Decompose(scale, rotation, position);
  if (position_.keys.empty()) position_.keys.push_back({0.0, convert(position)});
  if (rotation_.keys.empty()) rotation_.keys.push_back({0.0, convert(rotation)});
  if (scale_.keys.empty()) scale_.keys.push_back({0.0, convert(scale)});
}

AnimationQuaternion NodeMotion::get_rotation(double frame) const {
  const AnimationCurve<AnimationQuaternion>::Key *before, *after;
  const double fraction = rotation_.find(frame, before, after);
  AnimationQuaternion rotation;
  AnimationQuaternion::Interpolate(rotation, before->value, after->value, fraction);
  return make_unit(rotation);
}

GMathMatrix4x4<double> NodeMotion::get_matrix(double frame) const {
  const AnimationVector position = blend(position_, frame), scale = blend(scale_, frame);
  const aiMatrix3x3t<double> turn = get_rotation(frame).GetMatrix();
  GMathMatrix4x4<double> matrix;
  for (uint r = 0; r < 3; ++r) {
    for (uint c = 0; c < 3; ++c) matrix.m[r][c] = turn[r][c] * scale[c];
    matrix.m[r][3] = position[r];
  }
  return matrix;
}

void NodeMotion::add_key_frames(std::vector<double>& frames) const {
  const auto add = [&](const auto& curve) {
    if (curve.keys.size() < 2) return;
    for (const auto& key : curve.keys) frames.push_back(key.frame);
  };
  add(position_), add(rotation_), add(scale_);
}

double NodeMotion::get_bend(double begin, double end) const {
  double bend = 0.0;
  if (rotation_.keys.size() > 1) {
    const AnimationQuaternion a = get_rotation(begin), b = get_rotation(end);
    const double cosine = std::abs(a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z);
    bend += 2.0 * std::acos(std::min(cosine, 1.0));
  }
  if (scale_.keys.size() > 1) {
    const AnimationVector a = blend(scale_, begin), b = blend(scale_, end);
    double most = 0.0;
    for (uint axis = 0; axis < 3; ++axis) {
      if (a[axis] == b[axis]) continue;
      const double ratio = b[axis] / a[axis];
      // A scale that changes its sign has no logarithm; it counts as half a turn.
      most = std::max(most, ratio > 0.0 ? std::min(std::abs(std::log(ratio)), std::numbers::pi) : std::numbers::pi);
    }
    bend += most;
  }
  return bend;
}

MorphMotion::MorphMotion(const aiMeshMorphAnim& channel, double frames_per_tick) {
  for (uint k = 0; channel.mKeys != nullptr && k < channel.mNumKeys; ++k) {
    const aiMeshMorphKey& key = channel.mKeys[k];
    const double frame = key.mTime * frames_per_tick;
    if (!std::isfinite(frame) || key.mValues == nullptr || key.mWeights == nullptr) continue;
    for (uint at = 0; at < key.mNumValuesAndWeights; ++at) {
      const uint target = key.mValues[at];
      if (target >= most_morph_targets || !std::isfinite(key.mWeights[at])) continue;
      if (target >= weights_.size()) weights_.resize(target + 1);
      weights_[target].keys.push_back({frame, key.mWeights[at]});
    }
  }
  for (AnimationCurve<double>& curve : weights_) curve.sort();
}

double MorphMotion::get_weight(uint target, double frame, double rest) const {
  if (target >= weights_.size() || weights_[target].keys.empty()) return rest;
  const AnimationCurve<double>::Key *before, *after;
  const double fraction = weights_[target].find(frame, before, after);
  return before->value * (1.0 - fraction) + after->value * fraction;
}

SceneAnimation::SceneAnimation(const aiScene& scene, double frames_per_second) {
  for (uint k = 0; k < scene.mNumAnimations; ++k) {
    if (scene.mAnimations[k] != nullptr) play(*scene.mAnimations[k], frames_per_second);
  }
}

template <class Key>
void SceneAnimation::add_frames(const Key* keys, uint count, double frames_per_tick) {
  if (keys == nullptr || count < 2) return;  // importers give constant channels one key, at time 0
  for (uint k = 0; k < count; ++k) {
    const double frame = keys[k].mTime * frames_per_tick;
    if (!std::isfinite(frame)) continue;
    if (!frames_) frames_ = {frame, frame};
    frames_->first = std::min(frames_->first, frame);
    frames_->last = std::max(frames_->last, frame);
  }
}

void SceneAnimation::play(const aiAnimation& animation, double frames_per_second) {
  const std::span nodes(animation.mChannels, animation.mNumChannels);
  const std::span morphs(animation.mMorphMeshChannels, animation.mNumMorphMeshChannels);
  const auto is_taken = [](const auto& known, const std::string& name) { return known.find(name) != known.end(); };
  for (const aiNodeAnim* channel : nodes) {
    if (channel != nullptr && is_taken(channels_, channel->mNodeName.C_Str())) return;
  }
  for (const aiMeshMorphAnim* channel : morphs) {
    if (channel != nullptr && is_taken(morphs_, cut_mesh_number(channel->mName.C_Str()))) return;
  }
  const double rate = animation.mTicksPerSecond;
  const double frames_per_tick = rate > 0.0 ? frames_per_second / rate : 1.0;
  for (const aiNodeAnim* channel : nodes) {
    if (channel == nullptr) continue;
    channels_.try_emplace(channel->mNodeName.C_Str(), Channel{channel, frames_per_tick});
    add_frames(channel->mPositionKeys, channel->mNumPositionKeys, frames_per_tick);
    add_frames(channel->mRotationKeys, channel->mNumRotationKeys, frames_per_tick);
    add_frames(channel->mScalingKeys, channel->mNumScalingKeys, frames_per_tick);
  }
  for (const aiMeshMorphAnim* channel : morphs) {
    if (channel == nullptr) continue;
    morphs_.try_emplace(cut_mesh_number(channel->mName.C_Str()), *channel, frames_per_tick);
    add_frames(channel->mKeys, channel->mNumKeys, frames_per_tick);
  }
}

std::optional<NodeMotion> SceneAnimation::find_motion(const aiNode& node) const {
  const auto found = channels_.find(node.mName.C_Str());
  if (found == channels_.end()) return std::nullopt;
  return NodeMotion(*found->second.channel, node, found->second.frames_per_tick);
}

const MorphMotion* SceneAnimation::find_morph(const aiNode& node, const aiMesh& mesh) const {
  for (const aiString* name : {&node.mName, &mesh.mName}) {
    const auto found = morphs_.find(name->C_Str());
    if (found != morphs_.end()) return &found->second;
  }
  return nullptr;
}
