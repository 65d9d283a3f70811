#include "tools/vqgas/image/layer_display.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/vqgas/image/false_color_picture.h"
#include "tools/vqgas/image/picture_legend.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr Color empty_color(0.0f, 0.0f, 0.0f);

float get_value(const PictureLayer& layer, std::size_t channel, std::size_t pixel) {
  return layer.channels[channel].values[pixel];
}

Color get_triple(const PictureLayer& layer, std::size_t pixel) {
  return {get_value(layer, 0, pixel), get_value(layer, 1, pixel), get_value(layer, 2, pixel)};
}

Color show_beauty(const PictureLayer& layer, std::size_t pixel) {
  const Color mapped = tone_map(get_triple(layer, pixel));
  // Less than a step of 8 bits of noise: smooth skies then show no bands.
  const float noise = static_cast<float>(random_unit(static_cast<uint>(pixel), 77) - 0.5) / 255.0f;
  return {encode_srgb(mapped.x) + noise, encode_srgb(mapped.y) + noise, encode_srgb(mapped.z) + noise};
}

Color show_normal(const PictureLayer& layer, std::size_t pixel) {
  const Color normal = get_triple(layer, pixel);
  if (normal == Color()) return empty_color;
  return normal * 0.5f + Color(0.5f, 0.5f, 0.5f);
}

/// A checker of 16 fields over red and green for u and v.
Color show_uv(const PictureLayer& layer, std::size_t pixel) {
  const float u = get_value(layer, 0, pixel), v = get_value(layer, 1, pixel);
  if (u == 0.0f && v == 0.0f) return empty_color;
  const bool is_light = (static_cast<int>(std::floor(u * 16.0f)) + static_cast<int>(std::floor(v * 16.0f))) % 2 == 0;
  const Color color(u - std::floor(u), v - std::floor(v), 0.25f);
  return color * (is_light ? 1.0f : 0.72f);
}

Color show_number(const PictureLayer& layer, std::size_t pixel, const std::vector<Color>* colors) {
  const uint number = layer.channels[0].numbers[pixel];
  if (number == no_number) return empty_color;
  if (colors == nullptr || number >= colors->size()) return hash_color(number);
  const Color& color = (*colors)[number];
  return {encode_srgb(color.x), encode_srgb(color.y), encode_srgb(color.z)};
}

/// Darker where the surface is seen edge-on.
Color show_part(const PictureLayer& layer, std::size_t pixel) {
  const uint part = layer.channels[0].numbers[pixel];
  const Color color = part == unbuilt_part ? Color(0.5f, 0.5f, 0.5f) : show_number(layer, pixel, nullptr);
  return color * (0.3f + 0.7f * get_value(layer, 1, pixel));
}

/// A different color for each instance path.
Color show_path(const PictureLayer& layer, std::size_t pixel) {
  if (layer.channels[0].numbers[pixel] == no_number) return empty_color;
  uint mixed = 0;
  for (const PictureChannel& channel : layer.channels) mixed = hash_bits(mixed ^ channel.numbers[pixel]);
  return hash_color(mixed);
}

/// The range of the finite values of a channel.
struct ValueRange {
  float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();
  /// 0 at the low end, 1 at the high end.
  float place(float value) const { return high > low ? (value - low) / (high - low) : 0.5f; }
};

ValueRange find_range(const PictureChannel& channel) {
  ValueRange range;
  for (const float value : channel.values) {
    if (!std::isfinite(value)) continue;
    range.low = std::min(range.low, value);
    range.high = std::max(range.high, value);
  }
  return range;
}

template <class Show>
ScreenImage map_pixels(const Picture& picture, const Show& show) {
  ScreenImage image{picture.width, picture.height, {}};
  image.pixels.reserve(std::size_t{picture.width} * picture.height);
  for (std::size_t pixel = 0; pixel < std::size_t{picture.width} * picture.height; ++pixel)
    image.pixels.push_back(show(pixel));
  return image;
}

ScreenImage show_depth(const Picture& picture, const PictureLayer& layer) {
  const ValueRange range = find_range(layer.channels[0]);
  return map_pixels(picture, [&](std::size_t pixel) {
    const float depth = get_value(layer, 0, pixel);
    const float shade = 0.95f - 0.8f * range.place(depth);
    return std::isfinite(depth) ? Color(shade, shade, shade) : empty_color;
  });
}

/// Where the ray hits nothing the position is 0, and so it is shown as empty.
ScreenImage show_position(const Picture& picture, const PictureLayer& layer) {
  const ValueRange ranges[3] = {find_range(layer.channels[0]), find_range(layer.channels[1]),
                                find_range(layer.channels[2])};
  return map_pixels(picture, [&](std::size_t pixel) {
    const Color position = get_triple(layer, pixel);
    if (position == Color()) return empty_color;
    return Color(ranges[0].place(position.x), ranges[1].place(position.y), ranges[2].place(position.z));
  });
}

/// Direction as hue, right being red, up yellow-green; length as brightness, raised for slow motion.
Color get_motion_color(double right, double down) {
  const double turn = std::atan2(-down, right), brightness = std::sqrt(std::fmin(1.0, std::hypot(right, down)));
  const auto channel = [&](double at) { return static_cast<float>(brightness * (0.5 + 0.5 * std::cos(turn - at))); };
  constexpr double third = 2.0943951;
  return {channel(0.0), channel(third), channel(-third)};
}

ScreenImage show_motion(const Picture& picture, const PictureLayer& layer, bool has_legend) {
  std::vector<float> lengths;
  lengths.reserve(layer.channels[0].values.size());
  for (std::size_t pixel = 0; pixel < layer.channels[0].values.size(); ++pixel) {
    const float length = std::hypot(get_value(layer, 0, pixel), get_value(layer, 1, pixel));
    lengths.push_back(length > 0.0f ? length : -1.0f);
  }
  PictureLegend legend;
  legend.title = "pixels moved while the shutter is open";
  legend.top = std::fmax(0.1, find_legend_top(lengths));  // less is not seen
  legend.least_step = 0.0;
  legend.get_color = [](double place) { return get_motion_color(place, 0.0); };
  legend.get_vector_color = get_motion_color;
  const ScreenImage image = map_pixels(picture, [&](std::size_t pixel) {
    return get_motion_color(get_value(layer, 0, pixel) / legend.top, get_value(layer, 1, pixel) / legend.top);
  });
  return has_legend ? add_legend(image, legend) : image;
}

ScreenImage show_heat(const Picture& picture, const PictureLayer& layer, bool has_legend) {
  std::vector<float> sums = layer.channels[0].values;
  for (std::size_t pixel = 0; pixel < sums.size(); ++pixel) sums[pixel] += get_value(layer, 1, pixel);
  return make_false_color_picture(picture.width, picture.height, sums, "nodes and leaves visited per ray", has_legend);
}

ScreenImage show_instance_depth(const Picture& picture, const PictureLayer& layer, bool has_legend) {
  std::vector<float> values;
  values.reserve(layer.channels[0].numbers.size());
  for (const uint number : layer.channels[0].numbers)
    values.push_back(number == no_number ? -1.0f : static_cast<float>(number));
  return make_false_color_picture(picture.width, picture.height, values, "bundles that the surface is in", has_legend);
}

ScreenImage show_count(const Picture& picture, const PictureLayer& layer, bool has_hair, bool has_legend) {
  std::vector<float> values;
  values.reserve(layer.channels[0].numbers.size());
  for (const uint number : layer.channels[0].numbers)
    values.push_back(number == 0 ? -1.0f : static_cast<float>(number));
  const char* title = has_hair ? "polygons and hair segments along each ray" : "surfaces along each ray";
  return make_false_color_picture(picture.width, picture.height, values, title, has_legend);
}

}  // namespace

ScreenImage make_screen_image(const Picture& picture, const PictureLayer& layer, const std::vector<Color>& group_colors,
                              bool has_hair, bool has_legend) {
  switch (layer.layer) {
    case Layer::depth:
      return show_depth(picture, layer);
    case Layer::position:
      return show_position(picture, layer);
    case Layer::heat:
      return show_heat(picture, layer, has_legend);
    case Layer::count:
      return show_count(picture, layer, has_hair, has_legend);
    case Layer::normal:
      return map_pixels(picture, [&](std::size_t pixel) { return show_normal(layer, pixel); });
    case Layer::uv:
      return map_pixels(picture, [&](std::size_t pixel) { return show_uv(layer, pixel); });
    case Layer::parts:
      return map_pixels(picture, [&](std::size_t pixel) { return show_part(layer, pixel); });
    case Layer::primitive:
    case Layer::instance:
    case Layer::point:
      return map_pixels(picture, [&](std::size_t pixel) { return show_number(layer, pixel, nullptr); });
    case Layer::object:
      return map_pixels(picture, [&](std::size_t pixel) { return show_number(layer, pixel, nullptr); });
    case Layer::weight:
      return map_pixels(picture, [&](std::size_t pixel) { return Color(1, 1, 1) * get_value(layer, 0, pixel); });
    case Layer::instance_depth:
      return show_instance_depth(picture, layer, has_legend);
    case Layer::instance_path:
      return map_pixels(picture, [&](std::size_t pixel) { return show_path(layer, pixel); });
    case Layer::motion:
      return show_motion(picture, layer, has_legend);
    case Layer::group:
      return map_pixels(picture, [&](std::size_t pixel) { return show_number(layer, pixel, &group_colors); });
    case Layer::beauty:
      break;
  }
  return map_pixels(picture, [&](std::size_t pixel) { return show_beauty(layer, pixel); });
}
