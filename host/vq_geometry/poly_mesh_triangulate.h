// host/vq_geometry/poly_mesh_triangulate.h
//
// Cuts a polygon into triangles by clipping ears (Meisters 1975, "Polygons have ears"), on the polygon as seen along
// the main axis of its Newell normal.
#pragma once
#include <vector>

#include "vq_gmath/gmath_vec.h"

/// Newell's normal: its length is twice the polygon's area, and it does not mind concave corners or a warped surface.
GMathVec3<double> poly_mesh_get_newell_normal(const std::vector<GMathVec3<double>>& points);

/// Keeps its memory from polygon to polygon. One thread at a time.
class PolyMeshTriangulator {
 public:
  /// The polygon's corners, in order; filled by the caller.
  std::vector<GMathVec3<double>> points;

  /// Writes points.size() - 2 triangles of three corner numbers each, wound as the polygon; nothing for fewer than
  /// three corners. Collinear and coincident corners give triangles without area, so that every edge of the polygon is
  /// an edge of a triangle. What cannot be clipped (crossing edges, NaN) becomes a fan. O(n^2).
  void triangulate(std::vector<u32>& triangles);

 private:
  enum class Ear : u8 { unknown, no, yes };
  enum class Rule { strict, touching, flat };
  struct Corner {
    double x = 0.0, y = 0.0;
    u32 previous = 0, next = 0;
    Ear ear = Ear::unknown;
    bool reflex = false;
  };

  void project();
  void mark_reflex(Corner& corner) const;
  bool is_ear(const Corner& corner, Rule rule);
  bool is_inside(const Corner& a, const Corner& b, const Corner& c, const Corner& p, Rule rule) const;
  bool find_ear(u32& corner);
  void clip(u32 corner, std::vector<u32>& triangles);
  static double get_turn(const Corner& a, const Corner& b, const Corner& c);

  std::vector<Corner> corners_;
  u32 left_ = 0;         // corners that are not clipped yet
  double budget_ = 0.0;  // point tests that may still be spent
};
