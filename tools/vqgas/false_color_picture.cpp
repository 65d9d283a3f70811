#include "tools/vqgas/false_color_picture.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <string>

#include "tools/vqgas/bitmap_font.h"

namespace {

constexpr Color paper(0.07f, 0.07f, 0.09f), ink(0.92f, 0.92f, 0.94f), background(0.0f, 0.0f, 0.0f);

/// The smallest of 1, 2, 5, 10, 20, 50 … that is not below `value`.
double round_up(double value) {
  double power = 1.0;
  while (power * 10.0 < value) power *= 10.0;
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (power * factor >= value) return power * factor;
  }
  return power * 10.0;
}

/// The number that gets the brightest colour: all but the top thousandth lie below, so that a few extreme pixels do
/// not darken the rest.
double choose_top(const std::vector<float>& values) {
  std::vector<float> sorted;
  for (const float value : values) {
    if (value >= 0.0f) sorted.push_back(value);
  }
  if (sorted.empty()) return 1.0;
  const auto place = sorted.begin() + static_cast<std::ptrdiff_t>((sorted.size() - 1) * 999 / 1000);
  std::nth_element(sorted.begin(), place, sorted.end());
  return std::fmax(1.0, *place);
}

std::string print_short(double value) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%g", value);
  return text.data();
}

struct LegendPlace {
  uint scale, margin, left, width, bar_top, bar_height, text_top;
};

void draw_ticks(ScreenImage& image, const LegendPlace& place, double top) {
  const double step = round_up(top / 6.0);
  for (double value = 0.0; value <= top * 1.0001; value += step) {
    const uint x = place.left + static_cast<uint>(value / top * (place.width - 1));
    for (uint y = place.bar_top + place.bar_height; y < place.text_top - place.scale; ++y) {
      for (uint column = 0; column < place.scale; ++column) image.at(std::min(x + column, image.width - 1), y) = ink;
    }
    const std::string text = print_short(value) + (value + step > top * 1.0001 ? "+" : "");
    const uint half = get_text_width(text, place.scale) / 2;
    draw_text(image, x > half ? x - half : 0, place.text_top, place.scale, ink, text);
  }
}

}  // namespace

ScreenImage make_false_color_picture(uint width, uint height, const std::vector<float>& values,
                                     std::string_view title) {
  const double top = choose_top(values);
  LegendPlace place = {};
  place.scale = std::max(1u, std::min(width / 400, height / 200));
  place.margin = 6 * place.scale;
  place.left = std::min(width / 4, 4 * place.margin);
  place.width = width - 2 * place.left;
  const uint text_height = get_text_height(place.scale);
  place.bar_top = height + place.margin + text_height + place.margin;
  place.bar_height = 2 * text_height;
  place.text_top = place.bar_top + place.bar_height + place.margin;

  ScreenImage image{width, place.text_top + text_height + place.margin, {}};
  image.pixels.assign(std::size_t{image.width} * image.height, paper);
  for (std::size_t pixel = 0; pixel < values.size(); ++pixel)
    image.pixels[pixel] = values[pixel] < 0.0f ? background : false_color(static_cast<float>(values[pixel] / top));
  for (uint y = place.bar_top; y < place.bar_top + place.bar_height; ++y) {
    for (uint x = 0; x < place.width; ++x)
      image.at(place.left + x, y) =
          false_color(static_cast<float>(x) / static_cast<float>(std::max(1u, place.width - 1)));
  }
  draw_text(image, place.left, height + place.margin, place.scale, ink, title);
  draw_ticks(image, place, top);
  return image;
}
