#include "vq_geometry/geometry_hit_surface.h"

GeometrySurfacePoint geometry_get_hit_surface(const GeometryIntersection& hit, const GeometryHitTransform* transform,
                                              const double& time) {
  GeometrySurfacePoint point = hit.geometry->get_surface_point(hit, time);
  if (transform == nullptr) return point;
  const GMathMatrix4x4<double> inverse = transform->matrix.get_inverse();
  point.position = transform->matrix.transform_point(point.position);
  point.normal = inverse.transform_normal_transposed(point.normal).get_normalized();
  point.shading_normal = inverse.transform_normal_transposed(point.shading_normal).get_normalized();
  return point;
}

GMathVec3<double> geometry_get_end_position(const GeometryIntersection& hit, const GeometryHitTransform* transform,
                                            const double& end_time) {
  const GMathVec3<double> position = hit.geometry->get_surface_point(hit, end_time).position;
  if (transform == nullptr) return position;
  return (transform->has_vectors ? transform->matrix2 : transform->matrix).transform_point(position);
}
