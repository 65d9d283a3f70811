#include "fuzz/fuzz_seeds.h"

#include <zlib.h>

#include <array>
#include <cstdint>

#include "tools/hair_bytes.h"

namespace {

constexpr const char* cube_obj =
    "mtllib none.mtl\no cube\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
    "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvn 0 0 1\nvn 0 0 -1\ng sides\nusemtl red\n"
    "f 1/1/2 4/2/2 3/3/2 2/4/2\nf 5/1/1 6/2/1 7/3/1 8/4/1\nusemtl blue\nf 1/1 2/2 6/3 5/4\nf 2 3 7 6\ns 1\n"
    "f 3//1 4//1 8//1 7//1\nf -8 -4 -1 -5\nl 1 2 3\np 1\n";

constexpr const char* curl_obj = "v 0 0 0 1\nv 1 0 0 1\nv 0.3 0.3 0\nv 0 1 0\nv 2 2 2\nf 1 2 3 4\nf 1 2 \\\n 5\n";

const std::array<float, 12> square = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};

std::string make_text_ply() {
  return "ply\nformat ascii 1.0\ncomment square\nelement vertex 4\nproperty float x\nproperty float y\n"
         "property float z\nproperty float nx\nproperty float ny\nproperty float nz\nproperty float s\n"
         "property float t\nproperty uchar red\nproperty uchar green\nproperty uchar blue\nelement face 2\n"
         "property list uchar int vertex_indices\nend_header\n0 0 0 0 0 1 0 0 255 0 0\n1 0 0 0 0 1 1 0 255 0 0\n"
         "1 1 0 0 0 1 1 1 255 255 0\n0 1 0 0 0 1 0 1 255 0 9\n4 0 1 2 3\n3 0 1 2\n";
}

std::string make_binary_ply(bool is_big_endian) {
  std::string bytes = std::string("ply\nformat binary_") + (is_big_endian ? "big" : "little") +
                      "_endian 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
                      "element face 2\nproperty list uchar int vertex_indices\nproperty uchar flags\nend_header\n";
  const auto add = [&](const auto& value) {
    std::string number;
    append_bytes(number, value);
    if (is_big_endian) number.assign(number.rbegin(), number.rend());
    bytes += number;
  };
  for (const float value : square) add(value);
  for (const int first : {0, 1}) {
    add(std::uint8_t{3});
    for (const int corner : {first, first + 1, 3}) add(std::int32_t{corner % 4});
    add(std::uint8_t{7});
  }
  return bytes;
}

std::string make_binary_stl() {
  std::string bytes(80, ' ');
  append_bytes(bytes, std::uint32_t{2});
  for (const std::size_t turn : {0, 6}) {
    for (const float value : {0.0f, 0.0f, 1.0f}) append_bytes(bytes, value);
    for (std::size_t k = 0; k < 9; ++k) append_bytes(bytes, square[(turn + k) % 12]);
    append_bytes(bytes, std::uint16_t{0});
  }
  return bytes;
}

constexpr const char* text_stl =
    "solid square\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 1 1 0\nendloop\nendfacet\n"
    "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 1 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid square\n";

std::vector<FuzzSeed> make_hair_seeds() {
  HairBytes plain, same, all;
  same.arrays = 6, same.points = 4, same.default_segments = 1;
  same.positions.pop_back(), same.thickness.pop_back();
  all.arrays = 31;
  std::string all_bytes = all.write();
  for (std::size_t k = 0; k < 4 * all.positions.size(); ++k) append_bytes(all_bytes, 0.5f);  // transparency, colors
  return {{"hair", plain.write(), false},
          {"hair", same.write(), false},
          {"hair", all_bytes, false},
          {"curves", "# two\n0 0 0 0.1\n0 1 0 0.1\n1 1 0 0.05 # tip\n\n1 0 0 0.1\n1 0 1 0.2\n", true}};
}

std::string make_point_ply() {
  std::string bytes =
      "ply\nformat binary_little_endian 1.0\nelement camera 1\nproperty list uchar short view\nproperty double zoom\n"
      "element vertex 3\nproperty float x\nproperty double y\nproperty short z\nproperty uchar red\n"
      "property uchar green\nproperty uchar blue\nproperty float radius\nproperty list int uchar tags\nend_header\n";
  append_bytes(bytes, std::uint8_t{2});
  for (const std::int16_t view : {1, 2}) append_bytes(bytes, view);
  append_bytes(bytes, 1.5);
  for (const int k : {0, 1, 2}) {
    append_bytes(bytes, static_cast<float>(k));
    append_bytes(bytes, 0.5 * k);
    append_bytes(bytes, static_cast<std::int16_t>(k));
    for (const std::uint8_t channel : {10, 20, 30}) append_bytes(bytes, channel);
    append_bytes(bytes, 0.1f);
    append_bytes(bytes, std::int32_t{k});
    bytes.append(static_cast<std::size_t>(k), 't');
  }
  return bytes;
}

std::vector<FuzzSeed> make_point_seeds() {
  return {
      {"ply", make_point_ply(), false},
      {"ply",
       "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
       "property list uchar int tags\nproperty float radius\nend_header\n0 0 0 2 7 8 0.1\n1 0 0 0 0.1\n0 1 1 1 5 0.2\n",
       true},
      {"xyz", "# three\n0 0 0\n1 0 0\n0 1e-3 +1\n", true},
      {"xyz", "//X Y Z R G B\n0 0 0 255 0 0\n1 0 0 0 255 0\n0 1 1 0 0 255\n", true},
      {"pts", "2\n0 0 0 -17 255 0 0\n1 0 0 12 0 255 0\n1\n0 1 1 3 0 0 255\n", true},
      {"csv", "\"x\";y;z;note;radius\n0;0;0;\"a;b\";0.1\n1;0;0;;0.1\n0;1;1;c;0.5\n", true},
      {"csv", "x,y,z,red,green,blue\n0,0,0,0.5,0.5,0.5\n1,0,0,1,0,0\n0,1,1,0,65535,1\n", true}};
}

std::vector<FuzzSeed> make_scatter_seeds() {
  const std::string matrix = "1, 0, 0, 0,  0, 1, 0, 0,  0, 0, 1, 0";
  const std::string moved = "0, -2, 0, 3,  2, 0, 0, 1.5e0,  0, 0, 2, -1";
  return {{"json",
           "{\"format\": \"vqgas scatter 1\",\n \"ground\": \"quad.obj\",\n \"displacement\":"
           " {\"height\": \"noise\", \"bound\": 0.1, \"rate\": 4},\n \"geometries\": [\"quad.obj\",\n"
           "  \"tuft.curves\"],\n \"sway\": {\"degrees\": 4,\n  \"period\": 24},\n \"instances\": {\n"
           "  \"geometry\": [0,\n 1,\n 0],\n  \"matrix\": [" +
               matrix + ",\n" + moved + ",\n" + moved + "]}}\n",
           true},
          {"json",
           "{\"format\": \"vqgas scatter 1\", \"geometries\": [\"quad.obj\"],\n"
           " \"instances\": {\"geometry\": [0],\n \"matrix\": [" +
               moved + "]}}\n",
           true}};
}

/// A picture of 4 x 4 pixels: name of a chunk and its content, in this order.
class PngBytes {
 public:
  PngBytes(int bits, int color_type, bool is_interlaced) {
    std::string header("\0\0\0\4\0\0\0\4", 8);
    header += {static_cast<char>(bits), static_cast<char>(color_type), 0, 0, static_cast<char>(is_interlaced)};
    add("IHDR", header);
  }
  PngBytes& add(const std::string& name, const std::string& content) {
    const std::string named = name + content;
    append_u32(content.size());
    bytes_ += named;
    append_u32(crc32(0, reinterpret_cast<const Bytef*>(named.data()), static_cast<uInt>(named.size())));
    return *this;
  }
  /// Rows of the size given, each after its filter; level 0 stores them as they are.
  PngBytes& add_rows(std::size_t row_bytes, int level) {
    std::string rows;
    for (char row = 0; row < 4; ++row) {
      rows += row;
      for (std::size_t k = 0; k < row_bytes; ++k) rows += static_cast<char>(37 * static_cast<int>(k) + 50 * row);
    }
    std::string packed(compressBound(rows.size()), '\0');
    uLongf size = packed.size();
    compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(rows.data()), rows.size(),
              level);
    packed.resize(size);
    return add("IDAT", packed);
  }
  FuzzSeed finish() { return {"png", add("IEND", "").bytes_, false}; }

 private:
  void append_u32(std::size_t value) {
    for (const int shift : {24, 16, 8, 0}) bytes_ += static_cast<char>(value >> shift);
  }
  std::string bytes_ = "\x89PNG\r\n\x1a\n";
};

std::vector<FuzzSeed> make_image_seeds() {
  const std::string gamma("\0\0\xb1\x8f", 4), palette("\xff\0\0\0\xff\0\0\0\xff\x80\x80\x80", 12);
  return {
      PngBytes(8, 0, false).add_rows(4, 0).finish(),
      PngBytes(16, 0, false).add("gAMA", gamma).add("tEXt", std::string("Title\0dunes", 11)).add_rows(8, 9).finish(),
      PngBytes(8, 6, true).add("sBIT", "\x8\x8\x8\x8").add_rows(28, 0).finish(),
      PngBytes(8, 2, false).add("tRNS", std::string("\0\x25\0\x4a\0\x6f", 6)).add_rows(12, 9).finish(),
      PngBytes(2, 3, false).add("PLTE", palette).add("tRNS", "\x40\x80").add_rows(1, 9).finish(),
      PngBytes(16, 4, false).add("cHRM", std::string(32, '\1')).add_rows(16, 9).finish()};
}

}  // namespace

const std::vector<FuzzKind>& get_fuzz_kinds() {
  static const std::vector<FuzzKind> kinds = {{"mesh",
                                               {{"obj", cube_obj, true},
                                                {"obj", curl_obj, true},
                                                {"ply", make_text_ply(), true},
                                                {"ply", make_binary_ply(false), false},
                                                {"ply", make_binary_ply(true), false},
                                                {"stl", text_stl, true},
                                                {"stl", make_binary_stl(), false}}},
                                              {"scene", make_scene_seeds()},
                                              {"hair", make_hair_seeds()},
                                              {"points", make_point_seeds()},
                                              {"scatter", make_scatter_seeds()},
                                              {"image", make_image_seeds()}};
  return kinds;
}
