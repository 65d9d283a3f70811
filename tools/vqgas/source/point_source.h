// tools/vqgas/source/point_source.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_core/core_types.h"

/// A point cloud before its structure is built. A point takes 12 bytes, and 4 bytes each for its color and its radius,
/// so 100 million points with colors take 1.6 GB.
struct PointSource {
  std::vector<GMathVec3<float>> positions;  ///< as in the file: some may be NaN or infinite
  std::vector<u32> colors;                  ///< [point] 0xRRGGBB on the sRGB curve; empty: none
  std::vector<float> radii;                 ///< [point] as in the file; empty: none
  u64 non_finite_count = 0;                 ///< of points whose position or radius is NaN or infinite
  std::string name;                         ///< of the file, for errors

  /// The cloud must have colors.
  Color get_color(std::size_t point) const { return color_from_srgb(colors[point]); }
};
