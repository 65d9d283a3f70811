#include "tools/image_file.h"

#include <ImathBox.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <gtest/gtest.h>
#include <png.h>

ExrFile read_exr(const std::filesystem::path& path) {
  Imf::InputFile file(path.c_str());
  const Imath::Box2i window = file.header().dataWindow();
  ExrFile exr;
  exr.width = window.max.x - window.min.x + 1;
  exr.height = window.max.y - window.min.y + 1;
  const std::size_t count = static_cast<std::size_t>(exr.width) * exr.height, row = 4 * std::size_t(exr.width);
  Imf::FrameBuffer frame;
  const Imf::ChannelList& channels = file.header().channels();
  for (auto channel = channels.begin(); channel != channels.end(); ++channel) {
    char* base = nullptr;
    if (channel.channel().type == Imf::UINT) {
      base = reinterpret_cast<char*>(exr.numbers.emplace(channel.name(), count).first->second.data());
    } else {
      base = reinterpret_cast<char*>(exr.values.emplace(channel.name(), count).first->second.data());
    }
    frame.insert(channel.name(), Imf::Slice(channel.channel().type, base, 4, row));
  }
  file.setFrameBuffer(frame);
  file.readPixels(window.min.y, window.max.y);
  return exr;
}

namespace {

std::vector<std::uint8_t> read_pixels(const std::filesystem::path& path, png_uint_32 format, png_image& header) {
  header.version = PNG_IMAGE_VERSION;
  bool is_read = png_image_begin_read_from_file(&header, path.c_str()) != 0;
  header.format = format;
  std::vector<std::uint8_t> bytes(is_read ? PNG_IMAGE_SIZE(header) : 0);
  const png_color black = {};
  is_read = is_read && png_image_finish_read(&header, &black, bytes.data(), 0, nullptr) != 0;
  EXPECT_TRUE(is_read) << path << ": " << header.message;
  return bytes;
}

}  // namespace

PngFile read_png(const std::filesystem::path& path) {
  png_image header = {};
  PngFile png;
  png.rgb = read_pixels(path, PNG_FORMAT_RGB, header);
  png.width = header.width;
  png.height = header.height;
  return png;
}

std::vector<std::uint8_t> read_png_alpha(const std::filesystem::path& path) {
  png_image header = {};
  std::vector<std::uint8_t> alpha, bytes = read_pixels(path, PNG_FORMAT_RGBA, header);
  for (std::size_t at = 3; at < bytes.size(); at += 4) alpha.push_back(bytes[at]);
  return alpha;
}

void write_png(const std::filesystem::path& path, unsigned width, const std::vector<std::uint8_t>& bytes,
               bool is_gray) {
  png_image header = {};
  header.version = PNG_IMAGE_VERSION;
  header.width = width;
  header.height = static_cast<unsigned>(bytes.size()) / width / (is_gray ? 1 : 3);
  header.format = is_gray ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  EXPECT_NE(png_image_write_to_file(&header, path.c_str(), 0, bytes.data(), 0, nullptr), 0) << header.message;
}

void write_png_16(const std::filesystem::path& path, std::uint16_t value) {
  png_image header = {};
  header.version = PNG_IMAGE_VERSION;
  header.width = header.height = 1;
  header.format = PNG_FORMAT_LINEAR_Y;
  EXPECT_NE(png_image_write_to_file(&header, path.c_str(), 0, &value, 0, nullptr), 0) << header.message;
}
