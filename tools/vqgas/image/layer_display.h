// tools/vqgas/image/layer_display.h
#pragma once
#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/image/picture.h"

/// Converts a layer for display: beauty through a film curve, depth from light to dark, positions relative to their
/// range in the picture, numbers as colors, unbuilt parts gray, heat and count in false color.
/// @param group_colors  surface colors by group number
/// @param has_hair      the legend of count then also names segments
/// @param has_legend    makes the pictures of heat, count, motion and instance depth higher, by their legend
ScreenImage make_screen_image(const Picture& picture, const PictureLayer& layer, const std::vector<Color>& group_colors,
                              bool has_hair, bool has_legend);
