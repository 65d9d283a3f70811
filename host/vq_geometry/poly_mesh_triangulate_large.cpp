// Ear clipping of large polygons. Corners to be tested are in a queue, and a k-d tree finds the reflex corners inside
// an ear. Clipping invalidates only the tests of the two neighbors; they go to the end of the queue, so that every
// second corner of a convex part is clipped and the triangles have similar sizes.
#include "vq_geometry/poly_mesh_triangulate.h"

namespace {

/// The corners of a polygon whose edges touch or cross may need several sweeps; simple polygons need one.
constexpr uint most_sweeps = 8;

}  // namespace

/// Adds a corner to the queue of a rule. Only its last entry is valid.
void PolyMeshTriangulator::enqueue(u32 corner, Rule rule) {
  corners_[corner].ticket = ++last_ticket_;
  queues_[static_cast<uint>(rule)].push_back({corner, last_ticket_});
}

/// Takes the next corner from the strictest rule that has one.
bool PolyMeshTriangulator::dequeue(u32& corner, Rule& rule) {
  for (const Rule next : {Rule::strict, Rule::touching, Rule::flat}) {
    std::deque<Waiting>& queue = queues_[static_cast<uint>(next)];
    while (!queue.empty()) {
      const Waiting waiting = queue.front();
      queue.pop_front();
      if (corners_[waiting.corner].ticket != waiting.ticket) continue;
      corner = waiting.corner;
      rule = next;
      return true;
    }
  }
  return false;
}

bool PolyMeshTriangulator::is_ear_of_large(u32 corner, Rule rule) const {
  const Corner& b = corners_[corner];
  const Corner& a = corners_[b.previous];
  const Corner& c = corners_[b.next];
  const double turn = get_turn(a, b, c);
  if (rule == Rule::flat) return turn == 0.0;
  return turn > 0.0 && !index_.find({a.x, a.y}, {b.x, b.y}, {c.x, c.y},
                                    [&](u32 other) { return is_inside(a, b, c, corners_[other], rule); });
}

u32 PolyMeshTriangulator::clip_large(std::vector<u32>& triangles) {
  std::vector<PolyMeshCornerIndex::Point> projected;
  for (const Corner& corner : corners_) {
    if (!gmath_isfinited(corner.x) || !gmath_isfinited(corner.y)) return 0;
    projected.push_back({corner.x, corner.y});
  }
  index_.build(projected);
  for (u32 k = 0; k < left_; ++k) index_.set_active(k, corners_[k].reflex);
  last_ticket_ = 0;
  u32 corner = 0;
  Rule rule = Rule::strict;
  u32 before = left_ + 1;
  for (uint sweep = 0; sweep < most_sweeps && left_ > 3 && left_ < before; ++sweep) {
    before = left_;
    for (u32 k = 0; k < left_; ++k, corner = corners_[corner].next) enqueue(corner, Rule::strict);
    while (left_ > 3 && dequeue(corner, rule)) {
      if (!is_ear_of_large(corner, rule)) {
        if (rule != Rule::flat) enqueue(corner, rule == Rule::strict ? Rule::touching : Rule::flat);
        continue;
      }
      clip(corner, triangles);
      index_.set_active(corner, false);
      for (const u32 neighbor : {corners_[corner].previous, corners_[corner].next}) {
        index_.set_active(neighbor, corners_[neighbor].reflex);
        enqueue(neighbor, Rule::strict);
      }
      corner = corners_[corner].next;
    }
  }
  for (std::deque<Waiting>& queue : queues_) queue.clear();
  return corner;
}
