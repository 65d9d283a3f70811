// tools/vqgas/render/select_frustum.h
#pragma once
#include "tools/vqgas/render/camera.h"
#include "vq_geometry/geometry_frustum_ctx.h"

/// A rectangle of a picture, in pixels from the upper left corner; left < right, top < bottom.
struct PictureRect {
  double left = 0.0, top = 0.0, right = 0.0, bottom = 0.0;
};

/// Adds the planes of a camera's view through the rectangle, from depth `near` to depth `far`. An infinite `far` adds
/// no far plane.
void set_camera_frustum(const CameraRays& camera, const PictureRect& rect, double near, double far,
                        GeometryFrustumCtx& query);
/// Adds the planes of a box.
void set_box_frustum(const GMathBbox3<double>& box, GeometryFrustumCtx& query);
