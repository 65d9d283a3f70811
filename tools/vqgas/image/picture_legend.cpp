#include "tools/vqgas/image/picture_legend.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>

#include "tools/vqgas/image/bitmap_font.h"

namespace {

constexpr Color paper(0.07f, 0.07f, 0.09f), ink(0.92f, 0.92f, 0.94f);

/// The smallest of ... 0.5, 1, 2, 5, 10 ... that is not below `value`.
double round_up(double value) {
  const double power = std::pow(10.0, std::floor(std::log10(value)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (power * factor >= value) return power * factor;
  }
  return power * 10.0;
}

std::string print_short(double value) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%g", value);
  return text.data();
}

struct LegendPlace {
  uint scale, margin, left, width, title_top, bar_top, bar_height, text_top, bottom;

  LegendPlace(uint picture_width, uint picture_height, bool has_disc) {
    scale = std::max(1u, std::min(picture_width / 400, picture_height / 200));
    margin = 6 * scale;
    const uint text_height = get_text_height(scale);
    title_top = picture_height + margin;
    bar_top = title_top + text_height + margin;
    bar_height = 2 * text_height;
    text_top = bar_top + bar_height + margin;
    bottom = text_top + text_height + margin;
    left = std::min(picture_width / 4, 4 * margin);
    width = picture_width - 2 * left;
    if (!has_disc) return;
    const uint room = std::min(width / 2, bottom - picture_height);
    left += room;
    width -= room;
  }
};

void draw_ticks(ScreenImage& image, const LegendPlace& place, const PictureLegend& legend) {
  const double step = std::max(legend.least_step, round_up(legend.top / 6.0)), end = legend.top * 1.0001;
  for (uint tick = 0; tick * step <= end; ++tick) {
    const double value = tick * step;
    const uint x = place.left + static_cast<uint>(value / legend.top * (place.width - 1));
    for (uint y = place.bar_top + place.bar_height; y < place.text_top - place.scale; ++y) {
      for (uint column = 0; column < place.scale; ++column) image.at(std::min(x + column, image.width - 1), y) = ink;
    }
    const std::string text = print_short(value) + (value + step > end ? "+" : "");
    const uint half = get_text_width(text, place.scale) / 2;
    draw_text(image, x > half ? x - half : 0, place.text_top, place.scale, ink, text);
  }
}

/// Left of the bar, as high as the strip allows.
void draw_disc(ScreenImage& image, const LegendPlace& place, const PictureLegend& legend) {
  const double radius = 0.5 * (place.bottom - place.title_top - place.margin);
  const double middle_x = place.left - 2.0 * place.margin - radius, middle_y = place.title_top + radius;
  for (uint y = place.title_top; y < place.bottom; ++y) {
    for (uint x = 0; x < place.left; ++x) {
      const double right = (x + 0.5 - middle_x) / radius, down = (y + 0.5 - middle_y) / radius;
      if (std::hypot(right, down) <= 1.0) image.at(x, y) = legend.get_vector_color(right, down);
    }
  }
}

}  // namespace

ScreenImage add_legend(const ScreenImage& picture, const PictureLegend& legend) {
  const LegendPlace place(picture.width, picture.height, legend.get_vector_color != nullptr);
  ScreenImage image{picture.width, place.bottom, picture.pixels};
  image.pixels.resize(std::size_t{image.width} * image.height, paper);
  for (uint y = place.bar_top; y < place.bar_top + place.bar_height; ++y) {
    for (uint x = 0; x < place.width; ++x)
      image.at(place.left + x, y) = legend.get_color(double(x) / std::max(1u, place.width - 1));
  }
  draw_text(image, place.left, place.title_top, place.scale, ink, legend.title);
  draw_ticks(image, place, legend);
  if (legend.get_vector_color) draw_disc(image, place, legend);
  return image;
}

double find_legend_top(const std::vector<float>& values) {
  std::vector<float> sorted;
  std::copy_if(values.begin(), values.end(), std::back_inserter(sorted), [](float value) { return value >= 0.0f; });
  if (sorted.empty()) return 1.0;
  const auto place = sorted.begin() + static_cast<std::ptrdiff_t>((sorted.size() - 1) * 999 / 1000);
  std::nth_element(sorted.begin(), place, sorted.end());
  return *place;
}
