#include "tools/vqgas/import/obj_check.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/quote.h"
#include "vq_core/core_types.h"

namespace {

constexpr std::string_view blanks = " \t\r";

/// Removes the first word of `rest` and returns it; empty at the end.
std::string_view take_word(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
  const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
  rest.remove_prefix(word.size());
  return word;
}

bool begins_number(std::string_view word) {
  constexpr std::string_view first_letters = "+-.0123456789iInN";  // inf and nan are numbers
  return !word.empty() && first_letters.find(word[0]) != std::string_view::npos;
}

class ObjLines {
 public:
  explicit ObjLines(const std::string& path) : path_(path), file_(path, std::ios::binary) {}

  /// Reads the next line, its end included.
  bool read() {
    if (!std::getline(file_, line_)) return false;
    if (!file_.eof()) line_ += '\n';
    ++number_;
    if (number_ % 4096 == 0) throw_if_interrupted();
    is_first_ = !is_continued_;
    if (is_first_) begin_statement();
    is_continued_ = !is_comment_ && ends_with_backslash();
    return true;
  }
  const std::string& get_line() const { return line_; }

  /// Brings the line to what Assimp reads. Returns whether it changed.
  bool make_plain() {
    const std::size_t length = line_.size();
    if (is_first_) line_.erase(0, std::min(line_.find_first_not_of(blanks), length));
    bool is_changed = line_.size() != length;
    const std::size_t comment = line_.find('#');
    if (comment != std::string::npos && (has_numbers_ || (is_comment_ && ends_with_backslash()))) {
      line_.replace(comment, std::string::npos, "\n");
      is_changed = true;
    }
    return (has_numbers_ && complete_numbers()) || is_changed;
  }
  /// Throws InputError at the last line of a vertex with fewer than three coordinates.
  void check_vertex() {
    if (!is_vertex_) return;
    std::string_view rest(line_);
    rest = rest.substr(0, rest.find_first_of("#\\\n"));
    while (true) {
      const std::string_view word = take_word(rest);
      if (word.empty()) break;
      number_count_ += begins_number(word) ? 1 : 0;
    }
    if (is_continued_ || number_count_ >= 3) return;
    const std::string text = quote(line_.substr(0, line_.find_first_of("\r\n")));
    throw InputError(path_, "line " + std::to_string(number_) + ": " + text + " is not v x y z");
  }

 private:
  void begin_statement() {
    std::string_view rest(line_);
    const std::string_view word = take_word(rest);
    is_vertex_ = word == "v";
    has_numbers_ = is_vertex_ || word == "vn" || word == "vt" || word == "f";
    is_comment_ = word.starts_with('#');
    number_count_ = 0;
  }

  bool ends_with_backslash() const {
    return line_.find("\\\n") != std::string::npos || line_.find("\\\r\n") != std::string::npos;
  }
  bool complete_numbers() {
    bool has_point_first = false;
    for (std::size_t at = 0; (at = line_.find('.', at)) != std::string::npos; ++at) {
      if (at > 0 && blanks.find(line_[at - 1]) == std::string_view::npos) continue;
      line_.insert(at++, 1, '0');
      has_point_first = true;
    }
    return has_point_first;
  }

  const std::string& path_;
  std::ifstream file_;
  std::string line_;
  u64 number_ = 0;
  uint number_count_ = 0;  ///< in the lines of a vertex up to this one
  bool is_vertex_ = false, has_numbers_ = false, is_comment_ = false;
  bool is_first_ = true, is_continued_ = false;  ///< of a statement's lines
};

}  // namespace

std::string check_obj(const std::string& path) {
  bool is_plain = true;
  for (ObjLines lines(path); lines.read();) {
    lines.check_vertex();
    is_plain &= !lines.make_plain();
  }
  std::string text;
  if (is_plain) return text;
  for (ObjLines lines(path); lines.read();) {
    lines.make_plain();
    text += lines.get_line();
  }
  return text;
}
