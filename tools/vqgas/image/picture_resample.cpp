#include "tools/vqgas/image/picture_resample.h"

#include <algorithm>
#include <cmath>

#include "tools/vqgas/support/interrupt.h"

namespace {

/// The pixels that make up one pixel of the other size, along one axis.
struct Taps {
  uint first = 0;
  std::vector<float> weights;  ///< their sum is 1
};

/// A triangle filter as wide as two pixels of the coarser of both sizes.
std::vector<Taps> make_taps(uint from, uint to) {
  const double scale = double(from) / to, radius = std::max(scale, 1.0);
  std::vector<Taps> taps(to);
  for (uint pixel = 0; pixel < to; ++pixel) {
    const double center = (pixel + 0.5) * scale - 0.5;
    const double first = std::max(std::ceil(center - radius), 0.0);
    const double last = std::min(std::floor(center + radius), double(from) - 1.0);
    taps[pixel].first = static_cast<uint>(first);
    double sum = 0.0;
    for (double k = first; k <= last; ++k) sum += radius - std::fabs(k - center);
    for (double k = first; k <= last; ++k)
      taps[pixel].weights.push_back(static_cast<float>((radius - std::fabs(k - center)) / sum));
  }
  return taps;
}

/// Resamples the rows, and exchanges rows and columns.
std::vector<float> resample_rows(const std::vector<float>& values, uint width, uint new_width) {
  const std::vector<Taps> taps = make_taps(width, new_width);
  const std::size_t height = values.size() / width;
  std::vector<float> out(height * new_width);
  for (std::size_t row = 0; row < height; ++row) {
    throw_if_interrupted();
    for (uint column = 0; column < new_width; ++column) {
      const float* from = values.data() + row * width + taps[column].first;
      float sum = 0.0f;
      for (const float weight : taps[column].weights) sum += weight * *from++;
      out[column * height + row] = sum;
    }
  }
  return out;
}

}  // namespace

Picture resample_beauty(const Picture& picture, uint width, uint height) {
  Picture out(width, height, {Layer::beauty});
  for (std::size_t k = 0; k < out.layers[0].channels.size(); ++k) {
    const std::vector<float>& values = picture.find(Layer::beauty)->channels[k].values;
    out.layers[0].channels[k].values =
        resample_rows(resample_rows(values, picture.width, width), picture.height, height);
  }
  return out;
}
