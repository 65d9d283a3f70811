// tools/vqgas/image/image_png.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "tools/vqgas/image/picture.h"
#include "vq_core/core_types.h"

/// Colors on the sRGB curve, rows from top to bottom.
struct ScreenImage {
  uint width = 0, height = 0;
  std::vector<Color> pixels;
  Color& at(uint x, uint y) { return pixels[std::size_t{y} * width + x]; }
};

/// Heights, or other values that are not light: as they are in the file, divided by the largest that fits it, rows from
/// top to bottom.
struct GrayImage {
  uint width = 0, height = 0;
  std::vector<float> values;  ///< in [0, 1]
};

/// Reads a gray picture of 8 or 16 bits, up to 16384 pixels a side. Throws InputError for any other file.
GrayImage read_gray_png(const std::string& path);

/// Reads any picture, up to 16384 pixels a side, as a layer beauty: linear light, multiplied by alpha. Throws
/// InputError.
Picture read_color_png(const std::string& path);

/// Writes the layer beauty as an 8-bit sRGB picture with transparency. Throws InputError when the file cannot be
/// written.
void write_transparent_png(const std::string& path, const Picture& picture);

/// Writes an 8-bit sRGB picture. Throws InputError when the file cannot be written.
void write_png(const std::string& path, const ScreenImage& image);
