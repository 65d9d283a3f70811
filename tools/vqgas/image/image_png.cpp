#include "tools/vqgas/image/image_png.h"

#include <png.h>

#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <memory>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/output_file.h"

namespace {

std::vector<u8> quantize(const ScreenImage& image) {
  std::vector<u8> bytes;
  bytes.reserve(image.pixels.size() * 3);
  for (const Color& pixel : image.pixels) {
    for (const float value : {pixel.x, pixel.y, pixel.z})
      bytes.push_back(static_cast<u8>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f)));
  }
  return bytes;
}

/// What the library says of a file that it cannot read.
struct PngFault {
  char text[200] = "";
};

void keep_fault(png_structp png, png_const_charp text) {
  auto* fault = static_cast<PngFault*>(png_get_error_ptr(png));
  std::snprintf(fault->text, sizeof(fault->text), "%s", text);
  png_longjmp(png, 1);
}

void ignore_warning(png_structp /*png*/, png_const_charp /*text*/) {}

/// The library's reader with what it reads to.
struct PngReader {
  PngReader() {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &fault, keep_fault, ignore_warning);
    if (png != nullptr) info = png_create_info_struct(png);
  }
  ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;

  /// Reads all rows. On an error the library jumps back here, over no object with a destructor.
  bool read(std::FILE* file) {
    if (png == nullptr || info == nullptr) return false;
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_init_io(png, file);
    png_set_user_limits(png, most_pixels, most_pixels);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    return true;
  }

  static constexpr png_uint_32 most_pixels = 16384;  // a side
  PngFault fault;
  png_structp png = nullptr;
  png_infop info = nullptr;
};

}  // namespace

GrayImage read_gray_png(const std::string& path) {
  check_input_file(path);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  PngReader reader;
  if (file == nullptr || !reader.read(file.get()))
    throw InputError(path, std::string("is not a readable PNG file: ") + reader.fault.text);
  const uint bits = png_get_bit_depth(reader.png, reader.info);
  if (png_get_color_type(reader.png, reader.info) != PNG_COLOR_TYPE_GRAY || bits < 8)
    throw InputError(path, "is not a gray picture of 8 or 16 bits without transparency");
  GrayImage image{png_get_image_width(reader.png, reader.info), png_get_image_height(reader.png, reader.info), {}};
  image.values.reserve(std::size_t{image.width} * image.height);
  const png_bytepp rows = png_get_rows(reader.png, reader.info);
  for (uint row = 0; row < image.height; ++row) {
    const png_bytep bytes = rows[row];
    for (uint column = 0; column < image.width; ++column)
      image.values.push_back(bits == 8
                                 ? static_cast<float>(bytes[column]) / 255.0f
                                 : static_cast<float>(bytes[2 * column] * 256 + bytes[2 * column + 1]) / 65535.0f);
  }
  return image;
}

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
