#include "tools/vqgas/image_png.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/vqgas/input_error.h"
#include "tools/vqgas/output_file.h"

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
  std::FILE* file = std::fopen(output.get_temporary_path().c_str(), "wb");
  if (file == nullptr) throw InputError(path, std::string("cannot be written: ") + std::strerror(errno));
  const bool written = png_image_write_to_stdio(&header, file, 0, bytes.data(), 0, nullptr) != 0;
  const bool closed = std::fclose(file) == 0;
  if (!written) throw InputError(path, std::string("cannot be written: ") + header.message);
  if (!closed) throw InputError(path, std::string("cannot be written: ") + std::strerror(errno));
  output.commit();
}
