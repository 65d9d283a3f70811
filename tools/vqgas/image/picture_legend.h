// tools/vqgas/image/picture_legend.h
#pragma once
#include <functional>
#include <string_view>
#include <vector>

#include "tools/vqgas/image/image_png.h"

/// What the colours of a picture stand for: a strip below it.
struct PictureLegend {
  std::string_view title;
  double top = 1.0;         ///< number at the right end of the bar, whose colour greater ones have too
  double least_step = 1.0;  ///< between the numbers below the bar
  std::function<Color(double place)> get_color;  ///< along the bar, from 0 to 1
  /// Colours of vectors up to length 1, y downwards, shown as a disc beside the bar; null: no disc.
  std::function<Color(double x, double y)> get_vector_color = nullptr;
};

/// The picture with its legend below.
ScreenImage add_legend(const ScreenImage& picture, const PictureLegend& legend);

/// A number for the end of the bar: all but the top thousandth lie below, so that a few extreme pixels do not darken
/// the rest. Negative values do not count; 1 when there are no others.
double find_legend_top(const std::vector<float>& values);
