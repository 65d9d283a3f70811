// host/vq_gas_base/gas_beam_planes.h
//
// The box test of a beam query: the four sides of the beam, and the interval of t in which a box lies.
#pragma once
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_gmath/gmath_bbox.h"

struct GeometryRayFrustumBeam;

class GasBeamPlanes {
 public:
  explicit GasBeamPlanes(const GeometryRayFrustumBeam& beam);

  /// False only when no point of the box is inside the beam between its tnear and `tfar`. Boxes near a corner of the
  /// beam may give true. Writes the smallest t of the box.
  bool touches(const GMathBbox3<float>& box, double tfar, double& first) const;

 private:
  void add_side(const GeometryRayFrustumBeam& beam, uint corner);

  GeometryPlane sides_[4];
  uint side_count_ = 0;
  GMathVec3<double> origin_, slope_;  ///< t of a point p is (p - origin) . slope
  double tnear_;
};
