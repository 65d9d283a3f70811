// host/vq_geometry/geometry_intersection.h
//
// What a ray query records, and where.
//
//   nearest    GeometryIntersectionMap --> GeometryIntersection[ray count]   one record a ray: the nearest so far
//   all hits   GeometryHitList         --> GeometryHit[hit count]            appended in the order they are found
//
// A record is written for every accepted candidate, most of which a nearer hit soon replaces, so it holds small values
// only: position, normal and texture coordinates are worked out from (geometry, primitive, part, u, v) when somebody
// asks. The matrix to world is not copied either: the record notes the nesting level whose space it is in, and
// transform_path() lifts it when the query leaves that level. Transforms, and the objects through which a nested hit
// was found, lie beside the records; a query of one structure alone never makes them.
#pragma once
#include <cfloat>
#include <memory>
#include <span>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_gmath/gmath_matrix.h"

class GeometryObject;

struct GeometryIntersection {
  double distance = DBL_MAX;                 ///< along the ray, in units of its direction
  double u = 0.0, v = 0.0;                   ///< barycentric weights of the part's second and third corner
  double weight = 1.0;                       ///< how much of the ray the hit stops
  const GeometryObject* geometry = nullptr;  ///< null: no hit
  uint primitive = core_invalid_index;
  uint part = 0;  ///< which triangle of the polygon, which piece of the curve
  uint shading_group = 0;
  uint instance = 0;                    ///< number of the instance within its bundle
  uint depth = 0;                       ///< instancing depth
  uint level = 0;                       ///< nesting level whose space the hit is in; 0 is the caller's
  uint transform = core_invalid_index;  ///< into the owner's transforms, to the space of `level`; none: identity
  uint path = core_invalid_index;       ///< into the owner's paths; none: found through no object
};
static_assert(sizeof(GeometryIntersection) == 72);

/// Where a hit of a nested query comes from, in matrices.
struct GeometryHitTransform {
  GMathMatrix4x4<double> matrix;   ///< geometry space to the space of the record's level
  GMathMatrix4x4<double> matrix2;  ///< the same at the end of the ray's motion span, when has_vectors
  bool has_vectors = false;
};

/// The nearest hits of a packet: one record a ray and, from the first nested hit on, one transform and one path a ray.
class GeometryNearestHits {
 public:
  /// One empty record a ray. Grows, never shrinks. Not between a query and the reading of its results.
  void resize(uint ray_count) {
    if (records_.size() < ray_count) records_.resize(ray_count);
  }
  /// Makes the transforms and paths, before anything is asked that may note one. False when there is no memory.
  bool reserve_nested() {
    return (transforms_.size() >= records_.size() && path_count_ >= records_.size()) || grow_nested();
  }
  GeometryIntersection* get_records() { return records_.data(); }
  /// After reserve_nested().
  GeometryHitTransform* get_transforms() { return transforms_.data(); }
  GeometryIntersectionPath* get_paths() { return paths_.get(); }

 private:
  bool grow_nested();

  std::vector<GeometryIntersection> records_;
  std::vector<GeometryHitTransform> transforms_;
  std::unique_ptr<GeometryIntersectionPath[]> paths_;
  std::size_t path_count_ = 0;
};

/// The view of one nesting level on the nearest hits of the outermost query.
class GeometryIntersectionMap {
 public:
  GeometryIntersectionMap() = default;
  GeometryIntersectionMap(GeometryNearestHits& hits, uint level)
      : hits_(&hits), records_(hits.get_records()), level_(level) {}

  /// The nearest hit so far of ray `ray`. Before any hit its distance is the ray's tfar.
  const GeometryIntersection& get_path(const uint& ray) const { return records_[ray]; }
  GeometryIntersection& get_record(const uint& ray) { return records_[ray]; }
  uint get_level() const { return level_; }
  /// To be called before a deeper level is queried. False when there is no memory for what its hits bring along.
  bool reserve_nested() { return hits_->reserve_nested(); }
  /// The view of the next nesting level on the same records.
  GeometryIntersectionMap get_deeper() const {
    GeometryIntersectionMap deeper = *this;
    ++deeper.level_;
    return deeper;
  }
  /// Remembers that the record of ray `ray` was found under `path`. Allocates only when the packet, or the path, is
  /// larger than any before.
  void note_path(const uint& ray, const GeometryIntersectionPath& path);

  /// Lifts the hit of ray `ray` into this level's space, if it was found one level deeper; else nothing. The distance
  /// is the same in all spaces. `depth` labels the level that is left; the record's own level decides.
  void transform_path(const uint& ray, const GMathMatrix4x4<double>& matrix, const uint& /*depth*/) {
    if (is_one_deeper(ray)) lift(ray, matrix);
  }
  /// The same with the matrix at the end of the ray's motion span, for motion vectors.
  void transform_path(const uint& ray, const GMathMatrix4x4<double>& matrix, const GMathMatrix4x4<double>& matrix2,
                      const uint& /*depth*/) {
    if (is_one_deeper(ray)) lift(ray, matrix, matrix2);
  }

 private:
  /// Most leaves leave the ray without a hit of theirs. A hit that was found in another leaf is already in this level's
  /// space, or in that of a level above.
  bool is_one_deeper(uint ray) const { return records_[ray].level == level_ + 1 && records_[ray].geometry != nullptr; }
  void lift(uint ray, const GMathMatrix4x4<double>& matrix);
  void lift(uint ray, const GMathMatrix4x4<double>& matrix, const GMathMatrix4x4<double>& matrix2);
  /// The transform to be grown of a hit that comes from one level deeper, and from now on from this one.
  GeometryHitTransform& begin_lift(uint ray);

  GeometryNearestHits* hits_ = nullptr;
  GeometryIntersection* records_ = nullptr;
  uint level_ = 0;
};

struct GeometryHit {
  uint ray = 0;
  GeometryIntersection hit;
};

/// All hits of a packet in the order they were found; not sorted by distance.
class GeometryHitList {
 public:
  /// Forgets the hits, keeps the memory.
  void clear() {
    hits_.clear();
    transforms_.clear();
    path_elements_.clear();
    paths_.clear();
  }
  void append(uint ray, const GeometryIntersection& hit) { hits_.push_back({ray, hit}); }
  /// Appends a hit of a nested query with its matrix to the outermost space.
  void append(uint ray, const GeometryIntersection& hit, const GMathMatrix4x4<double>& matrix);
  /// Remembers that the hit appended last was found under `path`.
  void note_path(const GeometryIntersectionPath& path);

  std::vector<GeometryHit>& get_hits() { return hits_; }
  const std::vector<GeometryHit>& get_hits() const { return hits_; }
  /// From the space of the hit's geometry to the caller's: null stands for the same space.
  const GeometryHitTransform* get_transform(const GeometryIntersection& hit) const {
    return hit.transform == core_invalid_index ? nullptr : &transforms_[hit.transform];
  }
  /// The objects through which the hit was found, outermost first; empty for a query of one structure alone.
  std::span<const GeometryIntersectionPathElement> get_path(const GeometryIntersection& hit) const {
    if (hit.path == core_invalid_index) return {};
    return std::span(path_elements_).subspan(paths_[hit.path].first, paths_[hit.path].count);
  }

 private:
  struct Path {
    std::size_t first;
    uint count;
  };
  std::vector<GeometryHit> hits_;
  std::vector<GeometryHitTransform> transforms_;
  std::vector<GeometryIntersectionPathElement> path_elements_;
  std::vector<Path> paths_;
};
