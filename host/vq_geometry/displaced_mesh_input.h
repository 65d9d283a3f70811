// host/vq_geometry/displaced_mesh_input.h
//
// What the micro-vertices of a DisplacedMesh are computed from. A patch is one triangle of the base mesh (a part of a
// polygon), cut into rate * rate micro-triangles:
//
//   c            micro-vertex (i, j), i + j <= rate, is at   a + (b - a) i / rate + (c - a) j / rate, before it moves
//   | .          cell (i, j), i + j < rate:
//   |__ .        lower triangle  (i, j), (i + 1, j), (i, j + 1)
//   |\ | .       upper triangle  (i + 1, j + 1), (i, j + 1), (i + 1, j)     where i + j + 1 < rate
//   |_\|__.
//   a      b     Micro-triangles are numbered row by row: number i (2 rate - i) + 2 j, + 1 for the upper one.
//
// Closed meshes stay closed, because a micro-vertex on the border of a patch does not depend on the patch:
//
//   at a vertex   position, normal and height are stored per vertex
//   on an edge    blended from the ends in the order of their vertex numbers; at a seam of the UV map the height is the
//                 mean of the heights by the UV coordinates of all sides, in a fixed order
//
// Frames: 0 is the mesh at rest, 1 + k its motion sample k. Heights are those at rest in all frames.
#pragma once
#include <memory>
#include <vector>

#include "vq_geometry/displaced_mesh_height.h"
#include "vq_geometry/poly_mesh.h"

/// UV coordinates at both ends of an edge, as one of its sides has them.
struct DisplacedMeshSeamSide {
  u32 low = 0, high = 0;  ///< the edge's vertices
  GMathVec2<float> low_uv, high_uv;
};

class DisplacedMeshInput {
 public:
  /// `base` must outlive the input and not change. Settings must be valid. Throws std::bad_alloc.
  DisplacedMeshInput(const PolyMesh& base, std::shared_ptr<const GeometryHeight> height, double bound, uint rate);

  const PolyMesh& get_base() const { return *base_; }
  uint get_rate() const { return rate_; }
  /// 1, and one per motion sample.
  uint get_frame_count() const { return frame_count_; }
  GMathVec3<double> get_position(uint vertex, uint frame) const {
    return GMathVec3<double>(frame == 0 ? base_->get_position(vertex) : base_->get_motion_position(vertex, frame - 1));
  }
  /// The area-weighted mean normal of the polygons around the vertex; 0 where there is none.
  GMathVec3<double> get_normal(uint vertex, uint frame) const {
    return GMathVec3<double>(normals_[std::size_t{vertex} * frame_count_ + frame]);
  }
  double get_vertex_height(uint vertex) const { return vertex_heights_[vertex]; }
  /// True if a polygon of the group changes over time, or a neighbor that turns its normals.
  bool is_group_moving(uint group) const { return group < group_motion_.size() && group_motion_[group] != 0; }

  bool uses_uv() const { return height_->uses_uv(); }
  /// The height function, clamped to the bound.
  double get_height(const GeometryHeightPoint& point) const;
  /// The sides of an edge whose UV coordinates differ between its sides; none for other edges. `low` is the smaller
  /// vertex number.
  struct Sides {
    const DisplacedMeshSeamSide* begin = nullptr;
    const DisplacedMeshSeamSide* end = nullptr;
  };
  Sides find_seam(u32 low, u32 high) const;
  /// UV map 0 at one of the mesh's corners.
  GMathVec2<float> get_corner_uv(uint corner) const;

  u64 get_memory_size() const;

 private:
  void compute_normals();
  void find_group_motion();
  void collect_seams();
  void compute_vertex_heights();
  void average_vertex_heights();

  const PolyMesh* base_;
  std::shared_ptr<const GeometryHeight> height_;
  double bound_;
  uint rate_;
  uint frame_count_;
  std::vector<GMathVec3<float>> normals_;     // [vertex * frame_count_ + frame]
  std::vector<double> vertex_heights_;        // [vertex]
  std::vector<DisplacedMeshSeamSide> seams_;  // sorted, the sides of an edge are adjacent
  std::vector<u8> group_motion_;              // [shading group]
};

/// One patch in one or two frames. Cheap to make. May be used by one thread at a time.
class DisplacedMeshPatch {
 public:
  DisplacedMeshPatch(const DisplacedMeshInput& input, uint primitive, uint part, uint first_frame, uint frame_count);

  /// Writes micro-vertex (i, j), i + j <= rate, in each of the frames. One call of the height function, except on edges
  /// at a seam. The same bits for every patch that has the micro-vertex.
  void get_positions(uint i, uint j, GMathVec3<float>* positions) const;

 private:
  struct Corner {
    u32 vertex = 0;
    GMathVec2<float> uv;
    GMathVec3<double> rest;
    GMathVec3<double> positions[2];  // by frame
    GMathVec3<double> normals[2];
  };

  void get_edge_positions(uint from, uint to, uint steps, GMathVec3<float>* positions) const;
  double get_edge_height(const Corner& low, const Corner& high, double low_weight, double high_weight,
                         const DisplacedMeshInput::Sides& seam) const;

  const DisplacedMeshInput& input_;
  Corner corners_[3];
  DisplacedMeshInput::Sides seams_[3];  // of the edge opposite to the corner
  uint rate_;
  uint frame_count_;
  double step_;  // 1 / rate
};
