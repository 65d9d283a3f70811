#include "tools/vqgas/scene/uv_statistics.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>

#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/parallel.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

namespace {

/// An edge between two corners, each a vertex with its UV position.
struct IslandEdge {
  u64 first, second;  ///< first <= second
  uint polygon;
};

uint find_root(std::vector<uint>& parents, uint polygon) {
  while (parents[polygon] != polygon) polygon = parents[polygon] = parents[parents[polygon]];
  return polygon;
}

std::vector<IslandEdge> list_edges(const UvLayout& layout) {
  const PolyMesh& mesh = *layout.mesh;
  const std::vector<u32>& uvs = layout.get_map().corner_positions;
  std::vector<IslandEdge> edges;
  edges.reserve(uvs.size());
  for (uint polygon = 0; polygon < mesh.get_polygon_count(); ++polygon) {
    if (polygon % 16384 == 0) throw_if_interrupted();
    const uint count = mesh.get_polygon_vertex_count(polygon), first = mesh.get_first_corner(polygon);
    const auto get = [&](uint corner) {
      return u64{mesh.get_polygon_vertex(polygon, corner)} << 32 | uvs[first + corner];
    };
    for (uint corner = 0; corner < count; ++corner) {
      const u64 a = get(corner), b = get((corner + 1) % count);
      if (u32(a) != u32(b)) edges.push_back({std::min(a, b), std::max(a, b), polygon});
    }
  }
  return edges;
}

/// True if all edges of both triangles, moved inwards, leave more than uv_touching in common: the axes along which
/// convex shapes can be separated are normal to their edges (Gottschalk, Lin, Manocha 1996, "OBBTree").
bool overlap_triangles(const UvTriangle& a, const UvTriangle& b) {
  for (const UvTriangle* edges : {&a, &b}) {
    for (uint k = 0; k < 3; ++k) {
      const UvPoint &from = (*edges)[k], &to = (*edges)[(k + 1) % 3];
      const UvPoint normal{from.y - to.y, to.x - from.x};
      const auto measure = [&](const UvTriangle& t) {
        const auto get = [&](const UvPoint& p) { return (p.x - from.x) * normal.x + (p.y - from.y) * normal.y; };
        return std::minmax({get(t[0]), get(t[1]), get(t[2])});
      };
      const auto [low_a, high_a] = measure(a);
      const auto [low_b, high_b] = measure(b);
      const double common = std::min(high_a, high_b) - std::max(low_a, low_b);
      if (!(common > uv_touching * std::hypot(normal.x, normal.y))) return false;
    }
  }
  return true;
}

}  // namespace

uint count_uv_islands(const UvLayout& layout) {
  std::vector<IslandEdge> edges = list_edges(layout);
  std::sort(edges.begin(), edges.end(), [](const IslandEdge& a, const IslandEdge& b) {
    return a.first != b.first ? a.first < b.first : a.second < b.second;
  });
  std::vector<uint> parents(layout.mesh->get_polygon_count());
  std::iota(parents.begin(), parents.end(), 0u);
  uint islands = layout.mesh->get_polygon_count();
  for (std::size_t k = 1; k < edges.size(); ++k) {
    if (edges[k].first != edges[k - 1].first || edges[k].second != edges[k - 1].second) continue;
    const uint a = find_root(parents, edges[k].polygon), b = find_root(parents, edges[k - 1].polygon);
    islands -= a != b;
    parents[a] = b;
  }
  return islands;
}

uint count_flipped_polygons(const UvLayout& layout) {
  const PolyMesh& mesh = *layout.mesh;
  uint flipped = 0;
  for (uint polygon = 0; polygon < mesh.get_polygon_count(); ++polygon) {
    double area = 0.0, size = 0.0;  // twice the area, with and without signs
    for (uint part = 0; part < mesh.get_part_count(polygon); ++part) {
      const double doubled = get_doubled_area(get_uv_triangle(layout, polygon, part));
      area += doubled;
      size += std::fabs(doubled);
    }
    flipped += area < -1e-9 * size;
  }
  return flipped;
}

/// Reaches the leaf callback, which gets one pointer for the whole tree.
struct UvPolygonTree::OverlapQuery : GeometryFrustumCtx {
  uint polygon = 0;
};

struct UvPolygonTree::PointQuery {
  const UvPolygonTree* tree;
  UvPoint point;
};

UvPolygonTree::UvPolygonTree(OfApp& application, const UvLayout& layout) : application_(application), layout_(layout) {
  const PolyMesh& mesh = *layout.mesh;
  for (uint polygon = 0; polygon < mesh.get_polygon_count(); ++polygon) {
    if (polygon % 16384 == 0) throw_if_interrupted();
    first_triangle_.push_back(static_cast<uint>(triangles_.size()));
    GMathBbox3<float> box;  // without triangles it stays empty and gets no leaf
    box.set_empty();
    for (uint part = 0; part < mesh.get_part_count(polygon); ++part) {
      UvTriangle triangle = get_uv_triangle(layout, polygon, part);
      const double area = get_doubled_area(triangle);
      if (area == 0.0) continue;
      if (area < 0.0) std::swap(triangle[1], triangle[2]);
      for (const UvPoint& p : triangle) box.add({static_cast<float>(p.x), static_cast<float>(p.y), 0.0f});
      triangles_.push_back(triangle);
    }
    if (!boxes_.add(box)) throw std::bad_alloc();
  }
  first_triangle_.push_back(static_cast<uint>(triangles_.size()));
  AppProgressBar* progress = application.create_progress_bar("Build tree of polygons");
  try {
    tree_.create(boxes_, progress, &application);
  } catch (const AppStopped&) {
    throw Interrupted();
  }
  progress->finish();
  tree_.set_frustum_leaf(
      [](void* user, const uint& leaf, const CtxEval&, CtxShader&, GeometryFrustumCtx& query) {
        const uint polygon = static_cast<OverlapQuery&>(query).polygon;
        if (leaf != polygon && static_cast<const UvPolygonTree*>(user)->overlap(polygon, leaf))
          query.result.finished = 1;
      },
      this);
  tree_.set_ray_leaf(
      [](void* user, const uint& leaf, const CtxEval&, CtxShader&, GeometryRaytraceCtx& ray) {
        const auto& query = *static_cast<const PointQuery*>(user);
        if (query.tree->covers(leaf, query.point)) ray.ray_flags[0] = 1;  // ends the query
      },
      nullptr);
}

bool UvPolygonTree::overlap(uint polygon, uint other) const {
  for (uint a = first_triangle_[polygon]; a < first_triangle_[polygon + 1]; ++a)
    for (uint b = first_triangle_[other]; b < first_triangle_[other + 1]; ++b)
      if (overlap_triangles(triangles_[a], triangles_[b])) return true;
  return false;
}

bool UvPolygonTree::covers(uint polygon, const UvPoint& point) const {
  for (uint k = first_triangle_[polygon]; k < first_triangle_[polygon + 1]; ++k) {
    const UvTriangle& t = triangles_[k];
    if (get_doubled_area({t[0], t[1], point}) >= 0.0 && get_doubled_area({t[1], t[2], point}) >= 0.0 &&
        get_doubled_area({t[2], t[0], point}) >= 0.0)
      return true;
  }
  return false;
}

/// Polygons whose boxes have no more than the border in common with the polygon's are behind one of the planes.
bool UvPolygonTree::overlaps_other(const CtxEval& ctx, CtxShader& shader, OverlapQuery& query, uint polygon) const {
  if (first_triangle_[polygon] == first_triangle_[polygon + 1]) return false;
  const GMathVec3<double> low(boxes_[polygon].min), high(boxes_[polygon].max);
  const GMathVec3<double> border(uv_touching, uv_touching, 0.0);
  query.polygon = polygon;
  query.clear_results();
  query.plane_count = 0;
  for (const GMathVec3<double>& axis : {GMathVec3<double>(1, 0, 0), GMathVec3<double>(0, 1, 0)}) {
    query.add_plane({low + border, axis});
    query.add_plane({high - border, axis * -1.0});
  }
  tree_.frustum_hit(ctx, shader, query);
  return query.result.finished != 0;
}

uint UvPolygonTree::count_overlapping() const {
  std::atomic<uint> overlapping = 0, done = 0;
  const uint count = layout_.mesh->get_polygon_count();
  AppProgressBar* progress = application_.create_progress_bar("Find overlaps");
  progress->begin_task("Find overlaps", 1.0);
  progress->set_step_count(count);
  run_slices(&application_, count, 256, [&](uint first, uint end) {
    const CtxEval ctx(application_.get_factory());
    CtxShader shader;
    OverlapQuery query;
    for (uint polygon = first; polygon < end && !is_interrupted(); ++polygon)
      overlapping += overlaps_other(ctx, shader, query, polygon);
    progress->step(done += end - first);
  });
  progress->finish();
  return overlapping;
}

uint UvPolygonTree::count_unused(const UvTile& tile, uint first_row, uint end_row) const {
  const CtxEval ctx(application_.get_factory());
  CtxShader shader;
  GMathRay ray;
  GeometryRayInterval interval;
  GeometryRaytraceCtx query;
  query.rays = reinterpret_cast<const u8*>(&ray);
  query.ray_count = 1;
  query.intervals = &interval;
  u64 is_covered = 0;
  query.ray_flags = &is_covered;
  uint unused = 0;
  for (uint row = first_row; row < end_row && !is_interrupted(); ++row) {
    for (uint column = 0; column < samples_per_side; ++column) {
      PointQuery at{this, {tile.u + (column + 0.5) / samples_per_side, tile.v + (row + 0.5) / samples_per_side}};
      ray.set({at.point.x, at.point.y, -1.0}, {0.0, 0.0, 1.0});
      is_covered = 0;
      tree_.ray_hit_extent(ctx, shader, query, &at);
      unused += is_covered == 0;
    }
  }
  return unused;
}

double UvPolygonTree::get_unused_share(const std::vector<UvTile>& tiles) const {
  std::atomic<u64> unused = 0;
  std::atomic<uint> done = 0;
  const uint rows = samples_per_side * static_cast<uint>(tiles.size());
  AppProgressBar* progress = application_.create_progress_bar("Find unused space");
  progress->begin_task("Find unused space", 1.0);
  progress->set_step_count(rows);
  constexpr uint slice = 8;
  static_assert(samples_per_side % slice == 0, "a slice lies in one tile");
  run_slices(&application_, rows, slice, [&](uint first, uint end) {
    const uint row = first % samples_per_side;
    unused += count_unused(tiles[first / samples_per_side], row, row + end - first);
    progress->step(done += end - first);
  });
  progress->finish();
  return static_cast<double>(unused) / (double{samples_per_side} * rows);
}
