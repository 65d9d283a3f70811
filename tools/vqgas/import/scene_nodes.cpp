#include "tools/vqgas/import/scene_nodes.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using Matrix = SceneNodes::Matrix;

/// A blend of two matrices that differ by this rotation shrinks by a thousandth.
constexpr double most_bend = 5.0 * std::numbers::pi / 180.0;

/// True if blending the keys around it gives `middle`, except for rounding.
bool lies_between(const ModuleMatrixKey& before, const ModuleMatrixKey& middle, const ModuleMatrixKey& after) {
  const double fraction = (middle.time - before.time) / (after.time - before.time);
  for (uint k = 0; k < 16; ++k) {
    const double a = before.matrix.m[k / 4][k % 4], b = after.matrix.m[k / 4][k % 4];
    const double tolerance = 1e-12 * (std::abs(a) + std::abs(b));
    if (!(std::abs((1.0 - fraction) * a + fraction * b - middle.matrix.m[k / 4][k % 4]) <= tolerance)) return false;
  }
  return true;
}

void add_key(std::vector<ModuleMatrixKey>& keys, const ModuleMatrixKey& key) {
  const std::size_t count = keys.size();
  if (count > 1 && lies_between(keys[count - 2], keys[count - 1], key)) keys.pop_back();
  keys.push_back(key);
}

void sort_unique(std::vector<double>& frames) {
  std::sort(frames.begin(), frames.end());
  frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
}

/// Keeps the frames within the times, one before and one after.
void clip(std::vector<double>& frames, const SceneTimes& times) {
  auto first = std::upper_bound(frames.begin(), frames.end(), times.open);
  auto last = std::lower_bound(first, frames.end(), times.close);
  if (first != frames.begin()) --first;
  if (last != frames.end()) ++last;
  frames = std::vector<double>(first, last);
}

}  // namespace

GMathMatrix4x4<double> convert_matrix(const aiMatrix4x4& from) {
  Matrix matrix;
  for (uint r = 0; r < 4; ++r) {
    for (uint c = 0; c < 4; ++c) matrix.m[r][c] = from[r][c];
  }
  return matrix;
}

std::vector<double> get_sample_frames(const SceneTimes& times) {
  constexpr uint default_samples = 9;
  if (!(times.close > times.open)) return {times.open};
  const uint count = std::max(times.samples.value_or(default_samples), 2u);
  std::vector<double> frames(count);
  for (uint k = 0; k < count; ++k) frames[k] = times.open + k * ((times.close - times.open) / (count - 1));
  return frames;
}

SceneNodes::SceneNodes(const aiNode& root, const SceneAnimation& animation) {
  struct Open {
    const aiNode* node;
    uint parent;
  };
  // An explicit stack instead of recursion: files may nest deeply.
  std::vector<Open> open = {{&root, core_invalid_index}};
  while (!open.empty()) {
    const Open at = open.back();
    open.pop_back();
    const auto index = static_cast<uint>(nodes_.size());
    SceneNode& node = nodes_.emplace_back();
    node.source = at.node;
    node.parent = at.parent;
    node.rest = convert_matrix(at.node->mTransformation);
    const bool is_first = by_name_.try_emplace(at.node->mName.C_Str(), index).second;
    if (is_first) node.motion = animation.find_motion(*at.node);
    node.is_moving = node.motion.has_value() || (at.parent != core_invalid_index && nodes_[at.parent].is_moving);
    // Some importers count more children than they set.
    for (uint k = at.node->mNumChildren; k-- > 0;) {
      if (at.node->mChildren[k] != nullptr) open.push_back({at.node->mChildren[k], index});
    }
  }
}

uint SceneNodes::find(const aiString& name) const {
  const auto found = by_name_.find(name.C_Str());
  return found == by_name_.end() ? core_invalid_index : found->second;
}

void SceneNodes::compute_worlds(double frame, std::vector<Matrix>& worlds) const {
  worlds.resize(nodes_.size());
  for (std::size_t k = 0; k < nodes_.size(); ++k) {
    const SceneNode& node = nodes_[k];
    const Matrix local = node.motion ? node.motion->get_matrix(frame) : node.rest;
    worlds[k] = node.parent == core_invalid_index ? local : worlds[node.parent] * local;
  }
}

/// Number of parts into which to divide the time between two frames that have no key between them.
uint SceneNodes::get_part_count(const std::vector<u8>& is_needed, double begin, double end,
                                std::vector<double>& bends) const {
  double most = 0.0;
  bends.assign(nodes_.size(), 0.0);
  for (std::size_t k = 0; k < nodes_.size(); ++k) {
    if (!nodes_[k].is_moving) continue;
    if (nodes_[k].parent != core_invalid_index) bends[k] = bends[nodes_[k].parent];
    if (nodes_[k].motion) bends[k] += nodes_[k].motion->get_bend(begin, end);
    if (is_needed[k] != 0) most = std::max(most, bends[k]);
  }
  return static_cast<uint>(std::clamp(std::ceil(most / most_bend), 1.0, double(most_frames)));
}

std::vector<double> SceneNodes::find_frames(const std::vector<u8>& is_needed, const SceneTimes& times) const {
  std::vector<double> samples = get_sample_frames(times);
  if (samples.size() < 2) return samples;
  std::vector<u8> carries(is_needed);
  std::vector<double> file_frames;
  std::size_t moving_count = 1;
  for (std::size_t k = nodes_.size(); k-- > 0;) {
    if (carries[k] == 0) continue;
    if (is_needed[k] != 0 && nodes_[k].is_moving) ++moving_count;
    if (nodes_[k].parent != core_invalid_index) carries[nodes_[k].parent] = 1;
    if (nodes_[k].motion) nodes_[k].motion->add_key_frames(file_frames);
  }
  sort_unique(file_frames);
  clip(file_frames, times);

  const std::size_t most = std::clamp(most_keys / moving_count, std::size_t{2}, most_frames);
  std::vector<double> frames, bends;
  for (std::size_t k = 0; k < file_frames.size() && frames.size() <= most; ++k) {
    frames.push_back(file_frames[k]);
    if (k + 1 == file_frames.size()) break;
    const uint parts = get_part_count(is_needed, file_frames[k], file_frames[k + 1], bends);
    const double step = (file_frames[k + 1] - file_frames[k]) / parts;
    for (uint part = 1; part < parts; ++part) {
      const double frame = file_frames[k] + step * part;
      if (frame + step > times.open && frame - step < times.close) frames.push_back(frame);
    }
  }
  if (frames.size() > most) {
    frames.clear();
    for (std::size_t k = 0; k < most; ++k)
      frames.push_back(times.open + (times.close - times.open) * double(k) / double(most - 1));
  }
  frames.insert(frames.end(), samples.begin(), samples.end());
  sort_unique(frames);
  return frames;
}

std::vector<std::vector<ModuleMatrixKey>> SceneNodes::compute_keys(const std::vector<u8>& is_needed,
                                                                   const SceneTimes& times) const {
  std::vector<std::vector<ModuleMatrixKey>> keys(nodes_.size());
  std::vector<Matrix> worlds;
  for (const double frame : find_frames(is_needed, times)) {
    compute_worlds(frame, worlds);
    for (std::size_t k = 0; k < nodes_.size(); ++k) {
      if (is_needed[k] != 0 && (nodes_[k].is_moving || keys[k].empty())) add_key(keys[k], {frame, worlds[k]});
    }
  }
  for (std::vector<ModuleMatrixKey>& list : keys) {
    if (list.size() == 2 && list[0].matrix == list[1].matrix) list.pop_back();
  }
  return keys;
}
