#include "vq_geometry/displaced_mesh_input.h"

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>
#include <utility>

namespace {

using Vec = GMathVec3<double>;

/// Orders UV coordinates by their bits: a total order, NaN included.
std::pair<u32, u32> get_bits(const GMathVec2<float>& uv) {
  return {std::bit_cast<u32>(uv.x), std::bit_cast<u32>(uv.y)};
}

auto get_key(const DisplacedMeshSeamSide& side) {
  return std::tuple(side.low, side.high, get_bits(side.low_uv), get_bits(side.high_uv));
}

bool is_same_edge(const DisplacedMeshSeamSide& a, const DisplacedMeshSeamSide& b) {
  return a.low == b.low && a.high == b.high;
}

bool is_finite(const Vec& v) { return gmath_isfinited(v.x) && gmath_isfinited(v.y) && gmath_isfinited(v.z); }

/// Sorts, and keeps one of each key.
template <class T, class GetKey>
void keep_distinct(std::vector<T>& items, const GetKey& get_item_key) {
  std::sort(items.begin(), items.end(), [&](const T& a, const T& b) { return get_item_key(a) < get_item_key(b); });
  const auto is_equal = [&](const T& a, const T& b) { return get_item_key(a) == get_item_key(b); };
  items.erase(std::unique(items.begin(), items.end(), is_equal), items.end());
}

}  // namespace

DisplacedMeshInput::DisplacedMeshInput(const PolyMesh& base, std::shared_ptr<const GeometryHeight> height, double bound,
                                       uint rate)
    : base_(&base),
      height_(std::move(height)),
      bound_(bound),
      rate_(rate),
      frame_count_(base.has_motion() ? 1 + base.get_motion_sampling().get_sample_count() : 1) {
  compute_normals();
  find_group_motion();
  compute_vertex_heights();
  if (!uses_uv()) return;
  average_vertex_heights();
  collect_seams();
}

/// The triangles of a polygon add up to its area vector. One that is not finite is left out, so that it does not
/// spoil its neighbors.
void DisplacedMeshInput::compute_normals() {
  normals_.resize(std::size_t{base_->get_vertex_count()} * frame_count_);
  std::vector<Vec> sums(base_->get_vertex_count());
  for (uint frame = 0; frame < frame_count_; ++frame) {
    std::fill(sums.begin(), sums.end(), Vec());
    for (uint polygon = 0; polygon < base_->get_polygon_count(); ++polygon) {
      Vec area;
      for (uint part = 0; part < base_->get_part_count(polygon); ++part) {
        const u32* vertices = base_->get_part_vertices(polygon, part);
        const Vec a = get_position(vertices[0], frame);
        area += (get_position(vertices[1], frame) - a).cross(get_position(vertices[2], frame) - a);
      }
      if (!is_finite(area) || !base_->is_polygon_valid(polygon)) continue;
      for (uint corner = 0; corner < base_->get_polygon_vertex_count(polygon); ++corner)
        sums[base_->get_polygon_vertex(polygon, corner)] += area;
    }
    for (std::size_t vertex = 0; vertex < sums.size(); ++vertex)
      normals_[vertex * frame_count_ + frame] = GMathVec3<float>(sums[vertex].get_normalized());
  }
}

void DisplacedMeshInput::find_group_motion() {
  group_motion_.assign(base_->get_shading_groups().get_count(), 0);
  for (uint group = 0; group < group_motion_.size(); ++group)
    group_motion_[group] = base_->has_shading_group_motion(group);
  if (frame_count_ == 1) return;
  for (uint polygon = 0; polygon < base_->get_polygon_count(); ++polygon) {
    u8& moves = group_motion_[base_->get_primitive_shading_group(polygon)];
    for (uint corner = 0; corner < base_->get_polygon_vertex_count(polygon) && moves == 0; ++corner) {
      const auto first = normals_.begin() + std::size_t{base_->get_polygon_vertex(polygon, corner)} * frame_count_;
      moves =
          std::any_of(first, first + frame_count_, [&](const GMathVec3<float>& normal) { return normal != *first; });
    }
  }
}

void DisplacedMeshInput::compute_vertex_heights() {
  vertex_heights_.resize(base_->get_vertex_count());
  if (uses_uv()) return;
  for (uint vertex = 0; vertex < base_->get_vertex_count(); ++vertex)
    vertex_heights_[vertex] = get_height({get_position(vertex, 0), {}});
}

/// The mean of the heights by the distinct UV coordinates of the vertex's corners.
void DisplacedMeshInput::average_vertex_heights() {
  struct Corner {
    u32 vertex;
    GMathVec2<float> uv;
  };
  std::vector<Corner> corners;
  for (uint polygon = 0; polygon < base_->get_polygon_count(); ++polygon)
    for (uint corner = 0; corner < base_->get_polygon_vertex_count(polygon); ++corner)
      corners.push_back(
          {base_->get_polygon_vertex(polygon, corner), get_corner_uv(base_->get_first_corner(polygon) + corner)});
  keep_distinct(corners, [](const Corner& corner) { return std::pair(corner.vertex, get_bits(corner.uv)); });
  for (std::size_t first = 0, last = 0; first < corners.size(); first = last) {
    const u32 vertex = corners[first].vertex;
    double sum = 0.0;
    for (; last < corners.size() && corners[last].vertex == vertex; ++last)
      sum += get_height({get_position(vertex, 0), {corners[last].uv.x, corners[last].uv.y}});
    vertex_heights_[vertex] = sum / static_cast<double>(last - first);
  }
}

/// Keeps the edges of patches that have different UV coordinates on their sides.
void DisplacedMeshInput::collect_seams() {
  std::vector<DisplacedMeshSeamSide> sides;
  sides.reserve(std::size_t{3} * base_->get_first_part(base_->get_polygon_count()));
  for (uint polygon = 0; polygon < base_->get_polygon_count(); ++polygon)
    for (uint part = 0; part < base_->get_part_count(polygon); ++part) {
      const u32* vertices = base_->get_part_vertices(polygon, part);
      const GMathVec3<u32> corners = base_->get_part_corners(polygon, part);
      for (uint k = 0; k < 3; ++k) {
        const uint next = k == 2 ? 0 : k + 1;
        DisplacedMeshSeamSide side{vertices[k], vertices[next], get_corner_uv(corners[k]),
                                   get_corner_uv(corners[next])};
        if (side.low > side.high) {
          std::swap(side.low, side.high);
          std::swap(side.low_uv, side.high_uv);
        }
        sides.push_back(side);
      }
    }
  keep_distinct(sides, get_key);
  for (std::size_t first = 0, last = 0; first < sides.size(); first = last) {
    while (last < sides.size() && is_same_edge(sides[last], sides[first])) ++last;
    if (last - first > 1) seams_.insert(seams_.end(), sides.data() + first, sides.data() + last);
  }
  seams_.shrink_to_fit();
}

DisplacedMeshInput::Sides DisplacedMeshInput::find_seam(u32 low, u32 high) const {
  const auto get_edge = [](const DisplacedMeshSeamSide& side) { return std::pair(side.low, side.high); };
  const std::pair<u32, u32> edge(low, high);
  const auto first = std::lower_bound(seams_.begin(), seams_.end(), edge,
                                      [&](const auto& side, const auto& value) { return get_edge(side) < value; });
  auto last = first;
  while (last != seams_.end() && get_edge(*last) == edge) ++last;
  return {seams_.data() + (first - seams_.begin()), seams_.data() + (last - seams_.begin())};
}

GMathVec2<float> DisplacedMeshInput::get_corner_uv(uint corner) const {
  const GeometryUvMap& map = *base_->get_uv_map(0);
  const GMathVec3<float>& uv = map.positions[map.corner_positions[corner]];
  return {uv.x, uv.y};
}

double DisplacedMeshInput::get_height(const GeometryHeightPoint& point) const {
  const double height = height_->get_height(point);
  return std::isnan(height) ? 0.0 : std::clamp(height, -bound_, bound_);
}

u64 DisplacedMeshInput::get_memory_size() const {
  return sizeof(*this) + normals_.capacity() * sizeof(GMathVec3<float>) + vertex_heights_.capacity() * sizeof(double) +
         seams_.capacity() * sizeof(DisplacedMeshSeamSide) + group_motion_.capacity() + height_->get_memory_size();
}

DisplacedMeshPatch::DisplacedMeshPatch(const DisplacedMeshInput& input, uint primitive, uint part, uint first_frame,
                                       uint frame_count)
    : input_(input), rate_(input.get_rate()), frame_count_(frame_count), step_(1.0 / input.get_rate()) {
  const u32* vertices = input.get_base().get_part_vertices(primitive, part);
  const GMathVec3<u32> corners = input.get_base().get_part_corners(primitive, part);
  for (uint k = 0; k < 3; ++k) {
    Corner& corner = corners_[k];
    corner.vertex = vertices[k];
    corner.rest = input.get_position(corner.vertex, 0);
    for (uint frame = 0; frame < frame_count; ++frame) {
      corner.positions[frame] = input.get_position(corner.vertex, first_frame + frame);
      corner.normals[frame] = input.get_normal(corner.vertex, first_frame + frame);
    }
    if (!input.uses_uv()) continue;
    corner.uv = input.get_corner_uv(corners[k]);
    const auto [low, high] = std::minmax({vertices[(k + 1) % 3], vertices[(k + 2) % 3]});
    seams_[k] = input.find_seam(low, high);
  }
}

void DisplacedMeshPatch::get_positions(uint i, uint j, GMathVec3<float>* positions) const {
  const uint steps[3] = {rate_ - i - j, i, j};
  for (uint k = 0; k < 3; ++k) {
    if (steps[k] != rate_) continue;
    const Corner& corner = corners_[k];
    const double height = input_.get_vertex_height(corner.vertex);
    for (uint frame = 0; frame < frame_count_; ++frame)
      positions[frame] = GMathVec3<float>(corner.positions[frame] + corner.normals[frame] * height);
    return;
  }
  for (uint k = 0; k < 3; ++k)
    if (steps[k] == 0) return get_edge_positions((k + 1) % 3, (k + 2) % 3, steps[(k + 2) % 3], positions);

  const double weights[3] = {steps[0] * step_, steps[1] * step_, steps[2] * step_};
  const auto blend = [&](const Vec& a, const Vec& b, const Vec& c) {
    return a * weights[0] + b * weights[1] + c * weights[2];
  };
  const auto& [a, b, c] = corners_;
  const double height = input_.get_height({blend(a.rest, b.rest, c.rest),
                                           {a.uv.x * weights[0] + b.uv.x * weights[1] + c.uv.x * weights[2],
                                            a.uv.y * weights[0] + b.uv.y * weights[1] + c.uv.y * weights[2]}});
  for (uint frame = 0; frame < frame_count_; ++frame) {
    const Vec normal = blend(a.normals[frame], b.normals[frame], c.normals[frame]).get_normalized();
    const Vec position = blend(a.positions[frame], b.positions[frame], c.positions[frame]);
    positions[frame] = GMathVec3<float>(position + normal * height);
  }
}

/// A micro-vertex inside an edge, `steps` from corner `from` towards corner `to`.
void DisplacedMeshPatch::get_edge_positions(uint from, uint to, uint steps, GMathVec3<float>* positions) const {
  const DisplacedMeshInput::Sides& seam = seams_[3 - from - to];
  if (corners_[from].vertex > corners_[to].vertex) {
    std::swap(from, to);
    steps = rate_ - steps;
  }
  const Corner& low = corners_[from];
  const Corner& high = corners_[to];
  const double low_weight = (rate_ - steps) * step_, high_weight = steps * step_;
  const double height = get_edge_height(low, high, low_weight, high_weight, seam);
  for (uint frame = 0; frame < frame_count_; ++frame) {
    const Vec normal = (low.normals[frame] * low_weight + high.normals[frame] * high_weight).get_normalized();
    const Vec position = low.positions[frame] * low_weight + high.positions[frame] * high_weight;
    positions[frame] = GMathVec3<float>(position + normal * height);
  }
}

double DisplacedMeshPatch::get_edge_height(const Corner& low, const Corner& high, double low_weight, double high_weight,
                                           const DisplacedMeshInput::Sides& seam) const {
  const Vec rest = low.rest * low_weight + high.rest * high_weight;
  const auto get_side_height = [&](const GMathVec2<float>& low_uv, const GMathVec2<float>& high_uv) {
    return input_.get_height(
        {rest, {low_uv.x * low_weight + high_uv.x * high_weight, low_uv.y * low_weight + high_uv.y * high_weight}});
  };
  if (seam.begin == seam.end) return get_side_height(low.uv, high.uv);
  double sum = 0.0;
  for (const DisplacedMeshSeamSide* side = seam.begin; side != seam.end; ++side)
    sum += get_side_height(side->low_uv, side->high_uv);
  return sum / static_cast<double>(seam.end - seam.begin);
}
