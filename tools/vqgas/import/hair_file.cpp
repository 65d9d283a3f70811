// tools/vqgas/import/hair_file.cpp
//
// The binary form. Nothing is allocated before the counts of the header agree with the length of the file.
#include "tools/vqgas/import/hair_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <numeric>

#include "tools/vqgas/import/hair_text.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/output_file.h"

namespace {

static_assert(std::endian::native == std::endian::little);

struct HairHeader {
  char signature[4] = {'H', 'A', 'I', 'R'};
  u32 hair_count = 0;
  u32 point_count = 0;
  u32 arrays = 0;
  u32 default_segments = 0;
  float default_thickness = 0.0f;
  float default_transparency = 0.0f;
  float default_color[3] = {1.0f, 1.0f, 1.0f};
  char info[88] = {};

  bool has(u32 array) const { return (arrays & array) != 0; }
};
static_assert(sizeof(HairHeader) == 128);

constexpr u32 has_segments = 1, has_points = 2, has_thickness = 4, has_transparency = 8, has_colors = 16;
constexpr u32 all_arrays = 31;

u64 get_file_bytes(const HairHeader& header) {
  const u64 hairs = header.hair_count, points = header.point_count;
  return sizeof(HairHeader) + (header.has(has_segments) ? hairs * sizeof(u16) : 0) +
         (header.has(has_points) ? points * 12 : 0) + (header.has(has_thickness) ? points * 4 : 0) +
         (header.has(has_transparency) ? points * 4 : 0) + (header.has(has_colors) ? points * 12 : 0);
}

class HairReader {
 public:
  explicit HairReader(const std::string& path) : path_(path), file_(path, std::ios::binary) {}

  HairSource read() {
    read_header();
    HairSource source;
    source.data.curve_sizes = read_sizes();
    source.data.points.resize(header_.point_count);
    read_positions(source.data.points);
    read_radii(source.data.points);
    if (header_.has(has_transparency)) file_.ignore(std::streamsize{4} * header_.point_count);
    source.group_colors = {read_color()};
    source.data.group_names.emplace_back(std::filesystem::path(path_).stem().c_str());
    if (!file_) fail("ends too early");
    return source;
  }

 private:
  [[noreturn]] void fail(const std::string& fault) const { throw InputError(path_, fault); }

  void read_header() {
    const u64 bytes = std::filesystem::file_size(path_);
    if (bytes < sizeof(HairHeader)) fail("is cut off within its header of 128 bytes");
    read_array(&header_, 1);
    if (std::memcmp(header_.signature, HairHeader().signature, 4) != 0) fail("does not begin with HAIR");
    if (header_.hair_count == 0) fail("holds no strand");
    if (!header_.has(has_points)) fail("holds no points");
    if ((header_.arrays & ~all_arrays) != 0) fail("announces arrays that the format does not know");
    const u64 wanted = get_file_bytes(header_);
    if (bytes != wanted)
      fail("has " + std::to_string(bytes) + " bytes where its header asks for " + std::to_string(wanted));
  }

  /// Points of each curve; their sum is the number of points.
  std::vector<u32> read_sizes() {
    std::vector<u32> sizes;
    if (header_.has(has_segments)) {
      std::vector<u16> segments(header_.hair_count);
      read_array(segments.data(), segments.size());
      sizes.assign(segments.begin(), segments.end());
    } else {
      // Before memory for the sizes is allocated.
      check_sum(u64{header_.hair_count} * (u64{header_.default_segments} + 1));
      sizes.assign(header_.hair_count, header_.default_segments);
    }
    for (u32& size : sizes) ++size;
    check_sum(std::accumulate(sizes.begin(), sizes.end(), u64{0}));
    if (header_.point_count == header_.hair_count) fail("holds no segment");
    return sizes;
  }

  void check_sum(u64 points) const {
    if (points != header_.point_count)
      fail("has strands of " + std::to_string(points) + " points together, but " + std::to_string(header_.point_count) +
           " points");
  }

  void read_positions(std::vector<CurvePoint<float>>& points) {
    read_in_pieces<3>(points.size(), [&](std::size_t k, const float* p) { points[k].position = {p[0], p[1], p[2]}; });
  }

  void read_radii(std::vector<CurvePoint<float>>& points) {
    for (CurvePoint<float>& point : points) point.radius = 0.5f * header_.default_thickness;
    if (!header_.has(has_thickness)) return;
    read_in_pieces<1>(points.size(), [&](std::size_t k, const float* t) { points[k].radius = 0.5f * *t; });
  }

  /// White and black are the defaults of many writers and do not count as colors.
  Color read_color() {
    GMathVec3<double> sum;
    const u32 count = header_.has(has_colors) ? header_.point_count : 1;
    const auto add = [&](std::size_t, const float* c) { sum += GMathVec3<double>(c[0], c[1], c[2]); };
    if (header_.has(has_colors)) {
      read_in_pieces<3>(count, add);
    } else {
      add(0, header_.default_color);
    }
    const Color color(sum * (1.0 / count));
    const auto lies_between = [&](float low, float high) {
      return color.x > low && color.y > low && color.z > low && color.x < high && color.y < high && color.z < high;
    };
    return lies_between(0.0f, 0.99f) ? color : color_from_srgb(0x9a6b42);
  }

  template <class T>
  void read_array(T* to, std::size_t count) {
    file_.read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(count * sizeof(T)));
  }

  /// Reads `count` records of `width` floats, some thousands at a time, and calls `take(index, record)`.
  template <std::size_t width, class Take>
  void read_in_pieces(std::size_t count, const Take& take) {
    std::vector<float> piece(std::min<std::size_t>(count, 8192) * width);
    for (std::size_t first = 0; first < count && file_; first += 8192) {
      const std::size_t here = std::min<std::size_t>(count - first, 8192);
      throw_if_interrupted();
      read_array(piece.data(), here * width);
      for (std::size_t k = 0; k < here; ++k) take(first + k, piece.data() + k * width);
    }
  }

  const std::string& path_;
  std::ifstream file_;
  HairHeader header_;
};

HairHeader make_header(const std::string& path, const CurveData& data, const std::string& info) {
  HairHeader header;
  const auto [least, most] = std::minmax_element(data.curve_sizes.begin(), data.curve_sizes.end());
  if (*least == 0 || *most > 65536) throw InputError(path, "cannot hold strands of no point or more than 65536");
  header.hair_count = static_cast<u32>(data.curve_sizes.size());
  header.point_count = static_cast<u32>(data.points.size());
  header.arrays = has_points | has_thickness | (*least != *most ? has_segments : 0);
  header.default_segments = *most - 1;
  header.default_thickness = 2.0f * data.points.front().radius;
  std::strncpy(header.info, info.c_str(), sizeof(header.info) - 1);
  return header;
}

/// Writes `width` floats of each point, some thousands of points at a time.
template <std::size_t width, class Give>
void write_in_pieces(OutputFile& file, const std::vector<CurvePoint<float>>& points, const Give& give) {
  std::vector<float> piece;
  for (std::size_t first = 0; first < points.size(); first += 8192) {
    const std::size_t here = std::min<std::size_t>(points.size() - first, 8192);
    piece.resize(here * width);
    for (std::size_t k = 0; k < here; ++k) give(points[first + k], piece.data() + k * width);
    file.write(piece.data(), piece.size() * sizeof(float));
  }
}

}  // namespace

bool is_hair_file(const std::string& path) {
  const std::string extension = get_extension(path);
  return extension == ".hair" || extension == ".curves" || extension == ".txt";
}

HairSource read_hair(const std::string& path) {
  check_input_file(path);
  try {
    const MemoryLimit limit;
    HairSource source = get_extension(path) == ".hair" ? HairReader(path).read() : read_hair_text(path);
    const std::vector<CurvePoint<float>>& points = source.data.points;
    // Without any thickness hair could not be seen, and inventing one would be a guess. NaN compares false.
    const bool is_visible = std::any_of(points.begin(), points.end(), [](const CurvePoint<float>& point) {
      return point.radius > 0.0f && std::isfinite(point.radius);
    });
    if (!is_visible) throw InputError(path, "gives its strands no thickness");
    return source;
  } catch (const std::bad_alloc&) {
    throw InputError(path, "asks for more memory than there is");
  }
}

void write_hair(const std::string& path, const CurveData& data, const std::string& info) {
  const HairHeader header = make_header(path, data, info);
  OutputFile file(path);
  file.write(&header, sizeof(header));
  if (header.has(has_segments)) {
    std::vector<u16> segments;
    segments.reserve(data.curve_sizes.size());
    for (const u32 size : data.curve_sizes) segments.push_back(static_cast<u16>(size - 1));
    file.write(segments.data(), segments.size() * sizeof(u16));
  }
  write_in_pieces<3>(file, data.points, [](const CurvePoint<float>& point, float* to) {
    to[0] = point.position.x, to[1] = point.position.y, to[2] = point.position.z;
  });
  write_in_pieces<1>(file, data.points, [](const CurvePoint<float>& point, float* to) { *to = 2.0f * point.radius; });
  file.commit();
}
