// Reads pictures back, by code that shares nothing with the program's writers.
#pragma once
#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

/// The channels of an EXR file by name; numbers are in `numbers`, everything else in `values`.
struct ExrFile {
  int width = 0, height = 0;
  std::map<std::string, std::vector<float>> values;
  std::map<std::string, std::vector<std::uint32_t>> numbers;
};
ExrFile read_exr(const std::filesystem::path& path);

struct PngFile {
  unsigned width = 0, height = 0;
  std::vector<std::uint8_t> rgb;
  std::array<int, 3> at(unsigned x, unsigned y) const {
    const std::size_t first = 3 * (std::size_t{y} * width + x);
    return {rgb[first], rgb[first + 1], rgb[first + 2]};
  }
};
PngFile read_png(const std::filesystem::path& path);
/// The alpha of each pixel; 255 in a picture without.
std::vector<std::uint8_t> read_png_alpha(const std::filesystem::path& path);
/// Writes 8-bit pixels, rows from top to bottom, as gray or, with three bytes a pixel, in color.
void write_png(const std::filesystem::path& path, unsigned width, const std::vector<std::uint8_t>& bytes,
               bool is_gray = true);
/// Writes a gray picture of one pixel of 16 bits.
void write_png_16(const std::filesystem::path& path, std::uint16_t value);
