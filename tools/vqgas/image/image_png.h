// tools/vqgas/image/image_png.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_core/core_types.h"

/// Colors on the sRGB curve, rows from top to bottom.
struct ScreenImage {
  uint width = 0, height = 0;
  std::vector<Color> pixels;
  Color& at(uint x, uint y) { return pixels[std::size_t{y} * width + x]; }
};

/// Writes an 8-bit sRGB picture. Throws InputError when the file cannot be written.
void write_png(const std::string& path, const ScreenImage& image);
