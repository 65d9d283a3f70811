// tools/vqgas/image/false_color_picture.h
#pragma once
#include <string_view>

#include "tools/vqgas/image/image_png.h"

/// Numbers as colours, with a bar below the picture that tells which colour is which number. `values` holds width *
/// height numbers; negative ones are left in the colour of an empty background.
ScreenImage make_false_color_picture(uint width, uint height, const std::vector<float>& values, std::string_view title);
