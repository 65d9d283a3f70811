#include "vq_geometry/poly_mesh.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_core/core_log.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/poly_mesh_triangulate.h"
#include "vq_gmath/gmath_key_bbox.h"

namespace {

constexpr double nan_time = std::numeric_limits<double>::quiet_NaN();

/// Limit of the number of corners: triangle corners, up to three per polygon corner, are counted in 32 bits.
constexpr std::size_t most_corners = core_invalid_index / 3;

bool fail(CoreString& error, const CoreString& sentence) {
  error = sentence;
  return false;
}

bool are_below(const std::vector<u32>& indices, std::size_t bound) {
  return std::all_of(indices.begin(), indices.end(), [&](u32 index) { return index < bound; });
}

bool check_polygons(const PolyMeshData& data, CoreString& error) {
  u64 corners = 0;
  for (const u32 size : data.polygon_sizes) corners += size;
  if (data.positions.size() >= core_invalid_index || corners > most_corners || data.polygon_sizes.size() > most_corners)
    return fail(error, "The mesh is too large.");
  if (corners != data.polygon_vertices.size())
    return fail(error, CoreLogStream() << "The polygon sizes add up to " << corners << " corners, but there are "
                                       << u64{data.polygon_vertices.size()} << ".");
  if (!are_below(data.polygon_vertices, data.positions.size()))
    return fail(error, "A polygon refers to a vertex that does not exist.");
  return true;
}

bool check_groups(const PolyMeshData& data, CoreString& error) {
  if (data.polygon_groups.empty()) return true;
  if (data.polygon_groups.size() != data.polygon_sizes.size())
    return fail(error, "There must be one shading group per polygon.");
  if (!are_below(data.polygon_groups, std::max<std::size_t>(data.group_names.size(), 1)))
    return fail(error, "A polygon refers to a shading group that does not exist.");
  return true;
}

bool check_corners(const PolyMeshData& data, CoreString& error) {
  const std::size_t corners = data.polygon_vertices.size();
  if (!data.edge_visible.empty() && data.edge_visible.size() != corners)
    return fail(error, "There must be one edge flag per polygon corner.");
  if (!data.corner_normals.empty() && data.corner_normals.size() != corners)
    return fail(error, "There must be one normal index per polygon corner.");
  if (!are_below(data.corner_normals, data.normals.size()))
    return fail(error, "A polygon corner refers to a normal that does not exist.");
  for (const GeometryUvMap& map : data.uv_maps) {
    if (map.corner_positions.size() != corners)
      return fail(error, CoreLogStream() << "UV map '" << map.name << "' must have one index per polygon corner.");
    if (!are_below(map.corner_positions, map.positions.size()))
      return fail(error, CoreLogStream() << "UV map '" << map.name << "' refers to a position that does not exist.");
  }
  return true;
}

bool check_motion(const PolyMeshData& data, CoreString& error) {
  for (const std::vector<GMathVec3<float>>& sample : data.motion_positions) {
    if (sample.size() != data.positions.size())
      return fail(error, "Every motion sample must have as many positions as the mesh.");
  }
  const bool ordered = data.motion_step > 0.0 && gmath_isfinited(data.motion_step);
  if (data.motion_positions.size() > 1 && !(ordered && gmath_isfinited(data.motion_begin)))
    return fail(error, "The motion samples must begin at a finite time and follow each other in positive steps.");
  if (u64{data.motion_positions.size()} * data.positions.size() >= core_invalid_index)
    return fail(error, "The mesh has too many motion samples.");
  return true;
}

template <class T>
bool copy_items(CoreAlignedArray<T>& to, const std::vector<T>& from) {
  to = CoreAlignedArray<T>(from.size(), 64);
  if (from.empty()) return true;
  if (!to) return false;
  std::memcpy(static_cast<void*>(to.get()), from.data(), from.size() * sizeof(T));
  return true;
}

template <class T>
u64 get_bytes(const std::vector<T>& items) {
  return items.capacity() * sizeof(T);
}

/// Number of triangles of a polygon of `size` corners.
u32 get_triangle_count(u32 size) { return size < 3 ? 0 : size - 2; }

}  // namespace

const CoreClassInfo& PolyMesh::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("PolyMesh", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}

PolyMesh::PolyMesh() { clear(); }

bool PolyMesh::create(PolyMeshData&& data, CoreString& error) {
  if (!check_polygons(data, error) || !check_groups(data, error) || !check_corners(data, error) ||
      !check_motion(data, error))
    return false;
  try {
    clear();
    if (store(std::move(data))) return true;
  } catch (const std::bad_alloc&) {
  }
  clear();
  return fail(error, "There is not enough memory for the mesh.");
}

void PolyMesh::clear() {
  positions_.reset();
  polygon_vertices_.reset();
  first_corner_.reset();
  first_triangle_.reset();
  triangle_vertices_.reset();
  triangle_corners_.reset();
  motion_positions_.reset();
  motion_sampling_ = GMathTimeSampling();
  polygon_count_ = record_parts_ = render_mode_ = 0;
  polygon_groups_ = {};
  group_names_.remove_all();
  group_motion_ = {};
  edge_visible_ = {};
  normals_ = {};
  corner_normals_ = {};
  uv_maps_ = {};
  uv_projection_ = PolyMeshProjection::none;
  point_cloud_ = GeometryPointCloud();
  bbox_.set_empty();
}

bool PolyMesh::store(PolyMeshData&& data) {
  polygon_count_ = static_cast<uint>(data.polygon_sizes.size());
  render_mode_ = data.render_mode;
  if (!copy_items(positions_, data.positions) || !store_polygons(data) || !store_motion(data)) return false;
  record_samples_ = has_motion() ? motion_sampling_.get_sample_count() : 1;
  if (data.least_recorded_triangles != PolyMeshData::no_records &&
      u64{get_first_part(polygon_count_)} * record_samples_ >= data.least_recorded_triangles &&
      record_samples_ <= PolyMeshData::most_recorded_samples)
    record_parts_ = is_all_triangles() ? 1 : 2;
  polygon_groups_ = std::move(data.polygon_groups);
  edge_visible_ = std::move(data.edge_visible);
  normals_ = std::move(data.normals);
  corner_normals_ = std::move(data.corner_normals);
  uv_maps_ = std::move(data.uv_maps);
  uv_projection_ = data.uv_projection;
  if (data.group_names.empty()) data.group_names.emplace_back("default");
  if (!group_names_.assign(data.group_names.data(), static_cast<uint>(data.group_names.size()))) return false;
  find_group_motion();
  point_cloud_ = GeometryPointCloud(positions_.get(), get_vertex_count());
  for (uint polygon = 0; polygon < polygon_count_; ++polygon) {
    const GMathBbox3<double> box = compute_bbox(polygon, nan_time);
    if (gmath_is_valid_box(box)) bbox_.add(box);
  }
  return true;
}

bool PolyMesh::store_polygons(const PolyMeshData& data) {
  if (!copy_items(polygon_vertices_, data.polygon_vertices)) return false;
  if (std::all_of(data.polygon_sizes.begin(), data.polygon_sizes.end(), [](u32 size) { return size == 3; }))
    return true;
  first_corner_ = CoreAlignedArray<u32>(std::size_t{polygon_count_} + 1);
  first_triangle_ = CoreAlignedArray<u32>(std::size_t{polygon_count_} + 1);
  if (!first_corner_ || !first_triangle_) return false;
  u32 corner = 0, triangle = 0;
  for (uint polygon = 0; polygon < polygon_count_; ++polygon) {
    first_corner_[polygon] = corner;
    first_triangle_[polygon] = triangle;
    corner += data.polygon_sizes[polygon];
    triangle += get_triangle_count(data.polygon_sizes[polygon]);
  }
  first_corner_[polygon_count_] = corner;
  first_triangle_[polygon_count_] = triangle;
  return triangulate();
}

bool PolyMesh::triangulate() {
  const std::size_t entries = std::size_t{3} * first_triangle_[polygon_count_];
  if (entries == 0) return true;
  triangle_vertices_ = CoreAlignedArray<u32>(entries, 64);
  triangle_corners_ = CoreAlignedArray<u32>(entries, 64);
  if (!triangle_vertices_ || !triangle_corners_) return false;
  PolyMeshTriangulator triangulator;
  std::vector<u32> triangles;
  for (uint polygon = 0; polygon < polygon_count_; ++polygon) {
    const u32 first = first_corner_[polygon];
    triangulator.points.clear();
    for (u32 corner = first; corner < first_corner_[polygon + 1]; ++corner)
      triangulator.points.emplace_back(positions_[polygon_vertices_[corner]]);
    triangulator.triangulate(triangles);
    std::size_t entry = std::size_t{3} * first_triangle_[polygon];
    for (const u32 corner : triangles) {
      triangle_corners_[entry] = first + corner;
      triangle_vertices_[entry++] = polygon_vertices_[first + corner];
    }
  }
  return true;
}

bool PolyMesh::store_motion(const PolyMeshData& data) {
  const uint samples = static_cast<uint>(data.motion_positions.size());
  if (samples == 0 || positions_.get_count() == 0) return true;
  motion_sampling_ = GMathTimeSampling(data.motion_begin, data.motion_step, samples);
  motion_positions_ = CoreAlignedArray<GMathVec3<float>>(positions_.get_count() * samples, 64);
  if (!motion_positions_) return false;
  for (uint sample = 0; sample < samples; ++sample) {
    const std::vector<GMathVec3<float>>& from = data.motion_positions[sample];
    for (std::size_t vertex = 0; vertex < from.size(); ++vertex)
      motion_positions_[vertex * samples + sample] = from[vertex];
  }
  return true;
}

void PolyMesh::find_group_motion() {
  group_motion_.assign(group_names_.get_count(), 0);
  if (!has_motion()) return;
  const uint samples = motion_sampling_.get_sample_count();
  for (uint polygon = 0; polygon < polygon_count_; ++polygon) {
    u8& moves = group_motion_[get_primitive_shading_group(polygon)];
    for (uint corner = get_first_corner(polygon); corner < get_first_corner(polygon + 1) && moves == 0; ++corner) {
      const uint vertex = polygon_vertices_[corner];
      const GMathVec3<float>* sample = motion_positions_.get() + std::size_t{vertex} * samples;
      moves = std::any_of(sample, sample + samples,
                          [&](const GMathVec3<float>& position) { return position != positions_[vertex]; });
    }
  }
}

bool PolyMesh::has_shading_group_motion(const uint& group) const {
  return group < group_motion_.size() && group_motion_[group] != 0;
}

u64 PolyMesh::get_memory_size() const {
  u64 bytes = sizeof(PolyMesh) + positions_.get_bytes() + motion_positions_.get_bytes() +
              polygon_vertices_.get_bytes() + first_corner_.get_bytes() + first_triangle_.get_bytes() +
              triangle_vertices_.get_bytes() + triangle_corners_.get_bytes();
  bytes += get_bytes(polygon_groups_) + get_bytes(group_motion_) + get_bytes(edge_visible_) + get_bytes(normals_) +
           get_bytes(corner_normals_) + get_bytes(uv_maps_) + group_names_.get_count() * sizeof(CoreString);
  for (const GeometryUvMap& map : uv_maps_) bytes += get_bytes(map.positions) + get_bytes(map.corner_positions);
  return bytes;
}

PolyMesh::MotionBlend PolyMesh::get_motion_blend(double time) const {
  MotionBlend blend;
  blend.rest = !has_motion() || std::isnan(time);
  if (blend.rest) return blend;
  motion_sampling_.get_span(time, blend.first, blend.fraction);
  blend.step = motion_sampling_.get_sample_count() > 1 ? 1 : 0;
  return blend;
}

GMathVec3<double> PolyMesh::get_position_at(double time, uint vertex) const {
  return get_moved_position(get_motion_blend(time), vertex);
}

GMathBbox3<double> PolyMesh::compute_bbox(uint primitive, double time) const {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const GMathBbox3<double> invalid({nan, nan, nan}, {nan, nan, nan});
  if (!is_polygon_valid(primitive)) return invalid;
  const MotionBlend blend = get_motion_blend(time);
  GMathBbox3<double> box;
  for (uint corner = get_first_corner(primitive); corner < get_first_corner(primitive + 1); ++corner) {
    const GMathVec3<double> position = get_moved_position(blend, polygon_vertices_[corner]);
    if (std::isnan(position.x) || std::isnan(position.y) || std::isnan(position.z)) return invalid;
    box.add(position);
  }
  return box;
}

GMathBbox3<double> PolyMesh::get_primitive_bbox(const CtxEval& /*ctx*/, const uint& primitive) const {
  return compute_bbox(primitive, nan_time);
}

GMathBbox3<double> PolyMesh::get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                                   const uint& primitive) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  return gmath_get_bbox_between_keys(motion_blur != nullptr ? &motion_blur->get_time_sampling() : nullptr,
                                     motion_sampling_, time, [&](double at) { return compute_bbox(primitive, at); });
}
