// host/vq_geometry/displaced_mesh_tile.h
//
// The unit in which a DisplacedMesh computes and caches micro-vertices: a square block of a patch's cells, cut off by
// the patch's third edge (displaced_mesh_input.h draws the cells).
//
//   micro-vertices   row by row, of each frame
//   pyramid          level 0    blocks of 2 x 2 cells, not stored: a block's eight micro-triangles are tested together
//                    level L    nodes with the boxes of 2 x 2 children of level L - 1, of each frame
//                    top level  one node
//
// A ray at a time between two motion samples reads both frames and blends positions and boxes linearly.
#pragma once
#include <atomic>

#include "vq_core/core_memory.h"
#include "vq_geometry/displaced_mesh_input.h"

/// The numbers of cells and nodes of a tile, and where they are stored. A patch has up to three different shapes.
struct DisplacedMeshTileShape {
  static constexpr uint most_cells = 128;  ///< along a side
  static constexpr uint block_cells = 2;   ///< along a side of a block of level 0
  static constexpr uint most_levels = 6;

  DisplacedMeshTileShape() = default;
  /// @param side   cells along a side, at most most_cells
  /// @param reach  cells from the tile's first cell to the end of the patch: cell (i, j) exists if i + j < reach
  DisplacedMeshTileShape(uint side, uint reach);

  bool has_cell(uint i, uint j) const { return i < side && j < side && i + j < reach; }
  bool has_upper(uint i, uint j) const { return has_cell(i, j) && i + j + 1 < reach; }
  /// Micro-vertices in row i <= side; 0 beyond.
  uint get_row_length(uint i) const { return i > side ? 0 : (side < reach - i ? side : reach - i) + 1; }
  uint get_vertex(uint i, uint j) const { return first_vertex[i] + j; }
  /// Node (i, j) of a level from 1 to top_level. A child (i, j) of level L exists if has_block(L, i, j).
  uint get_node(uint level, uint i, uint j) const { return first_node[first_row[level] + i] + j; }
  bool has_block(uint level, uint i, uint j) const {
    const uint cells = block_cells << level;
    return has_cell(i * cells, j * cells);
  }
  uint get_block_count(uint level) const { return (side + (block_cells << level) - 1) / (block_cells << level); }

  uint side = 0, reach = 0;
  uint top_level = 1;
  uint vertex_count = 0, node_count = 0;
  u32 first_vertex[most_cells + 2] = {};
  u32 first_row[most_levels + 1] = {};
  u32 first_node[most_cells / 2] = {};
};

/// Bytes of all tiles that exist, and the most there have been.
struct DisplacedMeshTileBytes {
  std::atomic<u64> now = 0, peak = 0;
  void add(u64 bytes);
  void remove(u64 bytes) { now.fetch_sub(bytes, std::memory_order_relaxed); }
};

/// Child (2 i + (lane >> 1), 2 j + (lane & 1)) of node (i, j). A missing child is an inverted box.
struct alignas(16) DisplacedMeshNode {
  float planes[6][4];  ///< min x, max x, min y, max y, min z, max z; one column per child
  GMathBbox3<float> get_box(uint lane) const {
    return {{planes[0][lane], planes[2][lane], planes[4][lane]}, {planes[1][lane], planes[3][lane], planes[5][lane]}};
  }
};

class DisplacedMeshTile {
 public:
  /// Computes the micro-vertices of the cells from (first_i, first_j) on, and the pyramid. Throws std::bad_alloc.
  DisplacedMeshTile(const DisplacedMeshPatch& patch, const DisplacedMeshTileShape& shape, uint first_i, uint first_j,
                    uint frame_count, DisplacedMeshTileBytes& bytes);
  ~DisplacedMeshTile();
  DisplacedMeshTile(const DisplacedMeshTile&) = delete;
  DisplacedMeshTile& operator=(const DisplacedMeshTile&) = delete;

  const DisplacedMeshTileShape& get_shape() const { return shape_; }
  /// Cell (0, 0) of the tile is this one of the patch.
  uint get_first_i() const { return first_i_; }
  uint get_first_j() const { return first_j_; }
  uint get_frame_count() const { return frame_count_; }
  const GMathVec3<float>* get_vertices(uint frame) const {
    return vertices_.get() + std::size_t{frame} * shape_.vertex_count;
  }
  const DisplacedMeshNode& get_node(uint node, uint frame) const {
    return nodes_[std::size_t{node} * frame_count_ + frame];
  }
  /// The box of all micro-vertices; NaN when one of them is not finite.
  const GMathBbox3<float>& get_box(uint frame) const { return boxes_[frame]; }
  u64 get_bytes() const { return sizeof(*this) + vertices_.get_bytes() + nodes_.get_bytes(); }

 private:
  void compute_vertices(const DisplacedMeshPatch& patch);
  void compute_nodes(uint frame);
  GMathBbox3<float> compute_block_box(uint i, uint j, uint frame) const;
  GMathBbox3<float> compute_child_box(uint level, uint i, uint j, uint frame) const;

  const DisplacedMeshTileShape& shape_;
  DisplacedMeshTileBytes& bytes_;
  uint first_i_, first_j_;
  uint frame_count_;
  CoreAlignedArray<GMathVec3<float>> vertices_;  // [frame][shape_.get_vertex()], and one more
  CoreAlignedArray<DisplacedMeshNode> nodes_;    // [shape_.get_node()][frame]
  GMathBbox3<float> boxes_[2];
};
