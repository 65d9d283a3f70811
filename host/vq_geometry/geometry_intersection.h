// host/vq_geometry/geometry_intersection.h
//
// The records of a ray query.
//
//   nearest    GeometryIntersectionMap --> GeometryIntersection[ray count]   one record a ray: the nearest so far
//   all hits   GeometryHitList         --> GeometryHit[hit count]            appended in the order they are found
//
// A record is written for every accepted candidate, and most are soon replaced by a nearer hit. So a record is small:
// position, normal and texture coordinates are computed later from (geometry, primitive, part, u, v). The matrix to
// world is not copied either: the record stores the nesting level whose space it is in, and transform_path() transforms
// it when the query leaves that level. Transforms and paths (the objects through which a nested hit was found) are
// stored beside the records; a query of a single structure needs none. So are the medium and the custom data of hits
// that have them.
#pragma once
#include <cfloat>
#include <memory>
#include <span>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_gmath/gmath_matrix.h"

class CoreCustomData;
class GeometryObject;

/// What the ray passes through behind a hit.
struct GeometryMedium {
  float refraction = 1.0f;              ///< refractive index; 1 is empty space
  float absorption_distance = FLT_MAX;  ///< at which absorption takes full effect
  uint priority = 0;                    ///< the highest one wins where media overlap
};

/// Further data of a hit.
struct GeometryHitData {
  GeometryMedium medium;
  const CoreCustomData* custom = nullptr;  ///< not owned
};

struct GeometryIntersection {
  /// The distance of a hit in a query for any hit: below 0, where every interval begins, so that nothing is nearer.
  static constexpr double any_distance = -FLT_MAX;

  double distance = DBL_MAX;                 ///< along the ray, in units of its direction
  double u = 0.0, v = 0.0;                   ///< barycentric weights of the part's second and third corner
  double weight = 1.0;                       ///< opacity of the hit: the share of the ray that it stops
  const GeometryObject* geometry = nullptr;  ///< null: no hit
  uint primitive = core_invalid_index;
  uint part = 0;  ///< triangle of the polygon, or segment of the curve
  uint shading_group = 0;
  uint instance = 0;  ///< number of the instance within its bundle
  uint depth = 0;     ///< instancing depth
  uint level = 0;     ///< nesting level whose space the hit is in; 0 is the caller's
  uint transform =
      core_invalid_index;          ///< index into the owner's transforms, to the space of `level`; invalid: identity
  uint path = core_invalid_index;  ///< index into the owner's paths; invalid: empty path
  uint data = core_invalid_index;  ///< index into the owner's hit data; invalid: empty space, no custom data
  uint pad = 0;
};
static_assert(sizeof(GeometryIntersection) == 80);

/// The transform of a hit of a nested query.
struct GeometryHitTransform {
  GMathMatrix4x4<double> matrix;   ///< geometry space to the space of the record's level
  GMathMatrix4x4<double> matrix2;  ///< the same at the end of the ray's motion span; only with has_vectors
  bool has_vectors = false;
};

/// The nearest hits of a packet: one record a ray and, from the first nested hit on, one transform and one path a ray.
class VQ_EXPORT GeometryNearestHits {
 public:
  /// One empty record per ray. Grows, never shrinks. Not to be called between a query and the reading of its results.
  void resize(uint ray_count) {
    if (records_.size() < ray_count) records_.resize(ray_count);
  }
  /// Allocates the transforms and paths; to be called before a nested query. False when there is no memory.
  bool reserve_nested() {
    return (transforms_.size() >= records_.size() && path_count_ >= records_.size()) || grow_nested();
  }
  GeometryIntersection* get_records() { return records_.data(); }
  /// After reserve_nested().
  GeometryHitTransform* get_transforms() { return transforms_.data(); }
  GeometryIntersectionPath* get_paths() { return paths_.get(); }
  /// Stores the data of the record of ray `ray`. The first call of a packet allocates; throws std::bad_alloc.
  void record_data(uint ray, const GeometryHitData& data) {
    if (data_.size() < records_.size()) data_.resize(records_.size());
    data_[ray] = data;
    records_[ray].data = ray;
  }
  GeometryHitData get_data(uint ray) const {
    const uint index = records_[ray].data;
    return index == core_invalid_index ? GeometryHitData() : data_[index];
  }

 private:
  bool grow_nested();

  std::vector<GeometryIntersection> records_;
  std::vector<GeometryHitTransform> transforms_;
  std::vector<GeometryHitData> data_;
  std::unique_ptr<GeometryIntersectionPath[]> paths_;
  std::size_t path_count_ = 0;
};

/// Access of one nesting level to the nearest hits of the outermost query.
class VQ_EXPORT GeometryIntersectionMap {
 public:
  GeometryIntersectionMap() = default;
  GeometryIntersectionMap(GeometryNearestHits& hits, uint level)
      : hits_(&hits), records_(hits.get_records()), level_(level) {}

  /// The nearest hit so far of ray `ray`. Before any hit its distance is the ray's tfar.
  const GeometryIntersection& get_path(const uint& ray) const { return records_[ray]; }
  GeometryIntersection& get_record(const uint& ray) { return records_[ray]; }
  uint get_level() const { return level_; }
  /// To be called before a deeper level is queried. False when there is no memory for its transforms and paths.
  bool reserve_nested() { return hits_->reserve_nested(); }
  /// True if the hit of ray `ray` was found one level deeper and not yet transformed. False after most leaves: a hit
  /// that was found in another leaf is already in the space of this level or one above.
  bool is_one_deeper(uint ray) const { return records_[ray].level == level_ + 1 && records_[ray].geometry != nullptr; }
  /// The same records for the next nesting level.
  GeometryIntersectionMap get_deeper() const {
    GeometryIntersectionMap deeper = *this;
    ++deeper.level_;
    return deeper;
  }
  /// Stores `path` with the record of ray `ray`. Allocates only when the packet, or the path, is larger than any
  /// before.
  void record_path(const uint& ray, const GeometryIntersectionPath& path);
  /// As GeometryNearestHits::record_data().
  void record_data(const uint& ray, const GeometryHitData& data) { hits_->record_data(ray, data); }

  /// Transforms the hit of ray `ray` into this level's space, if it was found one level deeper; else does nothing. The
  /// distance is the same in all spaces. `depth` is the level being left, for the caller's information only.
  void transform_path(const uint& ray, const GMathMatrix4x4<double>& matrix, const uint& /*depth*/) {
    if (is_one_deeper(ray)) apply_matrix(ray, matrix);
  }
  /// The same with the matrix at the end of the ray's motion span, for motion vectors.
  void transform_path(const uint& ray, const GMathMatrix4x4<double>& matrix, const GMathMatrix4x4<double>& matrix2,
                      const uint& /*depth*/) {
    if (is_one_deeper(ray)) apply_matrix(ray, matrix, matrix2);
  }

 private:
  void apply_matrix(uint ray, const GMathMatrix4x4<double>& matrix);
  void apply_matrix(uint ray, const GMathMatrix4x4<double>& matrix, const GMathMatrix4x4<double>& matrix2);

  GeometryNearestHits* hits_ = nullptr;
  GeometryIntersection* records_ = nullptr;
  uint level_ = 0;
};

struct GeometryHit {
  uint ray = 0;
  GeometryIntersection hit;
};

/// All hits of a packet in the order they were found; not sorted by distance.
class VQ_EXPORT GeometryHitList {
 public:
  /// Removes the hits, keeps the memory.
  void clear() {
    hits_.clear();
    transforms_.clear();
    path_elements_.clear();
    paths_.clear();
    data_.clear();
  }
  void append(uint ray, const GeometryIntersection& hit) { hits_.push_back({ray, hit}); }
  /// Appends a hit of a nested query with its matrix to the outermost space.
  void append(uint ray, const GeometryIntersection& hit, const GMathMatrix4x4<double>& matrix);
  /// Stores `path` with the hit appended last.
  void record_path(const GeometryIntersectionPath& path);
  /// Stores `data` with the hit appended last.
  void record_data(const GeometryHitData& data) {
    data_.push_back(data);
    hits_.back().hit.data = static_cast<uint>(data_.size() - 1);
  }

  std::vector<GeometryHit>& get_hits() { return hits_; }
  const std::vector<GeometryHit>& get_hits() const { return hits_; }
  /// From the space of the hit's geometry to the caller's; null: identity.
  const GeometryHitTransform* get_transform(const GeometryIntersection& hit) const {
    return hit.transform == core_invalid_index ? nullptr : &transforms_[hit.transform];
  }
  /// The objects through which the hit was found, outermost first; empty for a query of one structure alone.
  std::span<const GeometryIntersectionPathElement> get_path(const GeometryIntersection& hit) const {
    if (hit.path == core_invalid_index) return {};
    return std::span(path_elements_).subspan(paths_[hit.path].first, paths_[hit.path].count);
  }
  GeometryHitData get_data(const GeometryIntersection& hit) const {
    return hit.data == core_invalid_index ? GeometryHitData() : data_[hit.data];
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
  std::vector<GeometryHitData> data_;
};
