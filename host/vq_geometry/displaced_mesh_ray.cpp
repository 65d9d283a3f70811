// Ray test of a displaced polygon. A ray that meets the box of a tile descends through the tile's pyramid, nearer
// children first, with four boxes per step in single precision, and tests the micro-triangles of the blocks it reaches
// in double precision by the watertight test that PolyMesh uses.
#include <algorithm>
#include <cmath>

#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/geometry_ray_triangle.h"
#include "vq_simd/simd_float.h"

namespace {

using Vec = GMathVec3<double>;

/// The exact hits of micro-edges and micro-vertices by one ray in one primitive: the micro-triangles around them give
/// one hit. Micro-vertices are recognized by their positions in the ray's space, which patches and tiles share.
class MetFeatures {
 public:
  void clear() {
    count_ = 0;
    more_.clear();
  }
  /// Adds the features of a hit triangle. False if one of them was there already.
  bool add(const GeometryShearedVertex& a, const GeometryShearedVertex& b, const GeometryShearedVertex& c) {
    bool is_new = true;
    const GeometryShearedVertex* corners[3] = {&a, &b, &c};
    for (uint k = 0; k < 3; ++k) {
      const GeometryShearedVertex& from = *corners[k];
      const GeometryShearedVertex& to = *corners[k == 2 ? 0 : k + 1];
      if (from.x == 0.0 && from.y == 0.0 && !add({from, from})) is_new = false;
      if (geometry_get_edge_function(from, to) == 0.0 && !add({from, to})) is_new = false;
    }
    return is_new;
  }

 private:
  struct Feature {
    GeometryShearedVertex from, to;  // equal: a vertex
  };
  static bool is_same(const GeometryShearedVertex& a, const GeometryShearedVertex& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
  }
  static bool is_same(const Feature& a, const Feature& b) {
    return (is_same(a.from, b.from) && is_same(a.to, b.to)) || (is_same(a.from, b.to) && is_same(a.to, b.from));
  }
  bool add(const Feature& feature) {
    const auto is_this = [&](const Feature& other) { return is_same(feature, other); };
    if (std::any_of(first_, first_ + count_, is_this) || std::any_of(more_.begin(), more_.end(), is_this)) return false;
    if (count_ < capacity)
      first_[count_++] = feature;
    else
      more_.push_back(feature);
    return true;
  }

  static constexpr uint capacity = 16;  // beyond, a ray in the plane of many micro-edges allocates
  Feature first_[capacity];
  uint count_ = 0;
  std::vector<Feature> more_;
};

/// The part of a ray in a tile, in single precision. It begins where the ray enters the tile's box, so that coordinates
/// are as precise as the micro-vertices, however far away the ray begins. Distances are in units of the direction's
/// largest component. Bounds are moved outwards by a margin that is larger than all rounding errors: no micro-triangle
/// that the exact test hits is missed.
class TileRay {
 public:
  /// False if the ray misses the box in [tnear, limit].
  bool begin(const GMathBasicRay<double>& ray, const GMathBbox3<double>& box, double tnear, double limit);
  /// A distance of the whole ray, rounded up.
  float get_local(double distance) const {
    return static_cast<float>(std::min((distance - start_) * scale_, 1e37) * (1.0 + 0x1p-20) + 1e-37);
  }
  /// Slab test (Kay, Kajiya 1986) of the four children of a node. Returns one bit per child that is hit.
  template <class LoadPlane>
  uint test(float limit, float* entries, const LoadPlane& load_plane) const;

 private:
  double start_ = 0.0, scale_ = 1.0;
  uint near_plane_[3], far_plane_[3];  // of DisplacedMeshNode::planes
  SimdF near_origin_[3], far_origin_[3], inverse_[3];
};

bool TileRay::begin(const GMathBasicRay<double>& ray, const GMathBbox3<double>& box, double tnear, double limit) {
  Vec margin;
  double entry = tnear, exit = limit;
  for (uint axis = 0; axis < 3; ++axis) {
    const double reach = std::max(std::fabs(box.min[axis]), std::fabs(box.max[axis]));
    // Single precision: eleven roundings of numbers up to the reach. Double: the way from the origin.
    margin[axis] = reach * 0x1p-20 + (std::fabs(ray.origin[axis]) + reach) * 0x1p-48;
    const double low = (box.min[axis] - margin[axis] - ray.origin[axis]) * ray.inverse[axis];
    const double high = (box.max[axis] + margin[axis] - ray.origin[axis]) * ray.inverse[axis];
    const double first = ray.negative[axis] ? high : low, last = ray.negative[axis] ? low : high;
    if (first > entry) entry = first;  // NaN, for a ray in the plane of a bound or a box of NaN: no bound
    if (last < exit) exit = last;
  }
  if (!(entry <= exit)) return false;
  start_ = entry;
  scale_ = std::max({std::fabs(ray.direction.x), std::fabs(ray.direction.y), std::fabs(ray.direction.z)});
  const Vec origin = ray.origin + ray.direction * start_;
  if (!(scale_ > 0.0) || !gmath_isfinited(origin.x + origin.y + origin.z)) return false;
  for (uint axis = 0; axis < 3; ++axis) {
    const double outwards = ray.negative[axis] ? -margin[axis] : margin[axis];
    near_plane_[axis] = 2 * axis + (ray.negative[axis] ? 1 : 0);
    far_plane_[axis] = 2 * axis + (ray.negative[axis] ? 0 : 1);
    near_origin_[axis] = SimdF(static_cast<float>(origin[axis] + outwards));
    far_origin_[axis] = SimdF(static_cast<float>(origin[axis] - outwards));
    inverse_[axis] = SimdF(static_cast<float>(std::clamp(ray.inverse[axis] * scale_, -1e37, 1e37)));
  }
  return true;
}

template <class LoadPlane>
inline uint TileRay::test(float limit, float* entries, const LoadPlane& load_plane) const {
  // min and max return the second operand when one is NaN.
  SimdF entry(0.0f), exit(limit);
  for (uint axis = 0; axis < 3; ++axis) {
    entry = max((load_plane(near_plane_[axis]) - near_origin_[axis]) * inverse_[axis], entry);
    exit = min((load_plane(far_plane_[axis]) - far_origin_[axis]) * inverse_[axis], exit);
  }
  entry.store_unaligned(entries);
  return ((entry <= exit) & (load_plane(0) <= load_plane(1))).get_bits();  // a missing child is inverted
}

}  // namespace

/// The test of one primitive by the rays of a query, one after the other.
class DisplacedMesh::RayTest {
 public:
  RayTest(const DisplacedMesh& mesh, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive)
      : mesh_(mesh), ctx_(ctx), shader_(shader), query_(query), primitive_(primitive) {}

  void test(uint ray, const Moment& moment);

 private:
  struct StackEntry {
    float entry;
    u8 level, i, j;
  };
  /// Three children wait on each level, and four on the last.
  static constexpr uint stack_capacity = 3 * DisplacedMeshTileShape::most_levels + 4;
  static constexpr uint pin_count = 4;

  struct CellPlace {
    uint part, i, j;
  };
  struct CachedTile {
    DisplacedMeshCache::Pin tile;
    DisplacedMeshTileKey key;
  };

  const DisplacedMeshTile& get_tile(const TilePlace& place, const Moment& moment);
  template <bool moving>
  void test_tile(const TileRay& local, const DisplacedMeshTile& tile, uint part, double fraction);
  template <bool moving>
  void test_block(const DisplacedMeshTile& tile, uint part, uint block_i, uint block_j, double fraction);
  void test_triangle(const GeometryShearedVertex& a, const GeometryShearedVertex& b, const GeometryShearedVertex& c,
                     const CellPlace& cell, bool upper);
  bool is_ended() const {
    return query_.is_nearest() ? query_.get_limit(ray_) < query_.get_tnear(ray_) : query_.is_stopped(ray_);
  }

  const DisplacedMesh& mesh_;
  const CtxEval& ctx_;
  CtxShader& shader_;
  GeometryRaytraceCtx& query_;
  const uint primitive_;
  uint ray_ = 0;
  const GeometryShearedRay* sheared_ = nullptr;
  MetFeatures met_;
  CachedTile tiles_[pin_count];  // the rays of a packet often meet the same tiles
};

void DisplacedMesh::RayTest::test(uint ray, const Moment& moment) {
  ray_ = ray;
  const GMathBasicRay<double>& whole = query_.get_ray(ray);
  const GeometryShearedRay sheared(whole);
  sheared_ = &sheared;
  met_.clear();
  mesh_.for_each_tile(primitive_, [&](const TilePlace& place) {
    GMathBbox3<double> box(mesh_.get_tile_box(place, moment, 0));
    if (moment.frame_count == 2) {
      const GMathBbox3<double> next(mesh_.get_tile_box(place, moment, 1));
      box.min = box.min * (1.0 - moment.fraction) + next.min * moment.fraction;
      box.max = box.max * (1.0 - moment.fraction) + next.max * moment.fraction;
    }
    TileRay local;
    if (!local.begin(whole, box, query_.get_tnear(ray), query_.get_limit(ray))) return true;
    const DisplacedMeshTile& tile = get_tile(place, moment);
    if (moment.frame_count == 2)
      test_tile<true>(local, tile, place.part, moment.fraction);
    else
      test_tile<false>(local, tile, place.part, 0.0);
    return !is_ended();
  });
}

const DisplacedMeshTile& DisplacedMesh::RayTest::get_tile(const TilePlace& place, const Moment& moment) {
  CachedTile& cached = tiles_[place.index % pin_count];
  const DisplacedMeshTileKey key{place.index, moment.first_frame};
  if (cached.tile == nullptr || !(cached.key == key)) {
    cached.tile = mesh_.get_tile(place, moment);
    cached.key = key;
  }
  return *cached.tile;
}

template <bool moving>
void DisplacedMesh::RayTest::test_tile(const TileRay& local, const DisplacedMeshTile& tile, uint part,
                                       double fraction) {
  const DisplacedMeshTileShape& shape = tile.get_shape();
  const SimdF blend(static_cast<float>(fraction));
  StackEntry stack[stack_capacity];
  stack[0] = {0.0f, static_cast<u8>(shape.top_level), 0, 0};
  float limit = local.get_local(query_.get_limit(ray_));
  for (uint count = 1; count > 0;) {
    const StackEntry at = stack[--count];
    if (at.entry > limit) continue;
    if (at.level == 0) {
      test_block<moving>(tile, part, at.i, at.j, fraction);
      if (is_ended()) return;
      limit = local.get_local(query_.get_limit(ray_));
      continue;
    }
    const uint node = shape.get_node(at.level, at.i, at.j);
    float entries[4];
    uint hits = local.test(limit, entries, [&](uint plane) {
      const SimdF first = SimdF::load(tile.get_node(node, 0).planes[plane]);
      if constexpr (!moving) return first;
      return first + (SimdF::load(tile.get_node(node, 1).planes[plane]) - first) * blend;
    });
    const uint first = count;
    for (; hits != 0; hits &= hits - 1) {
      const uint lane = static_cast<uint>(std::countr_zero(hits));
      const StackEntry child{entries[lane], static_cast<u8>(at.level - 1), static_cast<u8>(2 * at.i + (lane >> 1)),
                             static_cast<u8>(2 * at.j + (lane & 1))};
      uint slot = count++;
      for (; slot > first && stack[slot - 1].entry < child.entry; --slot) stack[slot] = stack[slot - 1];
      stack[slot] = child;  // the nearest is on top
    }
  }
}

/// Eight micro-triangles on nine micro-vertices, fewer at the patch's third edge.
template <bool moving>
void DisplacedMesh::RayTest::test_block(const DisplacedMeshTile& tile, uint part, uint block_i, uint block_j,
                                        double fraction) {
  constexpr uint cells = DisplacedMeshTileShape::block_cells;
  const DisplacedMeshTileShape& shape = tile.get_shape();
  const uint first_i = block_i * cells, first_j = block_j * cells;
  const bool is_whole = shape.has_upper(first_i + cells - 1, first_j + cells - 1);
  GeometryShearedVertex vertices[cells + 1][cells + 1];
  for (uint i = 0; i <= cells; ++i) {
    const uint first = shape.get_vertex(first_i + i, first_j);
    for (uint j = 0; j <= cells; ++j) {
      if (!is_whole && first_j + j >= shape.get_row_length(first_i + i)) break;
      const GMathVec3<float>& position = tile.get_vertices(0)[first + j];
      if constexpr (moving)
        vertices[i][j] = GeometryShearedVertex(
            *sheared_, Vec(position) * (1.0 - fraction) + Vec(tile.get_vertices(1)[first + j]) * fraction);
      else
        vertices[i][j] = GeometryShearedVertex(*sheared_, position);
    }
  }
  for (uint i = 0; i < cells; ++i)
    for (uint j = 0; j < cells; ++j) {
      const CellPlace cell{part, tile.get_first_i() + first_i + i, tile.get_first_j() + first_j + j};
      if (is_whole || shape.has_cell(first_i + i, first_j + j))
        test_triangle(vertices[i][j], vertices[i + 1][j], vertices[i][j + 1], cell, false);
      if (is_whole || shape.has_upper(first_i + i, first_j + j))
        test_triangle(vertices[i + 1][j + 1], vertices[i][j + 1], vertices[i + 1][j], cell, true);
    }
}

inline void DisplacedMesh::RayTest::test_triangle(const GeometryShearedVertex& a, const GeometryShearedVertex& b,
                                                  const GeometryShearedVertex& c, const CellPlace& cell, bool upper) {
  GeometryCandidate hit;
  if (!geometry_hit_triangle(*sheared_, a, b, c, hit) || is_ended()) return;
  if (!(hit.distance >= query_.get_tnear(ray_) && hit.distance < query_.get_limit(ray_))) return;
  // A nearest hit needs no test: a second hit at the same point is not nearer.
  if (!query_.is_nearest() && geometry_may_be_on_edge(hit) && !met_.add(a, b, c)) return;
  hit.primitive = primitive_;
  hit.part = mesh_.get_part_number(cell.part, cell.i, cell.j, upper);
  query_.push_intersection(ctx_, shader_, ray_, hit);
}

void DisplacedMesh::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                      const uint& primitive) const {
  const bool moving = has_motion() && query.spans != nullptr && query.span_stamp != 0;
  RayTest test(*this, ctx, shader, query, primitive);
  for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
    if (!query.is_nearest() && query.is_stopped(ray)) continue;
    ++query.counter;
    test.test(ray, moving ? get_moment(query.spans[ray].time) : Moment());
  }
}
