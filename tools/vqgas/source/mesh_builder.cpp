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

template <class T>
void append_shifted(std::vector<T>& to, const std::vector<T>& from, T shift) {
  to.reserve(to.size() + from.size());
  for (const T& value : from) to.push_back(value + shift);
}

}  // namespace

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

GeometryUvMap& MeshBuilder::get_uv_map(uint map) {
  if (map >= uv_maps_.size()) uv_maps_.resize(map + 1);
  return uv_maps_[map];
}

uint MeshBuilder::add_uv(const GMathVec3<float>& uv, uint map) {
  std::vector<GMathVec3<float>>& positions = get_uv_map(map).positions;
  if (positions.empty()) positions.emplace_back();
  positions.push_back(uv);
  return static_cast<uint>(positions.size() - 1);
}

void MeshBuilder::name_uv_map(uint map, const std::string& name) {
  CoreString& known = get_uv_map(map).name;
  if (known.is_empty()) known = name.c_str();
}

void MeshBuilder::set_uvs(uint map, std::span<const u32> uvs) {
  std::vector<u32>& corners = get_uv_map(map).corner_positions;
  corners.resize(source_.data.polygon_vertices.size() - uvs.size(), 0);
  corners.insert(corners.end(), uvs.begin(), uvs.end());
}

void MeshBuilder::add_polygon(std::span<const u32> vertices, uint group, std::span<const u32> normals,
                              std::span<const u32> uvs) {
  PolyMeshData& data = source_.data;
  data.polygon_sizes.push_back(static_cast<u32>(vertices.size()));
  data.polygon_groups.push_back(group);
  data.polygon_vertices.insert(data.polygon_vertices.end(), vertices.begin(), vertices.end());
  data.corner_normals.insert(data.corner_normals.end(), normals.begin(), normals.end());
  data.corner_normals.resize(data.polygon_vertices.size(), 0);
  if (!uvs.empty()) set_uvs(0, uvs);
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
  append_uvs(other.data.uv_maps, first_corner);
  return true;
}

void MeshBuilder::append_uvs(const std::vector<GeometryUvMap>& maps, std::size_t first_corner) {
  for (uint map = 0; map < maps.size(); ++map) {
    const GeometryUvMap& from = maps[map];
    if (from.positions.empty()) continue;
    const u32 first_uv = add_uv(from.positions.front(), map);
    GeometryUvMap& to = uv_maps_[map];
    to.positions.insert(to.positions.end(), from.positions.begin() + 1, from.positions.end());
    to.corner_positions.resize(first_corner, 0);
    append_shifted(to.corner_positions, from.corner_positions, first_uv);
    if (to.name.is_empty()) to.name = from.name;
  }
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
  for (uint map = 0; map < uv_maps_.size(); ++map) {
    GeometryUvMap& uvs = uv_maps_[map];
    if (uvs.positions.empty()) continue;
    if (uvs.name.is_empty()) uvs.name = map == 0 ? "uv" : ("uv" + std::to_string(map + 1)).c_str();
    uvs.corner_positions.resize(source_.data.polygon_vertices.size(), 0);
    source_.data.uv_maps.push_back(std::move(uvs));
  }
  return std::move(source_);
}
