// tools/vqgas/import/point_lines.h
//
// Lines of large text files, and numbers in them, without a copy of the file.
#pragma once
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "vq_core/core_types.h"

class PointLines {
 public:
  /// The file must be readable.
  explicit PointLines(const std::string& path);

  /// Reads the next line, without its end, valid until the next call. False at the end of the file. Throws InputError
  /// for a line of more than 1 MiB, Interrupted.
  bool read(std::string_view& line);
  /// Of the line that was read last, from 1.
  u64 get_number() const { return number_; }
  /// First byte after that line.
  u64 get_offset() const { return offset_; }
  /// Throws InputError with the number of the line.
  [[noreturn]] void fail(const std::string& fault) const;

 private:
  void refill();

  const std::string& path_;
  std::ifstream file_;
  std::vector<char> buffer_;
  const char* at_;
  const char* end_;
  u64 number_ = 0, offset_ = 0;
};

/// Lines of a file, the last one without an end included. Throws Interrupted.
u64 count_lines(const std::string& path);

/// True for blank, tab, comma and semicolon, which may end a number.
constexpr bool ends_number(char c) { return c == ' ' || c == '\t' || c == ',' || c == ';'; }

/// Reads a number up to a character for which ends_number() holds, or `end`, and advances `at`. inf and nan are
/// numbers; too large ones are infinite, too small ones 0. False, `at` unchanged, when there is none.
bool read_number(const char*& at, const char* end, float& value);
