// tools/vqgas/render/select_frustum.h
#pragma once
#include "tools/vqgas/render/camera.h"
#include "vq_geometry/geometry_frustum_ctx.h"

/// A rectangle of a picture, in pixels from the upper left corner; left < right, top < bottom.
struct PictureRect {
  double left = 0.0, top = 0.0, right = 0.0, bottom = 0.0;
};

/// What a camera sees through the rectangle, from depth `near` to depth `far` along the view. An infinite `far` leaves
/// the far end open.
void set_camera_frustum(const CameraRays& camera, const PictureRect& rect, double near, double far,
                        GeometryFrustumCtx& query);
/// The inside of a box.
void set_box_frustum(const GMathBbox3<double>& box, GeometryFrustumCtx& query);
