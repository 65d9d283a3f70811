// tools/vqgas/image/bitmap_font.h
//
// Letters of 5 by 7 dots for the legends of false-color pictures: capitals, digits, space, point, minus, plus.
#pragma once
#include <string_view>

#include "tools/vqgas/image/image_png.h"

/// Width in pixels of a text whose dots are `scale` pixels wide.
uint get_text_width(std::string_view text, uint scale);
inline uint get_text_height(uint scale) { return 7 * scale; }

/// Draws `text` with its upper left corner at (x, y). Small letters are drawn as capitals, unknown ones as space;
/// pixels outside the picture are skipped.
void draw_text(ScreenImage& image, uint x, uint y, uint scale, const Color& color, std::string_view text);
