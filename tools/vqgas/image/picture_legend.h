// tools/vqgas/image/picture_legend.h
#pragma once
#include <functional>
#include <string_view>
#include <vector>

#include "tools/vqgas/image/image_png.h"

/// Meaning of a picture's colors, shown as a strip below it.
struct PictureLegend {
  std::string_view title;
  double top = 1.0;         ///< number at the right end of the bar; greater ones have the same color
  double least_step = 1.0;  ///< between the numbers below the bar
  std::function<Color(double place)> get_color;  ///< along the bar, from 0 to 1
  /// Colors of vectors up to length 1, y downwards, shown as a disc beside the bar; null: no disc.
  std::function<Color(double x, double y)> get_vector_color = nullptr;
};

/// The picture with its legend below.
ScreenImage add_legend(const ScreenImage& picture, const PictureLegend& legend);

/// The 99.9th percentile of the values that are not negative, so that a few extreme pixels do not darken the rest; 1
/// when all are negative.
double find_legend_top(const std::vector<float>& values);
