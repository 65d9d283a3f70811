#include "tools/vqgas/source/mesh_builder.h"

#include <bit>
#include <unordered_map>

namespace {

struct PositionBits {
  u32 x, y, z;
  bool operator==(const PositionBits&) const = default;
};

struct PositionHash {
  std::size_t operator()(const PositionBits& p) const {
    u64 h = p.x * 0x9e3779b97f4a7c15u;
    h = (h ^ (h >> 29) ^ p.y) * 0xbf58476d1ce4e5b9u;
    h = (h ^ (h >> 32) ^ p.z) * 0x94d049bb133111ebu;
    return static_cast<std::size_t>(h ^ (h >> 31));
  }
};

/// Maps -0 and +0 to the same bits.
u32 get_bits(float value) { return std::bit_cast<u32>(value + 0.0f); }

void weld_vertices(PolyMeshData& data) {
  std::unordered_map<PositionBits, u32, PositionHash> known;
  known.reserve(data.positions.size());
  std::vector<u32> new_index(data.positions.size());
  u32 kept = 0;
  for (std::size_t vertex = 0; vertex < data.positions.size(); ++vertex) {
    const GMathVec3<float> p = data.positions[vertex];
    const auto [place, is_new] = known.try_emplace({get_bits(p.x), get_bits(p.y), get_bits(p.z)}, kept);
    if (is_new) data.positions[kept++] = p;
    new_index[vertex] = place->second;
  }
  data.positions.resize(kept);
  data.positions.shrink_to_fit();
  for (u32& vertex : data.polygon_vertices) vertex = new_index[vertex];
}

template <class T>
void append_shifted(std::vector<T>& to, const std::vector<T>& from, T shift) {
  to.reserve(to.size() + from.size());
  for (const T& value : from) to.push_back(value + shift);
}

}  // namespace

uint MeshBuilder::add_group(const std::string& name, const Color& color) {
  source_.data.group_names.emplace_back(name.c_str());
  source_.group_colors.push_back(color);
  return static_cast<uint>(source_.group_colors.size() - 1);
}

uint MeshBuilder::add_vertex(const GMathVec3<double>& position) {
  source_.data.positions.emplace_back(position);
  return get_vertex_count() - 1;
}

uint MeshBuilder::add_normal(const GMathVec3<float>& normal) {
  // Entry 0 is the zero vector: no normal.
  if (source_.data.normals.empty()) source_.data.normals.emplace_back();
  has_normals_ = true;
  source_.data.normals.push_back(normal);
  return static_cast<uint>(source_.data.normals.size() - 1);
}

uint MeshBuilder::add_uv(const GMathVec3<float>& uv) {
  if (uv_map_.positions.empty()) uv_map_.positions.emplace_back();
  has_uvs_ = true;
  uv_map_.positions.push_back(uv);
  return static_cast<uint>(uv_map_.positions.size() - 1);
}

void MeshBuilder::add_polygon(std::span<const u32> vertices, uint group, std::span<const u32> normals,
                              std::span<const u32> uvs) {
  PolyMeshData& data = source_.data;
  data.polygon_sizes.push_back(static_cast<u32>(vertices.size()));
  data.polygon_groups.push_back(group);
  data.polygon_vertices.insert(data.polygon_vertices.end(), vertices.begin(), vertices.end());
  data.corner_normals.insert(data.corner_normals.end(), normals.begin(), normals.end());
  data.corner_normals.resize(data.polygon_vertices.size(), 0);
  uv_map_.corner_positions.insert(uv_map_.corner_positions.end(), uvs.begin(), uvs.end());
  uv_map_.corner_positions.resize(data.polygon_vertices.size(), 0);
}

bool MeshBuilder::append(const MeshSource& other) {
  PolyMeshData& data = source_.data;
  if (!append_motion(other)) return false;
  const u32 first_vertex = get_vertex_count();
  const u32 first_group = static_cast<u32>(source_.group_colors.size());
  const std::size_t first_corner = data.polygon_vertices.size();
  data.positions.insert(data.positions.end(), other.data.positions.begin(), other.data.positions.end());
  data.polygon_sizes.insert(data.polygon_sizes.end(), other.data.polygon_sizes.begin(), other.data.polygon_sizes.end());
  append_shifted(data.polygon_vertices, other.data.polygon_vertices, first_vertex);
  append_shifted(data.polygon_groups, other.data.polygon_groups, first_group);
  data.group_names.insert(data.group_names.end(), other.data.group_names.begin(), other.data.group_names.end());
  source_.group_colors.insert(source_.group_colors.end(), other.group_colors.begin(), other.group_colors.end());

  data.corner_normals.resize(data.polygon_vertices.size(), 0);
  for (std::size_t corner = 0; corner < other.data.corner_normals.size(); ++corner) {
    const GMathVec3<float>& normal = other.data.normals[other.data.corner_normals[corner]];
    if (normal != GMathVec3<float>()) data.corner_normals[first_corner + corner] = add_normal(normal);
  }
  uv_map_.corner_positions.resize(data.polygon_vertices.size(), 0);
  if (!other.data.uv_maps.empty()) {
    const GeometryUvMap& map = other.data.uv_maps.front();
    const u32 first_uv = map.positions.empty() ? 0 : add_uv(map.positions.front());
    uv_map_.positions.insert(uv_map_.positions.end(), map.positions.begin() + 1, map.positions.end());
    for (std::size_t corner = 0; corner < map.corner_positions.size(); ++corner)
      uv_map_.corner_positions[first_corner + corner] = first_uv + map.corner_positions[corner];
  }
  return true;
}

bool MeshBuilder::append_motion(const MeshSource& other) {
  PolyMeshData& data = source_.data;
  const PolyMeshData& more = other.data;
  if (data.motion_positions.empty() && more.motion_positions.empty()) return true;
  if (!data.motion_positions.empty() && !more.motion_positions.empty() &&
      (data.motion_positions.size() != more.motion_positions.size() || data.motion_begin != more.motion_begin ||
       data.motion_step != more.motion_step))
    return false;
  if (data.motion_positions.empty()) {
    data.motion_begin = more.motion_begin;
    data.motion_step = more.motion_step;
    data.motion_positions.assign(more.motion_positions.size(), data.positions);
  }
  for (std::size_t sample = 0; sample < data.motion_positions.size(); ++sample) {
    const auto& added = more.motion_positions.empty() ? more.positions : more.motion_positions[sample];
    data.motion_positions[sample].insert(data.motion_positions[sample].end(), added.begin(), added.end());
  }
  return true;
}

MeshSource MeshBuilder::finish() {
  if (source_.data.motion_positions.empty()) weld_vertices(source_.data);
  return finish_unwelded();
}

MeshSource MeshBuilder::finish_unwelded() {
  if (!has_normals_) source_.data.corner_normals.clear();
  if (has_uvs_) {
    uv_map_.name = "uv";
    source_.data.uv_maps.push_back(std::move(uv_map_));
  }
  return std::move(source_);
}
