// tools/vqgas/render/select_picture.h
#pragma once
#include <optional>
#include <vector>

#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/select_frustum.h"

/// The scene in gray, selected objects in colors, the rectangle with a border.
/// @param picture   with the layers object and normal
/// @param selected  numbers of objects
ScreenImage make_select_picture(const Picture& picture, const Camera& camera, const std::vector<uint>& selected,
                                const std::optional<PictureRect>& rect);
