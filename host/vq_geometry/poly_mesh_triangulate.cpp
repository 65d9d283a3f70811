#include "vq_geometry/poly_mesh_triangulate.h"

#include <algorithm>
#include <cmath>

namespace {

/// Below, testing every corner against every other takes less than a tenth of a millisecond.
constexpr u32 most_of_small = 256;

}  // namespace

GMathVec3<double> poly_mesh_get_newell_normal(const std::vector<GMathVec3<double>>& points) {
  GMathVec3<double> normal;
  for (std::size_t k = 0; k < points.size(); ++k) {
    // Relative to the first corner, so that a small polygon far from the origin keeps its digits.
    const GMathVec3<double> a = points[k] - points[0];
    const GMathVec3<double> b = points[k + 1 < points.size() ? k + 1 : 0] - points[0];
    normal += a.cross(b);
  }
  return normal;
}

/// Dropping a coordinate keeps the others exact, so that collinear corners stay collinear.
void PolyMeshTriangulator::project() {
  const GMathVec3<double> normal = poly_mesh_get_newell_normal(points);
  uint drop = 0;
  for (uint axis = 1; axis < 3; ++axis)
    if (std::fabs(normal[axis]) > std::fabs(normal[drop])) drop = axis;
  uint x = (drop + 1) % 3, y = (drop + 2) % 3;
  if (normal[drop] < 0.0) std::swap(x, y);  // counter-clockwise from here on
  const u32 count = static_cast<u32>(points.size());
  corners_.resize(count);
  for (u32 k = 0; k < count; ++k)
    corners_[k] = {points[k][x], points[k][y], k == 0 ? count - 1 : k - 1, k + 1 == count ? 0 : k + 1};
  for (Corner& corner : corners_) mark_reflex(corner);
}

/// Twice the area of the triangle: positive for a left turn.
double PolyMeshTriangulator::get_turn(const Corner& a, const Corner& b, const Corner& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

void PolyMeshTriangulator::mark_reflex(Corner& corner) const {
  corner.reflex = !(get_turn(corners_[corner.previous], corner, corners_[corner.next]) > 0.0);
}

bool PolyMeshTriangulator::is_inside(const Corner& a, const Corner& b, const Corner& c, const Corner& p,
                                     Rule rule) const {
  const auto is_at = [&](const Corner& corner) { return p.x == corner.x && p.y == corner.y; };
  if (is_at(a) || is_at(b) || is_at(c)) return false;  // duplicate corners where an edge joins a hole to the outline
  const double turns[3] = {get_turn(a, b, p), get_turn(b, c, p), get_turn(c, a, p)};
  const double smallest = std::min({turns[0], turns[1], turns[2]});
  return rule == Rule::strict ? smallest >= 0.0 : smallest > 0.0;
}

/// Only reflex corners need a test: if any corner is in the ear, the one nearest to the ear's tip is reflex.
bool PolyMeshTriangulator::is_ear(const Corner& corner, Rule rule) {
  const Corner& a = corners_[corner.previous];
  const Corner& c = corners_[corner.next];
  const double turn = get_turn(a, corner, c);
  if (rule == Rule::flat) return turn == 0.0;
  if (!(turn > 0.0)) return false;
  budget_ -= left_;
  for (u32 k = corners_[corner.next].next; k != corner.previous; k = corners_[k].next)
    if (corners_[k].reflex && is_inside(a, corner, c, corners_[k], rule)) return false;
  return true;
}

/// The next ear from `corner` on. A polygon with crossing or touching edges may have none by the strict rule; then
/// weaker rules are tried.
bool PolyMeshTriangulator::find_ear(u32& corner) {
  for (u32 k = 0; k < left_; ++k, corner = corners_[corner].next) {
    Corner& at = corners_[corner];
    if (at.ear == Ear::unknown) at.ear = is_ear(at, Rule::strict) ? Ear::yes : Ear::no;
    if (at.ear == Ear::yes) return true;
  }
  for (const Rule rule : {Rule::strict, Rule::touching, Rule::flat}) {
    for (u32 k = 0; k < left_ && budget_ > 0.0; ++k, corner = corners_[corner].next)
      if (is_ear(corners_[corner], rule)) return true;
  }
  return false;
}

void PolyMeshTriangulator::clip(u32 corner, std::vector<u32>& triangles) {
  const u32 previous = corners_[corner].previous, next = corners_[corner].next;
  triangles.insert(triangles.end(), {previous, corner, next});
  corners_[previous].next = next;
  corners_[next].previous = previous;
  for (const u32 neighbor : {previous, next}) {
    mark_reflex(corners_[neighbor]);
    corners_[neighbor].ear = Ear::unknown;
  }
  --left_;
}

u32 PolyMeshTriangulator::clip_small(std::vector<u32>& triangles) {
  budget_ = 16.0 * left_ * left_;  // simple polygons need about two tests per pair of corners
  u32 corner = 1;                  // a fan around corner 0 where all corners are convex
  while (left_ > 3 && find_ear(corner) && budget_ > 0.0) {
    clip(corner, triangles);
    corner = corners_[corner].next;
  }
  return corner;
}

void PolyMeshTriangulator::triangulate(std::vector<u32>& triangles) {
  triangles.clear();
  left_ = static_cast<u32>(points.size());
  if (left_ < 3) return;
  project();
  const u32 corner = left_ > most_of_small ? clip_large(triangles) : clip_small(triangles);
  u32 first = corners_[corner].next;
  u32 second = corners_[first].next;
  for (; left_ >= 3; --left_, second = corners_[second].next)
    triangles.insert(triangles.end(), {first, second, corners_[second].next});
}
