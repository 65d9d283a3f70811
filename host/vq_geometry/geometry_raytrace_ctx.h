// host/vq_geometry/geometry_raytrace_ctx.h
//
// A ray query: a packet of rays and everything that structures, leaf functions and primitive tests pass along.
//
//   per ray, own to each nesting level      rays (strided records that begin with a GMathBasicRay), matrices
//   per ray, shared by all nesting levels   intervals, spans, ray_flags, nearest records   (index r is the same ray in
//   all)
//
// GeometryRaytraceData is trivially copyable and small: a bundle copies it whole for each instance it enters.
// GeometryRaytraceCtx adds the filters, which belong to one query and are not carried to nested ones, and functions.
#pragma once
#include <type_traits>

#include "vq_geometry/geometry_intersection.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_shading_variable/shading_variables.h"

class CtxEval;
class CtxShader;
class GeometryIntersectionPath;
class GeometryRaytraceCtx;
struct GeometryPlane;
struct GeometryRaytraceFilter;

/// Interval and kind of one ray: the same numbers in every space.
struct GeometryRayInterval {
  double tnear = 0.0;
  double tfar = DBL_MAX;
  double time = 0.0;
  double extent = 0.0;  ///< radius around the ray, used by lookups
  uint type = GMathRay::camera;
  uint pad = 0;
};
static_assert(sizeof(GeometryRayInterval) == 40);

/// The two motion samples around a ray's time: (1 - fraction) of `first` and fraction of `second`.
struct GeometryRaySpan {
  uint first = 0;
  uint second = 0;
  double fraction = 0.0;
  double time = 0.0;
};
static_assert(sizeof(GeometryRaySpan) == 24);

/// What one ray of an all-hits query has gathered so far.
struct GeometryRayTally {
  double weight = 0.0;
  uint hit_count = 0;
};

/// How much of a structure one ray has walked through.
struct GeometryRayVisits {
  uint nodes = 0;
  uint leaves = 0;
};

/// Local space to the parent's, per ray: they differ when the instance moves.
struct GeometryRayMatrix {
  GMathMatrix4x4<double> matrix;
  u8 flag = 0;  ///< the host's; cleared with every new matrix
  u8 pad[7] = {0, 0, 0, 0, 0, 0, 0};
};
static_assert(sizeof(GeometryRayMatrix) == 136);

/// Asked for each candidate hit. False rejects it; it may change the hit's weight.
using GeometryFilterFunction = bool (*)(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&,
                                        const GeometryRaytraceFilter&);

struct GeometryRaytraceFilter {
  GeometryFilterFunction function = nullptr;
  double a = 0.0, b = 0.0;
  u8 nearest = 0;
  const void* user = nullptr;
};

/// Called for each hit that an all-hits query has accepted. May set bit 0 of the ray's flag word to end the ray.
using GeometryHitCallback = void (*)(GeometryRaytraceCtx&, const uint& ray, const GeometryIntersection&, void* user);

/// What a primitive test found; the query adds the rest.
struct GeometryCandidate {
  double distance = 0.0;
  double u = 0.0, v = 0.0;
  uint primitive = 0;
  uint part = 0;
};

/// Asked before a primitive is tested. False leaves the primitive out for the whole active range.
using GeometryPrimitiveFilter = bool (*)(const GeometryRaytraceCtx&, const uint& primitive, void* user);

/// How hits are to be evaluated.
struct GeometryRaytraceSettings {
  bool wants_motion_vectors = false;
  bool allow_matte = true;
  uint max_hits = 0xFFFFFFFFu;    ///< all-hits: a ray ends after this many (needs tallies)
  double opacity_stop = DBL_MAX;  ///< all-hits: a ray ends when its hits' weights add up to this (needs tallies)
};

struct GeometryRaytraceData {
  // Rays. The active range is inclusive; kernels narrow it to one ray and restore it.
  const u8* rays = nullptr;
  uint ray_stride = sizeof(GMathRay);
  uint ray_count = 0;
  uint first_ray = 0;
  uint last_ray = 0;

  // Shared by all nesting levels.
  const GeometryRayInterval* intervals = nullptr;
  GeometryRaySpan* spans = nullptr;
  u64* ray_flags = nullptr;             ///< bit 0: end this ray (all-hits queries)
  GeometryRayTally* tallies = nullptr;  ///< what each ray has gathered, for the stop rules; null: no stop rule
  GeometryRayVisits* visits = nullptr;  ///< set: structures count what they walk through, at some cost
  uint span_stamp = 0;                  ///< stamp of the motion-blur description that `spans` were written for

  // Local to parent matrices of a nested query; null in the outermost.
  GeometryRayMatrix* matrices = nullptr;
  GeometryRayMatrix* matrices2 = nullptr;
  bool matrices2_used = false;

  // Identification.
  uint shading_group_offset = 0;
  uint identification2 = 0;  ///< number of the outermost instance
  uint depth = 0;
  uint instance = 0;
  u64 cluster = 0;  ///< restricts the query to one cluster of the structure; 0: the whole

  // The primitive being tested.
  const GeometryObject* geometry = nullptr;
  uint shading_group = 0;
  uint current_instance = 0;
  const Material* material = nullptr;
  const ShadingVariablesCtx* shading_variables = nullptr;
  double hit_weight = 1.0;
  uint counter = 0;                            ///< primitives tested since a structure last set it to 0
  const ShadingGroupTable* shading = nullptr;  ///< null: nothing is shaded, so nothing is hit

  GeometryPrimitiveFilter primitive_filter = nullptr;
  void* primitive_filter_user = nullptr;
  GeometryHitCallback hit_callback = nullptr;
  void* hit_user = nullptr;
  GeometryRaytraceSettings settings;
  double object_distance = 0.0;  ///< hits nearer than this belong to the object that emitted the ray

  GeometryIntersectionMap* map = nullptr;  ///< set: a nearest query
  GeometryHitList* hits = nullptr;         ///< set: an all-hits query
  u64 user_word = 0;
  const GeometryPlane* planes = nullptr;
  u64 plane_count = 0;
  u64 plane_user = 0;

  u8 matte = 0;
  u64 flags = 0;
  GeometryIntersectionPath* path = nullptr;  ///< the objects descended through so far; null in the outermost
  const GeometryRaytraceData* parent = nullptr;
  uint level = 0;
};
static_assert(std::is_trivially_copyable_v<GeometryRaytraceData> && sizeof(GeometryRaytraceData) <= 320);

class GeometryRaytraceCtx : public GeometryRaytraceData {
 public:
  static constexpr uint filter_capacity = 8;

  const GMathBasicRay<double>& get_ray(uint ray) const {
    return *reinterpret_cast<const GMathBasicRay<double>*>(rays + std::size_t{ray} * ray_stride);
  }
  /// Not below object_distance, which is 0 unless somebody sets it: hits behind the origin do not count.
  double get_tnear(const uint& ray) const {
    const double tnear = intervals[ray].tnear;
    return tnear < object_distance ? object_distance : tnear;
  }
  double get_tfar(const uint& ray) const { return intervals[ray].tfar; }
  bool is_nearest() const { return map != nullptr; }
  /// Where a hit must lie below: the nearest hit so far, or the ray's tfar in an all-hits query.
  double get_limit(const uint& ray) const { return is_nearest() ? map->get_path(ray).distance : get_tfar(ray); }
  bool is_stopped(uint ray) const { return (ray_flags[ray] & 1u) != 0; }

  /// Offers a candidate hit. Runs the filters, last pushed first, on candidates within the interval; the others are
  /// rejected unasked. Nearest: replaces the ray's record when tnear <= distance < the record's. All hits: appends it
  /// when tnear <= distance < tfar, then asks the hit callback and the settings whether the ray ends. Returns whether
  /// the hit was accepted.
  bool push_intersection(const CtxEval& ctx, CtxShader& shader, const uint& ray, const GeometryCandidate& candidate) {
    if (is_nearest() && filter_count_ == 0) {
      GeometryIntersection& record = map->get_record(ray);
      if (!(candidate.distance >= get_tnear(ray) && candidate.distance < record.distance)) return false;
      write_hit(record, candidate);
      if (path != nullptr) map->note_path(ray, *path);
      return true;
    }
    return push_filtered(ctx, shader, ray, candidate);
  }

  /// Whether `primitive` of the current geometry may be tested at all: asked before its ray test.
  bool apply_primitive_filters(const uint& primitive) const {
    return primitive_filter == nullptr || primitive_filter(*this, primitive, primitive_filter_user);
  }

  /// False when all places are taken: the filter then does not run.
  bool push_filter(const GeometryRaytraceFilter& filter);
  void pop_filter() { --filter_count_; }
  void remove_filters() { filter_count_ = 0; }
  uint get_filter_count() const { return filter_count_; }
  bool has_filter(GeometryFilterFunction function) const;

 private:
  bool push_filtered(const CtxEval& ctx, CtxShader& shader, uint ray, const GeometryCandidate& candidate);
  bool append_hit(uint ray, const GeometryIntersection& hit);

  /// Small writes only: most records are soon replaced by a nearer hit.
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
  }

  GeometryRaytraceFilter filters_[filter_capacity];
  uint filter_count_ = 0;
};
