#include "tools/vqgas/image/false_color_picture.h"

#include <cmath>

#include "tools/vqgas/image/picture_legend.h"

ScreenImage make_false_color_picture(uint width, uint height, const std::vector<float>& values, std::string_view title,
                                     bool has_legend) {
  constexpr Color background(0.0f, 0.0f, 0.0f);
  PictureLegend legend;
  legend.title = title;
  legend.top = std::fmax(1.0, find_legend_top(values));
  legend.get_color = [](double place) { return false_color(static_cast<float>(place)); };
  ScreenImage picture{width, height, {}};
  picture.pixels.reserve(values.size());
  for (const float value : values)
    picture.pixels.push_back(value < 0.0f ? background : legend.get_color(value / legend.top));
  return has_legend ? add_legend(picture, legend) : picture;
}
