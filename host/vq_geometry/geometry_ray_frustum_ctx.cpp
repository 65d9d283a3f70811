#include "vq_geometry/geometry_ray_frustum_ctx.h"

#include "vq_gmath/gmath_scalar.h"

bool GeometryRayFrustumBeam::set_perspective(const GMathVec3<double>& new_origin,
                                             const GMathVec3<double>& new_direction,
                                             const GMathVec3<double> (&to_corners)[4], double new_tnear,
                                             double new_tfar) {
  const double square = new_direction.dot(new_direction);
  double scale[4];
  for (uint k = 0; k < 4; ++k) {
    scale[k] = square / to_corners[k].dot(new_direction);
    if (!(scale[k] > 0.0) || !gmath_isfinited(scale[k])) return false;
  }
  origin = new_origin;
  direction = normal = new_direction;
  for (uint k = 0; k < 4; ++k) {
    corner_origins[k] = new_origin;
    corner_directions[k] = to_corners[k] * scale[k];
  }
  tnear = new_tnear;
  tfar = new_tfar;
  return true;
}

bool GeometryRayFrustumBeam::set_parallel(const GMathVec3<double>& new_origin, const GMathVec3<double>& new_direction,
                                          const GMathVec3<double> (&offsets)[4], double new_tnear, double new_tfar) {
  const double square = new_direction.dot(new_direction);
  if (!(square > 0.0) || !gmath_isfinited(square)) return false;
  origin = new_origin;
  direction = normal = new_direction;
  for (uint k = 0; k < 4; ++k) {
    corner_origins[k] = new_origin + offsets[k] - new_direction * (offsets[k].dot(new_direction) / square);
    corner_directions[k] = new_direction;
  }
  tnear = new_tnear;
  tfar = new_tfar;
  return true;
}

GeometryRayFrustumBeam GeometryRayFrustumBeam::get_transformed(const GMathMatrix4x4<double>& inverse,
                                                               const GMathMatrix4x4<double>& matrix) const {
  GeometryRayFrustumBeam out = *this;
  out.origin = inverse.transform_point(origin);
  out.direction = inverse.transform_vector(direction);
  out.normal = matrix.transform_normal_transposed(normal);
  for (uint k = 0; k < 4; ++k) {
    out.corner_origins[k] = inverse.transform_point(corner_origins[k]);
    out.corner_directions[k] = inverse.transform_vector(corner_directions[k]);
  }
  return out;
}

void GeometryRayFrustumCtx::begin(const GeometryRayFrustumBeam* new_beams, GeometryRayFrustumRecord* new_records,
                                  uint count) {
  beams = new_beams;
  records = new_records;
  frustum_count = count;
  current = 0;
  for (uint frustum = 0; frustum < count; ++frustum) {
    records[frustum] = GeometryRayFrustumRecord();
    records[frustum].t = beams[frustum].tfar;
  }
}

void GeometryRayFrustumCtx::init_local(const GeometryRayFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                                       const GMathMatrix4x4<double>& matrix, ModuleSceneObject* scene_object) {
  static_cast<GeometryRayFrustumData&>(*this) = outer;
  local_beam_ = outer.get_beam().get_transformed(inverse, matrix);
  beams = &local_beam_;
  records = outer.records + outer.current;
  frustum_count = 1;
  current = 0;
  object = reinterpret_cast<u64>(scene_object);
}

void GeometryRayFrustumCtx::get_corners(const double& t, GMathVec3<double> (&corners)[4]) const {
  const GeometryRayFrustumBeam& beam = get_beam();
  for (uint k = 0; k < 4; ++k) corners[k] = beam.corner_origins[k] + beam.corner_directions[k] * t;
}
