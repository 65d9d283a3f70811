// tools/vqgas/image/layer_display.h
#pragma once
#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/image/picture.h"

/// A layer as people like to see it: beauty through a film curve, depth from light to dark, positions by their place
/// in the picture's range, numbers as colours, heat and count in false colour with a legend. `group_colors` are the
/// surface colours of the groups, `has_hair` decides what the legend of count says.
ScreenImage make_screen_image(const Picture& picture, const PictureLayer& layer, const std::vector<Color>& group_colors,
                              bool has_hair);
