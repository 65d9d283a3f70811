// host/vq_geometry/poly_mesh_triangulate.h
//
// Cuts a polygon into triangles by clipping ears (Meisters 1975, "Polygons have ears"), on the polygon as seen along
// the main axis of its Newell normal.
#pragma once
#include <deque>
#include <vector>

#include "vq_geometry/poly_mesh_corner_index.h"
#include "vq_gmath/gmath_scalar.h"
#include "vq_gmath/gmath_vec.h"

/// Newell's normal: its length is twice the polygon's area. Concave corners and polygons that are not planar are
/// allowed.
GMathVec3<double> poly_mesh_get_newell_normal(const std::vector<GMathVec3<double>>& points);

/// Keeps its memory from polygon to polygon. One thread at a time.
class PolyMeshTriangulator {
 public:
  /// The polygon's corners, in order; filled by the caller.
  std::vector<GMathVec3<double>> points;

  /// Writes points.size() - 2 triangles of three corner numbers each, wound as the polygon; nothing for fewer than
  /// three corners. Collinear and coincident corners give triangles without area, so that every edge of the polygon is
  /// an edge of a triangle. What cannot be clipped (crossing edges, NaN) becomes a fan: the triangles' areas, negative
  /// for one of opposite winding, still add up to the polygon's, but triangles may overlap and reach outside of it.
  /// O(n^2) up to 256 corners; beyond, O(n log n) for most and about O(n sqrt n) at worst.
  void triangulate(std::vector<u32>& triangles);

 private:
  enum class Ear : u8 { unknown, no, yes };
  enum class Rule { strict, touching, flat };
  struct Corner {
    double x = 0.0, y = 0.0;
    u32 previous = 0, next = 0;
    u32 ticket = 0;  // of a large polygon: the corner's only valid queue entry
    Ear ear = Ear::unknown;
    bool reflex = false;
  };
  struct Waiting {
    u32 corner, ticket;
  };

  void project();
  void mark_reflex(Corner& corner) const;
  bool is_ear(const Corner& corner, Rule rule);
  bool is_inside(const Corner& a, const Corner& b, const Corner& c, const Corner& p, Rule rule) const;
  bool find_ear(u32& corner);
  void clip(u32 corner, std::vector<u32>& triangles);
  /// Clips ears while there are any and returns a remaining corner.
  u32 clip_small(std::vector<u32>& triangles);
  u32 clip_large(std::vector<u32>& triangles);
  void enqueue(u32 corner, Rule rule);
  bool dequeue(u32& corner, Rule& rule);
  bool is_ear_of_large(u32 corner, Rule rule) const;
  static double get_turn(const Corner& a, const Corner& b, const Corner& c);

  std::vector<Corner> corners_;
  u32 left_ = 0;         // corners not clipped yet
  double budget_ = 0.0;  // remaining point tests
  PolyMeshCornerIndex index_;
  std::deque<Waiting> queues_[3];  // one per rule
  u32 last_ticket_ = 0;
};
