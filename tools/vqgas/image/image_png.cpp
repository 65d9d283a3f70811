#include "tools/vqgas/image/image_png.h"

#include <png.h>

#include <cerrno>

#include "tools/vqgas/support/output_file.h"

namespace {

std::vector<u8> quantize(const ScreenImage& image) {
  std::vector<u8> bytes;
  bytes.reserve(image.pixels.size() * 3);
  for (const Color& pixel : image.pixels) {
    for (const float value : {pixel.x, pixel.y, pixel.z})
      bytes.push_back(static_cast<u8>(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f));
  }
  return bytes;
}

}  // namespace

void write_png(const std::string& path, const ScreenImage& image) {
  OutputFile output(path);
  const std::vector<u8> bytes = quantize(image);
  png_image header = {};
  header.version = PNG_IMAGE_VERSION;
  header.width = image.width;
  header.height = image.height;
  header.format = PNG_FORMAT_RGB;
  errno = 0;
  if (png_image_write_to_stdio(&header, output.get_stream(), 0, bytes.data(), 0, nullptr) == 0)
    output.fail(errno != 0 ? "" : header.message);
  output.commit();
}
