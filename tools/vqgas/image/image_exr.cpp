#include "tools/vqgas/image/image_exr.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>

#include <algorithm>
#include <exception>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/output_file.h"

namespace {

class ExrStream final : public Imf::OStream {
 public:
  ExrStream(OutputFile& file, const std::string& path) : OStream(path.c_str()), file_(file) {}

  void write(const char bytes[], int size) override { file_.write(bytes, static_cast<std::size_t>(size)); }
  std::uint64_t tellp() override { return static_cast<std::uint64_t>(std::ftell(file_.get_stream())); }
  void seekp(std::uint64_t position) override {
    if (std::fseek(file_.get_stream(), static_cast<long>(position), SEEK_SET) != 0) file_.fail();
  }

 private:
  OutputFile& file_;
};

void write_channels(ExrStream& stream, const Picture& picture) {
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
      // The library has one type for reading and writing, so its pointer is not const.
      char* base = static_cast<char*>(const_cast<void*>(data));
      frame.insert(channel.name, Imf::Slice(type, base, 4, std::size_t{4} * picture.width));
    }
  }
  Imf::OutputFile file(stream, header);
  file.setFrameBuffer(frame);
  for (int row = 0; row < height; row += 16) file.writePixels(std::min(16, height - row));
}

}  // namespace

void write_exr(const std::string& path, const Picture& picture) {
  OutputFile output(path);
  try {
    ExrStream stream(output, path);
    write_channels(stream, picture);
  } catch (const InputError&) {
    throw;
  } catch (const std::exception& error) {
    output.fail(error.what());
  }
  output.commit();
}
