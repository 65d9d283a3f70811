#include "tools/vqgas/import/point_ply.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <memory>

#include "tools/vqgas/import/ply_header.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/quote.h"

namespace {

/// The rows of a file's elements, one after the other.
class PlyRows {
 public:
  virtual ~PlyRows() = default;
  /// Row `number` of the element: sets values of the fields. Throws InputError.
  virtual void read(const PlyElement& element, u64 number, const std::vector<PointField>& fields,
                    PointValues& values) = 0;
  /// Throws InputError for the row that was read last.
  [[noreturn]] virtual void fail(const PlyElement& element, u64 number, const std::string& fault) const = 0;
  /// Throws InputError when anything is left.
  virtual void check_end() = 0;
};

class PlyTextRows final : public PlyRows {
 public:
  PlyTextRows(const std::string& path, PointLines&& lines) : path_(path), lines_(std::move(lines)) {}

  void read(const PlyElement& element, u64 number, const std::vector<PointField>& fields,
            PointValues& values) override {
    if (!read_line())
      throw InputError(path_, "ends after " + std::to_string(number) + " of " + std::to_string(element.count) +
                                  " rows of its element " + element.name);
    float value = 0.0f;
    for (std::size_t k = 0; k < element.properties.size(); ++k) {
      read_value(value);
      if (element.properties[k].is_list) {
        if (!(value >= 0.0f && value <= static_cast<float>(line_.size()))) lines_.fail("has a list without a length");
        for (auto left = static_cast<std::size_t>(value); left > 0; --left) read_value(value);
      } else if (fields[k] != PointField::other) {
        values[static_cast<std::size_t>(fields[k])] = value;
      }
    }
    skip_blanks();
    if (at_ != end_) lines_.fail("has more than the properties of the element " + element.name);
  }

  void fail(const PlyElement&, u64, const std::string& fault) const override { lines_.fail(fault); }

  void check_end() override {
    if (read_line()) lines_.fail("follows after the rows that the header announces");
  }

 private:
  /// Skips empty lines.
  bool read_line() {
    while (lines_.read(line_)) {
      at_ = line_.data();
      end_ = at_ + line_.size();
      skip_blanks();
      if (at_ != end_) return true;
    }
    return false;
  }

  void skip_blanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) ++at_;
  }

  void read_value(float& value) {
    skip_blanks();
    if (at_ == end_) lines_.fail("has too few numbers");
    const std::string_view rest(at_, static_cast<std::size_t>(end_ - at_));
    if (!read_number(at_, end_, value))
      lines_.fail(quote(rest.substr(0, rest.find_first_of(" \t"))) + " is not a number");
  }

  const std::string& path_;
  PointLines lines_;
  std::string_view line_;
  const char* at_ = nullptr;
  const char* end_ = nullptr;
};

template <class T>
T load(const char* from, bool is_swapped) {
  std::array<char, sizeof(T)> bytes;
  std::memcpy(bytes.data(), from, sizeof(T));
  if (is_swapped) std::reverse(bytes.begin(), bytes.end());
  return std::bit_cast<T>(bytes);
}

double load_value(PlyType type, const char* from, bool is_swapped) {
  switch (type) {
    case PlyType::int8:
      return load<std::int8_t>(from, false);
    case PlyType::uint8:
      return load<u8>(from, false);
    case PlyType::int16:
      return load<std::int16_t>(from, is_swapped);
    case PlyType::uint16:
      return load<u16>(from, is_swapped);
    case PlyType::int32:
      return load<std::int32_t>(from, is_swapped);
    case PlyType::uint32:
      return load<u32>(from, is_swapped);
    case PlyType::float32:
      return load<float>(from, is_swapped);
    case PlyType::float64:
      return load<double>(from, is_swapped);
  }
  return 0.0;
}

class PlyBinaryRows final : public PlyRows {
 public:
  PlyBinaryRows(const std::string& path, u64 offset, bool is_big_endian)
      : path_(path),
        file_(path, std::ios::binary),
        left_(std::filesystem::file_size(path) - offset),
        offset_(offset),
        is_swapped_(is_big_endian == (std::endian::native == std::endian::little)) {
    file_.seekg(static_cast<std::streamoff>(offset));
  }

  void read(const PlyElement& element, u64 number, const std::vector<PointField>& fields,
            PointValues& values) override {
    row_offset_ = offset_;
    for (std::size_t k = 0; k < element.properties.size(); ++k) {
      const PlyProperty& property = element.properties[k];
      if (property.is_list) {
        skip_list(element, number, property);
      } else {
        const char* from = take(element, number, get_size(property.type));
        if (fields[k] != PointField::other)
          values[static_cast<std::size_t>(fields[k])] =
              static_cast<float>(load_value(property.type, from, is_swapped_));
      }
    }
  }

  void fail(const PlyElement& element, u64 number, const std::string& fault) const override {
    throw InputError(
        path_, element.name + " " + std::to_string(number) + ", byte " + std::to_string(row_offset_) + ": " + fault);
  }

  void check_end() override {
    if (left_ > 0) throw InputError(path_, "has " + std::to_string(left_) + " bytes more than its header asks for");
  }

 private:
  static constexpr std::size_t piece_bytes = std::size_t{1} << 20;

  /// The next `size` bytes, at most 8.
  const char* take(const PlyElement& element, u64 number, std::size_t size) {
    if (size > left_) fail(element, number, "is cut off");
    if (buffer_.size() - at_ < size) refill();
    if (buffer_.size() - at_ < size) fail(element, number, "cannot be read");
    at_ += size;
    left_ -= size;
    offset_ += size;
    return buffer_.data() + at_ - size;
  }

  void refill() {
    throw_if_interrupted();
    const std::size_t rest = buffer_.size() - at_;
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(at_), buffer_.end(), buffer_.begin());
    buffer_.resize(piece_bytes);
    file_.read(buffer_.data() + rest, static_cast<std::streamsize>(piece_bytes - rest));
    buffer_.resize(rest + static_cast<std::size_t>(file_.gcount()));
    at_ = 0;
  }

  void skip_list(const PlyElement& element, u64 number, const PlyProperty& property) {
    const char* from = take(element, number, get_size(property.count_type));
    const double count = load_value(property.count_type, from, is_swapped_);
    if (!(count >= 0.0)) fail(element, number, "has a list without a length");
    const std::size_t size = get_size(property.type);
    const std::size_t most = left_ / size;
    if (count > static_cast<double>(most)) fail(element, number, "has a list beyond the end of the file");
    for (auto entries = static_cast<u64>(count); entries > 0; --entries) take(element, number, size);
  }

  const std::string& path_;
  std::ifstream file_;
  std::vector<char> buffer_;
  std::size_t at_ = 0;  // in the buffer
  u64 left_;            // bytes to the end of the file
  u64 offset_, row_offset_ = 0;
  const bool is_swapped_;
};

/// Before anything is allocated for the counts.
void check_counts(const std::string& path, const PlyHeader& header, u64 offset) {
  u64 left = std::filesystem::file_size(path) - offset;
  if (header.format == PlyFormat::ascii) ++left;  // the last line may have no end
  for (const PlyElement& element : header.elements) {
    const u64 least = element.get_least_bytes(header.format);
    if (least == 0) continue;
    if (element.count > left / least)
      throw InputError(path, "is cut off: its header announces " + std::to_string(element.count) + " rows of " +
                                 element.name + " of at least " + std::to_string(least) + " bytes, but only " +
                                 std::to_string(left) + " bytes are left");
    left -= element.count * least;
  }
}

float get_color_range(const PlyElement& vertices, const std::vector<PointField>& fields) {
  const auto red = std::find(fields.begin(), fields.end(), PointField::red);
  const auto number = static_cast<std::size_t>(red - fields.begin());
  return red != fields.end() && vertices.properties[number].type == PlyType::uint8 ? 255.0f : 1.0f;
}

std::vector<PointField> list_fields(const PlyElement& vertices) {
  std::vector<PointField> fields;
  for (const PlyProperty& property : vertices.properties)
    fields.push_back(property.is_list ? PointField::other : get_point_field(property.name));
  return fields;
}

/// Takes over the lines after the header.
std::unique_ptr<PlyRows> open_rows(const std::string& path, const PlyHeader& header, PointLines&& lines) {
  if (header.format == PlyFormat::ascii) return std::make_unique<PlyTextRows>(path, std::move(lines));
  return std::make_unique<PlyBinaryRows>(path, lines.get_offset(), header.format == PlyFormat::big_endian);
}

void skip_rows(const PlyElement& element, PlyRows& rows) {
  PointValues values = {};
  const std::vector<PointField> none(element.properties.size(), PointField::other);
  for (u64 number = 0; number < element.count && !none.empty(); ++number) rows.read(element, number, none, values);
}

PointSource read_vertices(const std::string& path, const PlyHeader& header, const PlyElement& vertices, PlyRows& rows,
                          const PointCollecting& collecting) {
  for (const PlyElement* element = header.elements.data(); element != &vertices; ++element) skip_rows(*element, rows);
  PointValues values = {};
  std::vector<PointField> fields = list_fields(vertices);
  const PointFields present = check_fields(path, "element vertex", fields);
  PointCollector collector(path, present, vertices.count, get_color_range(vertices, fields), collecting);
  for (u64 number = 0; number < vertices.count; ++number) {
    rows.read(vertices, number, fields, values);
    if (!collector.add(values)) rows.fail(vertices, number, "has a color with a component below 0 or above 65535");
  }
  if (&vertices == &header.elements.back()) rows.check_end();
  return collector.finish();
}

}  // namespace

bool is_point_ply(const std::string& path) {
  try {
    PointLines lines(path);
    const PlyHeader header = read_ply_header(lines);
    return header.find("vertex") != nullptr && header.find("face") == nullptr && header.find("tristrips") == nullptr;
  } catch (const InputError&) {
    return false;
  }
}

PointSource read_point_ply(const std::string& path, const PointCollecting& collecting) {
  PointLines lines(path);
  const PlyHeader header = read_ply_header(lines);
  const PlyElement* vertices = header.find("vertex");
  if (vertices == nullptr) throw InputError(path, "holds no point");
  check_counts(path, header, lines.get_offset());
  const std::unique_ptr<PlyRows> rows = open_rows(path, header, std::move(lines));
  return read_vertices(path, header, *vertices, *rows, collecting);
}

void check_ply(const std::string& path) {
  PointLines lines(path);
  const PlyHeader header = read_ply_header(lines);
  check_counts(path, header, lines.get_offset());
  const std::unique_ptr<PlyRows> rows = open_rows(path, header, std::move(lines));
  for (const PlyElement& element : header.elements) skip_rows(element, *rows);
}
