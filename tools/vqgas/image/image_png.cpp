#include "tools/vqgas/image/image_png.h"

#include <png.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/output_file.h"

namespace {

u8 quantize(float value) { return static_cast<u8>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f)); }

std::vector<u8> quantize(const ScreenImage& image) {
  std::vector<u8> bytes;
  bytes.reserve(image.pixels.size() * 3);
  for (const Color& pixel : image.pixels) {
    for (const float value : {pixel.x, pixel.y, pixel.z}) bytes.push_back(quantize(value));
  }
  return bytes;
}

/// PNG keeps colors that are not multiplied by alpha. Throws Interrupted.
std::vector<u8> quantize(const PictureLayer& beauty) {
  const std::vector<PictureChannel>& channels = beauty.channels;
  const std::size_t count = channels[3].values.size();
  std::vector<u8> bytes(4 * count);
  for (std::size_t pixel = 0; pixel < count; ++pixel) {
    if (pixel % 65536 == 0) throw_if_interrupted();
    const float alpha = channels[3].values[pixel];
    if (!(alpha > 0.0f)) continue;
    for (std::size_t k = 0; k < 3; ++k) bytes[4 * pixel + k] = quantize(encode_srgb(channels[k].values[pixel] / alpha));
    bytes[4 * pixel + 3] = quantize(alpha);
  }
  return bytes;
}

/// @param flags  of the library, for the compression
void write_bytes(const std::string& path, uint width, uint height, png_uint_32 format, png_uint_32 flags,
                 const std::vector<u8>& bytes) {
  OutputFile output(path);
  png_image header = {};
  header.version = PNG_IMAGE_VERSION;
  header.width = width;
  header.height = height;
  header.format = format;
  header.flags = flags;
  errno = 0;
  if (png_image_write_to_stdio(&header, output.get_stream(), 0, bytes.data(), 0, nullptr) == 0)
    output.fail(errno != 0 ? "" : header.message);
  output.commit();
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

namespace {

/// Before memory for the pixels is allocated. A pixel has a bit at least, and a packed byte never makes more than 1032.
void check_size(const std::string& path, png_image& header) {
  constexpr std::uintmax_t most_per_byte = 1032 * 8;
  std::string fault;
  if (header.width > PngReader::most_pixels || header.height > PngReader::most_pixels) {
    fault = "has more than " + std::to_string(PngReader::most_pixels) + " pixels a side";
  } else if (std::uintmax_t{header.width} * header.height / most_per_byte > std::filesystem::file_size(path)) {
    fault = "is cut off: it is too short for " + std::to_string(header.width) + " x " + std::to_string(header.height) +
            " pixels";
  }
  if (fault.empty()) return;
  png_image_free(&header);
  throw InputError(path, fault);
}

}  // namespace

Picture read_color_png(const std::string& path) {
  check_input_file(path);
  png_image header = {};
  header.version = PNG_IMAGE_VERSION;
  const auto fail = [&] { throw InputError(path, std::string("is not a readable PNG file: ") + header.message); };
  if (png_image_begin_read_from_file(&header, path.c_str()) == 0) fail();
  check_size(path, header);
  header.format = PNG_FORMAT_RGBA;
  std::vector<u8> bytes(PNG_IMAGE_SIZE(header));
  if (png_image_finish_read(&header, nullptr, bytes.data(), 0, nullptr) == 0) fail();
  std::array<float, 256> linear;
  for (std::size_t value = 0; value < linear.size(); ++value)
    linear[value] = decode_srgb(static_cast<float>(value) / 255.0f);
  Picture picture(header.width, header.height, {Layer::beauty});
  std::vector<PictureChannel>& channels = picture.layers[0].channels;
  for (std::size_t pixel = 0; 4 * pixel < bytes.size(); ++pixel) {
    const float alpha = static_cast<float>(bytes[4 * pixel + 3]) / 255.0f;
    for (std::size_t k = 0; k < 3; ++k) channels[k].values[pixel] = linear[bytes[4 * pixel + k]] * alpha;
    channels[3].values[pixel] = alpha;
  }
  return picture;
}

void write_transparent_png(const std::string& path, const Picture& picture) {
  // The filters take most of the time, and save little where there are only lines.
  write_bytes(path, picture.width, picture.height, PNG_FORMAT_RGBA, PNG_IMAGE_FLAG_FAST,
              quantize(*picture.find(Layer::beauty)));
}

void write_png(const std::string& path, const ScreenImage& image) {
  write_bytes(path, image.width, image.height, PNG_FORMAT_RGB, 0, quantize(image));
}
