#include "tools/vqgas/render/select_frustum.h"

#include <cmath>

void set_camera_frustum(const CameraRays& camera, const PictureRect& rect, double near, double far,
                        GeometryFrustumCtx& query) {
  using Vector = GMathVec3<double>;
  const Vector eye = camera.get_eye();
  const Vector corners[4] = {camera.get_direction(rect.left, rect.top), camera.get_direction(rect.right, rect.top),
                             camera.get_direction(rect.right, rect.bottom),
                             camera.get_direction(rect.left, rect.bottom)};
  // Clockwise as the eye sees them, so that a corner's direction crossed with the next one's points inwards.
  for (uint k = 0; k < 4; ++k) query.add_plane({eye, corners[k].cross(corners[(k + 1) % 4]).get_normalized()});
  const Vector forward = camera.get_forward();
  query.end_planes[query.end_plane_count++] = {eye + forward * near, forward};
  if (std::isfinite(far)) query.end_planes[query.end_plane_count++] = {eye + forward * far, -forward};
}

void set_box_frustum(const GMathBbox3<double>& box, GeometryFrustumCtx& query) {
  for (uint axis = 0; axis < 3; ++axis) {
    GMathVec3<double> normal;
    normal[axis] = 1.0;
    query.add_plane({box.min, normal});
    query.add_plane({box.max, -normal});
  }
}
