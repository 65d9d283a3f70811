#include "tools/vqgas/import/point_lines.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"

namespace {

constexpr std::size_t buffer_bytes = std::size_t{1} << 20;

const char* find_line_end(const char* at, const char* end) {
  return static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
}

/// Reads as much as fits or is left.
std::size_t read_bytes(const std::string& path, std::ifstream& file, char* to, std::size_t size) {
  throw_if_interrupted();
  file.read(to, static_cast<std::streamsize>(size));
  if (file.bad()) throw InputError(path, "cannot be read");
  return static_cast<std::size_t>(file.gcount());
}

/// Whole numbers of up to seven digits, which single precision holds, as those of most colors: from_chars takes several
/// times as long. Null when the text is something else.
const char* read_whole_number(const char* at, const char* end, float& value) {
  const char* last = end - at > 7 ? at + 7 : end;
  u32 whole = 0;
  const char* next = at;
  for (; next != last && *next >= '0' && *next <= '9'; ++next) whole = 10 * whole + static_cast<u32>(*next - '0');
  if (next == at || (next != end && !ends_number(*next))) return nullptr;
  value = static_cast<float>(whole);
  return next;
}

}  // namespace

PointLines::PointLines(const std::string& path)
    : path_(path), file_(path, std::ios::binary), buffer_(buffer_bytes), at_(buffer_.data()), end_(at_) {}

bool PointLines::read(std::string_view& line) {
  const char* line_end = find_line_end(at_, end_);
  if (line_end == nullptr) {
    refill();
    line_end = find_line_end(at_, end_);
  }
  if (line_end == nullptr && end_ - at_ == static_cast<std::ptrdiff_t>(buffer_.size())) {
    ++number_;
    fail("is longer than 1 MiB");
  }
  if (at_ == end_) return false;
  const char* next = line_end == nullptr ? end_ : line_end + 1;
  if (line_end == nullptr) line_end = end_;
  if (line_end != at_ && line_end[-1] == '\r') --line_end;
  line = std::string_view(at_, static_cast<std::size_t>(line_end - at_));
  offset_ += static_cast<u64>(next - at_);
  at_ = next;
  ++number_;
  return true;
}

void PointLines::refill() {
  const auto rest = static_cast<std::size_t>(end_ - at_);
  std::memmove(buffer_.data(), at_, rest);
  at_ = buffer_.data();
  end_ = at_ + rest + read_bytes(path_, file_, buffer_.data() + rest, buffer_.size() - rest);
}

void PointLines::fail(const std::string& fault) const {
  throw InputError(path_, "line " + std::to_string(number_) + ": " + fault);
}

u64 count_lines(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> buffer(buffer_bytes);
  u64 count = 0;
  char last = '\n';
  while (const std::size_t size = read_bytes(path, file, buffer.data(), buffer.size())) {
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(size);
    count += static_cast<u64>(std::count(buffer.begin(), end, '\n'));
    last = end[-1];
  }
  return count + (last == '\n' ? 0 : 1);
}

bool read_number(const char*& at, const char* end, float& value) {
  if (const char* whole_end = read_whole_number(at, end, value)) {
    at = whole_end;
    return true;
  }
  const char* begin = at != end && *at == '+' ? at + 1 : at;  // from_chars knows no plus sign
  const auto [next, error] = std::from_chars(begin, end, value);
  if (error == std::errc::invalid_argument || (next != end && !ends_number(*next))) return false;
  if (error == std::errc::result_out_of_range) value = std::strtof(std::string(begin, next).c_str(), nullptr);
  at = next;
  return true;
}
