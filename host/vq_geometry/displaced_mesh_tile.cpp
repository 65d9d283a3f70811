#include "vq_geometry/displaced_mesh_tile.h"

#include <algorithm>
#include <limits>
#include <new>

#include "vq_simd/simd_float.h"

DisplacedMeshTileShape::DisplacedMeshTileShape(uint side_cells, uint reach_cells)
    : side(std::min(side_cells, reach_cells)), reach(reach_cells) {
  for (uint i = 0; i <= side; ++i) {
    first_vertex[i] = vertex_count;
    vertex_count += get_row_length(i);
  }
  uint row = 0;
  for (uint level = 1;; ++level) {
    const uint count = get_block_count(level);
    first_row[level] = row;
    for (uint i = 0; i < count; ++i) {
      first_node[row++] = node_count;
      for (uint j = 0; j < count && has_block(level, i, j); ++j) ++node_count;
    }
    top_level = level;
    if (count == 1) return;
  }
}

void DisplacedMeshTileBytes::add(u64 bytes) {
  const u64 total = now.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  u64 most = peak.load(std::memory_order_relaxed);
  while (most < total && !peak.compare_exchange_weak(most, total, std::memory_order_relaxed)) {
  }
}

DisplacedMeshTile::DisplacedMeshTile(const DisplacedMeshPatch& patch, const DisplacedMeshTileShape& shape, uint first_i,
                                     uint first_j, uint frame_count, DisplacedMeshTileBytes& bytes)
    : shape_(shape),
      bytes_(bytes),
      first_i_(first_i),
      first_j_(first_j),
      frame_count_(frame_count),
      vertices_(std::size_t{shape.vertex_count} * frame_count + 1),
      nodes_(std::size_t{shape.node_count} * frame_count) {
  if (!vertices_ || !nodes_) throw std::bad_alloc();
  vertices_[vertices_.get_count() - 1] = {};  // read behind the last micro-vertex, not used
  compute_vertices(patch);
  for (uint frame = 0; frame < frame_count; ++frame) compute_nodes(frame);
  bytes_.add(get_bytes());
}

DisplacedMeshTile::~DisplacedMeshTile() { bytes_.remove(get_bytes()); }

void DisplacedMeshTile::compute_vertices(const DisplacedMeshPatch& patch) {
  GMathVec3<float> positions[2];
  float spoiled[2] = {0.0f, 0.0f};  // NaN once a coordinate was NaN or infinite
  for (uint i = 0; i <= shape_.side; ++i) {
    for (uint j = 0; j < shape_.get_row_length(i); ++j) {
      patch.get_positions(first_i_ + i, first_j_ + j, positions);
      for (uint frame = 0; frame < frame_count_; ++frame) {
        const GMathVec3<float>& position = positions[frame];
        vertices_[std::size_t{frame} * shape_.vertex_count + shape_.get_vertex(i, j)] = position;
        boxes_[frame].add(position);
        spoiled[frame] += position.x * 0.0f + position.y * 0.0f + position.z * 0.0f;
      }
    }
  }
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  for (uint frame = 0; frame < frame_count_; ++frame)
    if (spoiled[frame] != 0.0f) boxes_[frame] = {{nan, nan, nan}, {nan, nan, nan}};
}

/// Bottom-up: level 1 from micro-vertices, the others from the level below.
void DisplacedMeshTile::compute_nodes(uint frame) {
  for (uint level = 1; level <= shape_.top_level; ++level) {
    const uint count = shape_.get_block_count(level);
    for (uint i = 0; i < count; ++i)
      for (uint j = 0; j < count && shape_.has_block(level, i, j); ++j) {
        DisplacedMeshNode& node = nodes_[std::size_t{shape_.get_node(level, i, j)} * frame_count_ + frame];
        for (uint lane = 0; lane < 4; ++lane) {
          const GMathBbox3<float> box = compute_child_box(level - 1, 2 * i + (lane >> 1), 2 * j + (lane & 1), frame);
          for (uint axis = 0; axis < 3; ++axis) {
            node.planes[2 * axis][lane] = box.min[axis];
            node.planes[2 * axis + 1][lane] = box.max[axis];
          }
        }
      }
  }
}

/// Loads the three coordinates of a micro-vertex at once, with one of the next.
GMathBbox3<float> DisplacedMeshTile::compute_block_box(uint i, uint j, uint frame) const {
  constexpr uint cells = DisplacedMeshTileShape::block_cells;
  const GMathVec3<float>* vertices = get_vertices(frame);
  SimdF low(std::numeric_limits<float>::max()), high(std::numeric_limits<float>::lowest());
  for (uint row = i * cells; row <= i * cells + cells; ++row) {
    const uint end = std::min(shape_.get_row_length(row), j * cells + cells + 1);
    for (uint column = j * cells; column < end; ++column) {
      const SimdF position = SimdF::load_unaligned(&vertices[shape_.get_vertex(row, column)].x);
      low = min(position, low);  // the second one for a NaN
      high = max(position, high);
    }
  }
  float bounds[2][4];
  low.store_unaligned(bounds[0]);
  high.store_unaligned(bounds[1]);
  return {{bounds[0][0], bounds[0][1], bounds[0][2]}, {bounds[1][0], bounds[1][1], bounds[1][2]}};
}

GMathBbox3<float> DisplacedMeshTile::compute_child_box(uint level, uint i, uint j, uint frame) const {
  GMathBbox3<float> box;
  if (!shape_.has_block(level, i, j)) return box;
  if (level > 0) {
    const DisplacedMeshNode& node = get_node(shape_.get_node(level, i, j), frame);
    for (uint lane = 0; lane < 4; ++lane) box.add(node.get_box(lane));
    return box;
  }
  return compute_block_box(i, j, frame);
}
