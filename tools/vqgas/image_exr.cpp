#include "tools/vqgas/image_exr.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>

#include <exception>

#include "tools/vqgas/input_error.h"
#include "tools/vqgas/output_file.h"

namespace {

void write_channels(const std::string& path, const Picture& picture) {
  const int width = static_cast<int>(picture.width), height = static_cast<int>(picture.height);
  Imf::Header header(width, height);
  header.compression() = Imf::ZIP_COMPRESSION;
  Imf::FrameBuffer frame;
  for (const PictureLayer& layer : picture.layers) {
    for (const PictureChannel& channel : layer.channels) {
      const bool numbers = !channel.numbers.empty();
      const Imf::PixelType type = numbers ? Imf::UINT : Imf::FLOAT;
      const void* data = numbers ? static_cast<const void*>(channel.numbers.data()) : channel.values.data();
      header.channels().insert(channel.name, Imf::Channel(type));
      // The library's record serves reading and writing alike, so it wants a pointer to changeable bytes.
      char* base = static_cast<char*>(const_cast<void*>(data));
      frame.insert(channel.name, Imf::Slice(type, base, 4, std::size_t{4} * picture.width));
    }
  }
  Imf::OutputFile file(path.c_str(), header);
  file.setFrameBuffer(frame);
  file.writePixels(height);
}

}  // namespace

void write_exr(const std::string& path, const Picture& picture) {
  OutputFile output(path);
  try {
    write_channels(output.get_temporary_path(), picture);
  } catch (const std::exception& error) {
    throw InputError(path, std::string("cannot be written: ") + error.what());
  }
  output.commit();
}
