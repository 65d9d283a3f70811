// tools/vqgas/image/false_color_picture.h
#pragma once
#include <string_view>

#include "tools/vqgas/image/image_png.h"

/// Numbers as colors, with a legend below the picture if requested. `values` holds width * height numbers; negative
/// ones get the color of the background.
ScreenImage make_false_color_picture(uint width, uint height, const std::vector<float>& values, std::string_view title,
                                     bool has_legend);
