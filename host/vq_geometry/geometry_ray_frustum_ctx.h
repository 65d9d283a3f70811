// host/vq_geometry/geometry_ray_frustum_ctx.h
//
// A query of beams: rays with a cross-section, as wide as a pixel or a lens. For each beam the nearest item that lies
// in it is wanted.
//
//   perspective                  c1           parallel    c1 --------------->
//                           .--' |                        |
//                    . --'       |                        |
//              o ----------- d --|--->                    o ------- d ------>
//                    ' --.       |                        |
//                           '--. |                        |
//                                c0                       c0 --------------->
//
// Each of the four corners runs along a straight line, a point at t = 0 and a way per unit of t, and so does the beam's
// centre. At each t the corners lie in the plane through the centre across the beam, in ring order. A linear map keeps
// all that, and t with it, so a beam is carried into another space line by line; only the plane's normal is carried as
// normals are.
#pragma once
#include <type_traits>

#include "vq_core/core_types.h"
#include "vq_gmath/gmath_matrix.h"

class ModuleSceneObject;

struct GeometryRayFrustumBeam {
  GMathVec3<double> origin, direction;  ///< the centre; directions need not be of unit length: t is in units of them
  GMathVec3<double> normal;             ///< of the planes across the beam; its length means nothing
  GMathVec3<double> corner_origins[4];  ///< in ring order
  GMathVec3<double> corner_directions[4];
  double tnear = 0.0, tfar = 0.0;

  /// A beam that widens from its origin. Directions to corners count, lengths do not: each is brought to where it meets
  /// the planes across the beam at the same t as the centre. False, with the beam as it was, when the direction is zero
  /// or not finite, or a corner does not lead forwards.
  bool set_perspective(const GMathVec3<double>& new_origin, const GMathVec3<double>& new_direction,
                       const GMathVec3<double> (&to_corners)[4], double new_tnear, double new_tfar);
  /// A beam of the same width everywhere. Of the offsets from the centre to the corners only what lies across the beam
  /// counts. False, with the beam as it was, when the direction is zero or not finite.
  bool set_parallel(const GMathVec3<double>& new_origin, const GMathVec3<double>& new_direction,
                    const GMathVec3<double> (&offsets)[4], double new_tnear, double new_tfar);
  /// The same beam in another space, that `inverse` leads to and `matrix` back from.
  GeometryRayFrustumBeam get_transformed(const GMathMatrix4x4<double>& inverse,
                                         const GMathMatrix4x4<double>& matrix) const;
};

/// The nearest item of one beam so far.
struct GeometryRayFrustumRecord {
  double t = 0.0;                   ///< the beam's tfar while nothing was found
  double weight = 0.0;              ///< what the item covers of the beam
  uint index = core_invalid_index;  ///< of the item; none: nothing was found
  u64 object = 0;                   ///< the query's object value when it was found
};

/// Trivially copyable: a structure over structures copies it for each object that it enters.
struct GeometryRayFrustumData {
  const GeometryRayFrustumBeam* beams = nullptr;
  GeometryRayFrustumRecord* records = nullptr;  ///< one a beam; the same in all spaces
  uint frustum_count = 0;
  uint current = 0;   ///< the beam that is being asked for
  uint kind = 0;      ///< ray type that visibility masks are asked for
  double edge = 1.0;  ///< above 0: the border, on which items weigh less, is 0.5 / edge of the beam's width
  u64 object = 0;     ///< in whose name items are found; within a scene object, its address
};
static_assert(std::is_trivially_copyable_v<GeometryRayFrustumData>);

/// One thread at a time. What `beams` and `records` point to must outlive the query.
class GeometryRayFrustumCtx : public GeometryRayFrustumData {
 public:
  GeometryRayFrustumCtx() = default;
  GeometryRayFrustumCtx(const GeometryRayFrustumCtx&) = delete;
  GeometryRayFrustumCtx& operator=(const GeometryRayFrustumCtx&) = delete;

  /// Prepares a query of `count` beams: nothing is found yet.
  void begin(const GeometryRayFrustumBeam* new_beams, GeometryRayFrustumRecord* new_records, uint count);
  uint get_frustum_count() const { return frustum_count; }
  /// Makes beam `frustum`, below get_frustum_count(), the current one; what was found for it stays. To be called before
  /// anything below is asked.
  void init(const uint& frustum) { current = frustum; }
  /// Becomes the query that `outer` puts to `scene_object` for its current beam: that one alone, as number 0, in the
  /// space that `inverse` leads to and `matrix` back from. What is found in it is found for the beam of `outer`. Kind
  /// and edge are those of `outer`.
  void init_local(const GeometryRayFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                  const GMathMatrix4x4<double>& matrix, ModuleSceneObject* scene_object);

  // Of the current beam.
  const GeometryRayFrustumBeam& get_beam() const { return beams[current]; }
  GeometryRayFrustumRecord& get_record() { return records[current]; }
  const GMathVec3<double>& get_origin() const { return get_beam().origin; }
  const GMathVec3<double>& get_direction() const { return get_beam().direction; }
  /// Of the plane across the beam through any point. With it the plane through p meets the beam's centre at
  /// t = ((p - origin) . normal) / (direction . normal), in every space the same.
  const GMathVec3<double>& get_plane_normal() const { return get_beam().normal; }
  double get_tnear() const { return get_beam().tnear; }
  /// Where an item must lie below: what was found last, or the end of the beam.
  double get_tfar() const { return records[current].t; }
  /// The cross-section at `t`.
  void get_corners(const double& t, GMathVec3<double> (&corners)[4]) const;

 private:
  GeometryRayFrustumBeam local_beam_;  ///< the one beam of a nested query
};
