// tools/vqgas/render/select_picture.h
#pragma once
#include <optional>
#include <vector>

#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/select_frustum.h"
#include "tools/vqgas/scene/query_scene.h"

/// What a frustum has found: objects, or points.
struct Selection {
  bool has_points = false;         ///< points count, not objects
  std::vector<uint> objects;       ///< numbers, ascending; with points only objects of which there are any
  std::vector<ScenePoint> points;  ///< by object and number

  /// @param point  core_invalid_index for a surface
  bool contains(uint object, uint point) const;
};

/// The scene in gray, what is selected in colors, the rectangle with a border.
/// @param picture  with the layers object, normal and point
ScreenImage make_select_picture(const Picture& picture, const Camera& camera, const Selection& selection,
                                const std::optional<PictureRect>& rect);
