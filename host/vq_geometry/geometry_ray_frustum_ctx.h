// host/vq_geometry/geometry_ray_frustum_ctx.h
//
// A query of beams: rays with a cross-section, as wide as a pixel or a lens. It finds the nearest item inside each
// beam.
//
//   perspective                  c1           parallel    c1 --------------->
//                           .--' |                        |
//                    . --'       |                        |
//              o ----------- d --|--->                    o ------- d ------>
//                    ' --.       |                        |
//                           '--. |                        |
//                                c0                       c0 --------------->
//
// Center and corners each move along a straight line: an origin at t = 0 and a direction per unit of t. At each t the
// corners are in one plane with the center, across the beam, in ring order. An affine map preserves all this, and t. So
// a beam is transformed line by line; only the normal of the planes is transformed as a normal.
#pragma once
#include <type_traits>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_matrix.h"

class ModuleSceneObject;

struct VQ_EXPORT GeometryRayFrustumBeam {
  GMathVec3<double> origin, direction;  ///< of the center; t is in units of the directions, which may have any length
  GMathVec3<double> normal;             ///< of the planes across the beam; any length
  GMathVec3<double> corner_origins[4];  ///< in ring order
  GMathVec3<double> corner_directions[4];
  double tnear = 0.0, tfar = 0.0;

  /// A beam that widens from its origin. Only the directions of `to_corners` are used: they are scaled so that they
  /// meet the planes across the beam at the same t as the center. False, with the beam unchanged, when the direction is
  /// zero or not finite, or a corner does not point forwards.
  bool set_perspective(const GMathVec3<double>& new_origin, const GMathVec3<double>& new_direction,
                       const GMathVec3<double> (&to_corners)[4], double new_tnear, double new_tfar);
  /// A beam of constant width. The offsets from the center to the corners are projected across the beam. False, with
  /// the beam unchanged, when the direction is zero or not finite.
  bool set_parallel(const GMathVec3<double>& new_origin, const GMathVec3<double>& new_direction,
                    const GMathVec3<double> (&offsets)[4], double new_tnear, double new_tfar);
  /// The same beam in another space. `inverse` transforms points into that space, `matrix` back.
  GeometryRayFrustumBeam get_transformed(const GMathMatrix4x4<double>& inverse,
                                         const GMathMatrix4x4<double>& matrix) const;
};

/// The nearest item of one beam so far.
struct GeometryRayFrustumRecord {
  double t = 0.0;                   ///< center distance of the item; the beam's tfar while nothing was found
  double weight = 0.0;              ///< share of the beam that the item covers
  uint index = core_invalid_index;  ///< of the item; invalid: nothing was found
  u64 object = 0;                   ///< GeometryRayFrustumData::object when it was found
};

/// Trivially copyable: a scene tree copies it for each object that it enters.
struct GeometryRayFrustumData {
  const GeometryRayFrustumBeam* beams = nullptr;  ///< [frustum_count]
  GeometryRayFrustumRecord* records = nullptr;    ///< [frustum_count] the same in all spaces
  uint frustum_count = 0;
  uint current = 0;   ///< index of the beam being queried
  uint kind = 0;      ///< ray type (GMathRay::Type) for visibility masks
  double edge = 1.0;  ///< above 0: items in the border of the beam, 0.5 / edge of its width, have less weight
  u64 object = 0;     ///< copied to the records; within a scene object its address
};
static_assert(std::is_trivially_copyable_v<GeometryRayFrustumData>);

/// One thread at a time. What `beams` and `records` point to must outlive the query.
class VQ_EXPORT GeometryRayFrustumCtx : public GeometryRayFrustumData {
 public:
  GeometryRayFrustumCtx() = default;
  GeometryRayFrustumCtx(const GeometryRayFrustumCtx&) = delete;
  GeometryRayFrustumCtx& operator=(const GeometryRayFrustumCtx&) = delete;

  /// Prepares a query of `count` beams and clears their records.
  void begin(const GeometryRayFrustumBeam* new_beams, GeometryRayFrustumRecord* new_records, uint count);
  uint get_frustum_count() const { return frustum_count; }
  /// Makes beam `frustum`, below get_frustum_count(), the current one; its record stays. To be called before the
  /// functions below.
  void init(const uint& frustum) { current = frustum; }
  /// Makes this the nested query of `outer` on `scene_object`, for the current beam of `outer` only, which becomes
  /// number 0, transformed into the object's space (`inverse` into it, `matrix` back). It writes the record of the beam
  /// of `outer`. Kind and edge are those of `outer`.
  void init_local(const GeometryRayFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                  const GMathMatrix4x4<double>& matrix, ModuleSceneObject* scene_object);

  // Of the current beam.
  const GeometryRayFrustumBeam& get_beam() const { return beams[current]; }
  GeometryRayFrustumRecord& get_record() { return records[current]; }
  const GMathVec3<double>& get_origin() const { return get_beam().origin; }
  const GMathVec3<double>& get_direction() const { return get_beam().direction; }
  /// The normal of the planes across the beam. The plane through p contains the beam's center at
  /// t = ((p - origin) . normal) / (direction . normal), the same in every space.
  const GMathVec3<double>& get_plane_normal() const { return get_beam().normal; }
  double get_tnear() const { return get_beam().tnear; }
  /// Exclusive end of the interval of t: the nearest item so far, or the end of the beam.
  double get_tfar() const { return records[current].t; }
  /// The cross-section at `t`.
  void get_corners(const double& t, GMathVec3<double> (&corners)[4]) const;

 private:
  GeometryRayFrustumBeam local_beam_;  ///< the one beam of a nested query
};
