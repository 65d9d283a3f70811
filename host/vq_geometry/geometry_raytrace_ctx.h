// host/vq_geometry/geometry_raytrace_ctx.h
//
// A ray query: a packet of rays, and the state that structures, leaf callbacks and primitive tests share.
//
//   per ray, own to each nesting level      rays (strided records that begin with a GMathBasicRay), matrices
//   per ray, shared by all nesting levels   intervals, spans, ray_flags, nearest records
//
// Index r is the same ray in all of these arrays.
//
// GeometryRaytraceData is trivially copyable and small: a bundle copies it whole for each instance it enters.
// GeometryRaytraceCtx adds the filters, which belong to one query and are not carried to nested ones, and functions.
#pragma once
#include <type_traits>

#include "vq_core/core_export.h"
#include "vq_geometry/geometry_intersection.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_shading_variable/shading_variables.h"

class CtxEval;
class CtxShader;
class GeometryIntersectionPath;
class GeometryRaytraceCtx;
struct GeometryPlane;
struct GeometryRaytraceFilter;

/// Interval, time and type of one ray: the same in every space.
struct GeometryRayInterval {
  double tnear = 0.0;            ///< hits from here on,
  double tfar = DBL_MAX;         ///< and before here, in units of the ray's direction
  double time = 0.0;             ///< in the unit of the motion keys
  double extent = 0.0;           ///< radius around the ray, used by lookups
  uint type = GMathRay::camera;  ///< a GMathRay::Type
  uint pad = 0;
};
static_assert(sizeof(GeometryRayInterval) == 40);

/// The two motion samples around a ray's time: (1 - fraction) of `first` and fraction of `second`.
struct GeometryRaySpan {
  uint first = 0;         ///< motion sample at or before the time
  uint second = 0;        ///< the next motion sample; `first` when there is only one
  double fraction = 0.0;  ///< in [0, 1]
  double time = 0.0;      ///< the ray's
};
static_assert(sizeof(GeometryRaySpan) == 24);

/// Hits accepted so far for one ray of an all-hits query.
struct GeometryRayTally {
  double weight = 0.0;  ///< sum of their weights
  uint hit_count = 0;
};

/// Nodes and leaves that one ray has visited.
struct GeometryRayVisits {
  uint nodes = 0;
  uint leaves = 0;
};

/// The matrix from local space to the parent's, for one ray: the rays' times differ, and so do the matrices of a moving
/// instance.
struct GeometryRayMatrix {
  GMathMatrix4x4<double> matrix;
  u8 flag = 0;  ///< for use by the host; set to 0 with every new matrix
  u8 pad[7] = {0, 0, 0, 0, 0, 0, 0};
};
static_assert(sizeof(GeometryRayMatrix) == 136);

/// Callback for each candidate hit. False rejects the hit. May change the hit's weight.
using GeometryFilterFunction = bool (*)(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&,
                                        const GeometryRaytraceFilter&);

struct GeometryRaytraceFilter {
  GeometryFilterFunction function = nullptr;
  double a = 0.0, b = 0.0;     ///< parameters of the function
  u8 nearest = 0;              ///< 1: pushed by a nearest-hit leaf callback
  const void* user = nullptr;  ///< further data of the function
};

/// Callback for each accepted hit of an all-hits query. May set bit 0 of the ray's flag word to end the ray.
using GeometryHitCallback = void (*)(GeometryRaytraceCtx&, const uint& ray, const GeometryIntersection&, void* user);

/// Result of a primitive test. The query adds the other values of the record.
struct GeometryCandidate {
  double distance = 0.0;  ///< along the ray, in units of its direction
  double u = 0.0, v = 0.0;
  uint primitive = 0;
  uint part = 0;  ///< as in GeometryIntersection
};

/// Callback before a primitive is tested. False skips the primitive for the whole active range.
using GeometryPrimitiveFilter = bool (*)(const GeometryRaytraceCtx&, const uint& primitive, void* user);

/// Settings of a query, the same at all nesting levels.
struct GeometryRaytraceSettings {
  bool compute_motion_vectors = false;  ///< also record the transforms at the end of the ray's motion span
  bool allow_matte = true;              ///< matte objects set GeometryRaytraceData::matte
  bool any_hit = false;                 ///< nearest-hit: the first hit found ends its ray, near or far
  /// All hits, with a list: a ray that meets an edge or a vertex of several polygons of a PolyMesh exactly has one hit
  /// there, on the polygon that was tested first. Without it each of the polygons has one.
  bool merge_edge_hits = false;
  uint max_hits = 0xFFFFFFFFu;    ///< all-hits: a ray ends after this many (needs tallies)
  double opacity_stop = DBL_MAX;  ///< all-hits: a ray ends at this sum of hit weights (needs tallies)
};

struct GeometryRaytraceData {
  // Rays. The active range is inclusive; kernels narrow it to one ray and restore it.
  const u8* rays = nullptr;            ///< [ray_count] records that begin with a GMathBasicRay, in this level's space
  uint ray_stride = sizeof(GMathRay);  ///< bytes from one record to the next
  uint ray_count = 0;                  ///< rays in the packet
  uint first_ray = 0;                  ///< active range, first
  uint last_ray = 0;                   ///< active range, last

  // Arrays with one entry per ray, shared by all nesting levels.
  const GeometryRayInterval* intervals = nullptr;  ///< never null in a query
  GeometryRaySpan* spans = nullptr;                ///< motion spans, valid while span_stamp is not 0; null: static only
  u64* ray_flags = nullptr;                        ///< bit 0: end this ray (all-hits queries)
  GeometryRayTally* tallies = nullptr;  ///< hits per ray, for max_hits and opacity_stop; null: neither applies
  GeometryRayVisits* visits = nullptr;  ///< set: structures count visited nodes and leaves, which costs time
  uint span_stamp = 0;                  ///< CtxMotionBlur::get_stamp() that `spans` belong to; 0: static query

  // Matrices of a nested query, one per ray; null in the outermost query.
  GeometryRayMatrix* matrices = nullptr;   ///< local space to the parent's, at the ray's time
  GeometryRayMatrix* matrices2 = nullptr;  ///< the same at the end of the ray's motion span
  bool matrices2_used = false;             ///< matrices2 are set

  // Identification.
  uint shading_group_offset = 0;  ///< added to a geometry's group number: index into `shading`
  uint identification2 = 0;       ///< number of the outermost instance
  uint depth = 0;                 ///< instancing depth, written to each record
  uint instance = 0;              ///< number of the instance within its bundle
  u64 cluster = 0;                ///< handle of the cluster that is queried; 0: the whole structure

  // The primitive being tested. Set by structures, for each primitive or once for many; others must not change it.
  const GeometryObject* geometry = nullptr;                ///< that the primitive belongs to
  uint shading_group = 0;                                  ///< of the primitive, with shading_group_offset added
  uint current_instance = 0;                               ///< `instance` as written to the records
  const Material* material = nullptr;                      ///< of the group, or the override material
  const ShadingVariablesCtx* shading_variables = nullptr;  ///< of the group
  double hit_weight = 1.0;                                 ///< weight of a hit before filters: 1 is opaque
  uint counter = 0;                                        ///< primitives tested since a structure last set it to 0
  const ShadingGroupTable* shading = nullptr;              ///< null: nothing is shaded, so nothing is hit

  GeometryPrimitiveFilter primitive_filter = nullptr;  ///< null: every primitive is tested
  void* primitive_filter_user = nullptr;               ///< passed to primitive_filter
  GeometryHitCallback hit_callback = nullptr;          ///< all-hits queries; null: none
  void* hit_user = nullptr;                            ///< passed to hit_callback
  GeometryRaytraceSettings settings;                   ///< copied to nested queries
  double object_distance = 0.0;  ///< smallest tnear: skips hits on the object that emitted the ray

  GeometryIntersectionMap* map = nullptr;  ///< set: a nearest-hit query, which writes these records
  GeometryHitList* hits = nullptr;  ///< all-hits query: receives the hits; may be null when there is a hit_callback
  u64 user_word = 0;                ///< for use by the host; copied to nested queries
  const GeometryPlane* planes = nullptr;  ///< for use by the host, as the two below; cleared in nested queries
  u64 plane_count = 0;                    ///< number of `planes`
  u64 plane_user = 0;                     ///< further data for `planes`

  u8 matte = 0;                                  ///< 1: the hit object is matte
  u64 flags = 0;                                 ///< for use by the host; bit 0 is cleared in nested queries
  GeometryIntersectionPath* path = nullptr;      ///< objects entered so far; null in the outermost query
  const GeometryRaytraceData* parent = nullptr;  ///< query one level up; null in the outermost query
  uint level = 0;                                ///< nesting level; 0 is the outermost query
};
static_assert(std::is_trivially_copyable_v<GeometryRaytraceData> && sizeof(GeometryRaytraceData) <= 320);

class VQ_EXPORT GeometryRaytraceCtx : public GeometryRaytraceData {
 public:
  static constexpr uint filter_capacity = 8;

  const GMathBasicRay<double>& get_ray(uint ray) const {
    return *reinterpret_cast<const GMathBasicRay<double>*>(rays + std::size_t{ray} * ray_stride);
  }
  /// Start of the ray's interval: at least object_distance, which is 0 by default, so that nothing behind the origin is
  /// hit.
  double get_tnear(const uint& ray) const {
    const double tnear = intervals[ray].tnear;
    return tnear < object_distance ? object_distance : tnear;
  }
  double get_tfar(const uint& ray) const { return intervals[ray].tfar; }
  bool is_nearest() const { return map != nullptr; }
  /// Exclusive end of the ray's interval: the distance of the nearest hit so far; in an all-hits query the ray's tfar.
  double get_limit(const uint& ray) const { return is_nearest() ? map->get_path(ray).distance : get_tfar(ray); }
  bool is_stopped(uint ray) const { return (ray_flags[ray] & 1u) != 0; }

  /// Adds a candidate hit. Candidates outside of the ray's interval are rejected; on the others the filters run, last
  /// pushed first. Nearest: replaces the ray's record when tnear <= distance < the record's. All hits: appends the hit
  /// when tnear <= distance < tfar, calls the hit callback, and sets the ray's stop flag when the settings require it.
  /// The path of a nearest hit of a nested query is recorded by its structure, when the hit leaves it.
  /// Returns true if the hit was accepted.
  /// @param data  medium behind the hit and custom data, copied; null: empty space, none. Throws std::bad_alloc when
  ///              there is no memory to store it
  bool push_intersection(const CtxEval& ctx, CtxShader& shader, const uint& ray, const GeometryCandidate& candidate,
                         const GeometryHitData* data = nullptr) {
    if (is_nearest() && filter_count_ == 0 && data == nullptr) {
      GeometryIntersection& record = map->get_record(ray);
      if (!(candidate.distance >= get_tnear(ray) && candidate.distance < record.distance)) return false;
      write_hit(record, candidate);
      end_if_any_hit(record);
      if (path != nullptr && level == 0) map->record_path(ray, *path);
      return true;
    }
    return push_filtered(ctx, shader, ray, candidate, data);
  }

  /// True if the list has a hit of this ray on the current geometry, in the current instance, for which
  /// is_same(primitive, part) is true. Cost: the ray's hits so far; all of the list while several rays are active.
  template <class IsSame>
  bool has_listed_hit(uint ray, const IsSame& is_same) const {
    if (hits == nullptr) return false;
    const std::vector<GeometryHit>& listed = hits->get_hits();
    for (std::size_t k = listed.size(); k-- > 0;) {
      if (listed[k].ray != ray) {
        if (first_ray == last_ray) return false;  // the hits of one ray after another are listed in this order
        continue;
      }
      if (is_in_current_instance(ray, listed[k].hit) && is_same(listed[k].hit.primitive, listed[k].hit.part))
        return true;
    }
    return false;
  }

  /// True if `primitive` of the current geometry may be tested. To be called before its ray test.
  bool apply_primitive_filters(const uint& primitive) const {
    return primitive_filter == nullptr || primitive_filter(*this, primitive, primitive_filter_user);
  }

  /// False when there are filter_capacity filters already; the filter is then not added.
  bool push_filter(const GeometryRaytraceFilter& filter);
  void pop_filter() { --filter_count_; }
  void remove_filters() { filter_count_ = 0; }
  uint get_filter_count() const { return filter_count_; }
  bool has_filter(GeometryFilterFunction function) const;

 private:
  bool push_filtered(const CtxEval& ctx, CtxShader& shader, uint ray, const GeometryCandidate& candidate,
                     const GeometryHitData* data);
  bool is_in_current_instance(uint ray, const GeometryIntersection& listed) const;
  bool append_hit(uint ray, const GeometryIntersection& hit, const GeometryHitData* data);

  void end_if_any_hit(GeometryIntersection& record) const {
    if (settings.any_hit) record.distance = GeometryIntersection::any_distance;
  }

  /// Writes few bytes: most records are soon replaced by a nearer hit.
  void write_hit(GeometryIntersection& record, const GeometryCandidate& candidate) const {
    record.distance = candidate.distance;
    record.u = candidate.u;
    record.v = candidate.v;
    record.weight = hit_weight;
    record.geometry = geometry;
    record.primitive = candidate.primitive;
    record.part = candidate.part;
    record.shading_group = shading_group;
    record.instance = current_instance;
    record.depth = depth;
    record.level = level;
    record.transform = core_invalid_index;
    record.path = core_invalid_index;
    record.data = core_invalid_index;
  }

  GeometryRaytraceFilter filters_[filter_capacity];
  uint filter_count_ = 0;
};
