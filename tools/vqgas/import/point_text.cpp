#include "tools/vqgas/import/point_text.h"

#include <charconv>
#include <optional>

#include "tools/vqgas/import/point_lines.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/quote.h"

namespace {

/// Columns of a line. Between blanks a # ends the line; elsewhere a column may be quoted (RFC 4180) or empty.
class ColumnReader {
 public:
  ColumnReader(std::string_view line, char separator)
      : at_(line.data()), end_(at_ + line.size()), separator_(separator), is_at_end_(false) {
    skip_blanks();
    is_at_end_ = separator_ == ' ' && (at_ == end_ || *at_ == '#');
  }

  bool is_at_end() const { return is_at_end_; }

  /// False when the column is not a number.
  bool read(float& value) {
    if (!read_number(at_, end_, value)) return false;
    return finish_column();
  }

  /// Any column, with its quotes.
  std::string_view read_text() {
    const char* begin = at_;
    bool is_quoted = false;
    for (; at_ != end_ && (is_quoted || !is_separator(*at_)); ++at_) is_quoted ^= *at_ == '"' && separator_ != ' ';
    const char* last = at_;
    while (last != begin && is_blank(last[-1])) --last;
    finish_column();
    return std::string_view(begin, static_cast<std::size_t>(last - begin));
  }

 private:
  bool is_blank(char c) const { return c == ' ' || (c == '\t' && separator_ != '\t'); }
  bool is_separator(char c) const { return separator_ == ' ' ? is_blank(c) : c == separator_; }
  void skip_blanks() {
    while (at_ != end_ && is_blank(*at_)) ++at_;
  }

  /// Goes to the next column. False when there is something else than a separator.
  bool finish_column() {
    const char* begin = at_;
    skip_blanks();
    if (at_ == end_ || (separator_ == ' ' && *at_ == '#')) {
      is_at_end_ = true;
    } else if (separator_ == ' ') {
      return at_ != begin;
    } else if (*at_ == separator_) {
      ++at_;
      skip_blanks();
    } else {
      return false;
    }
    return true;
  }

  const char* at_;
  const char* end_;
  const char separator_;
  bool is_at_end_;
};

std::vector<std::string_view> list_columns(std::string_view line, char separator) {
  std::vector<std::string_view> columns;
  for (ColumnReader reader(line, separator); !reader.is_at_end();) columns.push_back(reader.read_text());
  return columns;
}

char find_separator(std::string_view line, bool is_tab_separator) {
  line = line.substr(0, line.find('#'));
  for (const char separator : {';', ','}) {
    if (line.find(separator) != std::string_view::npos) return separator;
  }
  return is_tab_separator && line.find('\t') != std::string_view::npos ? '\t' : ' ';
}

std::string_view strip_quotes(std::string_view name) {
  const bool is_quoted = name.size() >= 2 && name.front() == '"' && name.back() == '"';
  return is_quoted ? name.substr(1, name.size() - 2) : name;
}

bool is_number(std::string_view text) {
  float value = 0.0f;
  const char* at = text.data();
  return read_number(at, at + text.size(), value) && at == text.data() + text.size();
}

class PointTextReader {
 public:
  PointTextReader(const std::string& path, const PointCollecting& collecting)
      : path_(path), collecting_(collecting), lines_(path) {}

  PointSource read_table(bool is_tab_separator) {
    std::string_view line;
    if (!read_line(line)) throw InputError(path_, "holds no point");
    separator_ = find_separator(line, is_tab_separator);
    const std::vector<std::string_view> columns = list_columns(line, separator_);
    if (is_number(columns.front())) {
      set_columns(list_table_fields(columns.size()));
      add_point(line);
    } else {
      set_columns(read_names(columns));
    }
    while (read_line(line)) add_point(line);
    return collector_->finish();
  }

  PointSource read_blocks() {
    const u64 line_count = count_lines(path_);
    std::string_view line;
    u64 left = 0, count = 0, begin = 0;
    while (read_line(line)) {
      if (left == 0) {
        count = left = read_count(line, line_count);
        begin = lines_.get_number();
        continue;
      }
      if (!collector_) set_block_columns(line, line_count);
      if (has_one_column(line)) break;
      add_point(line);
      --left;
    }
    if (left > 0)
      throw InputError(path_, "line " + std::to_string(begin) + ": announces " + std::to_string(count) +
                                  " points, but only " + std::to_string(count - left) + " follow");
    if (!collector_) throw InputError(path_, "holds no point");
    return collector_->finish();
  }

 private:
  using enum PointField;

  /// Skips empty lines and comments.
  bool read_line(std::string_view& line) {
    while (lines_.read(line)) {
      constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
      if (lines_.get_number() == 1 && line.starts_with(byte_order_mark)) line.remove_prefix(byte_order_mark.size());
      const std::size_t first = line.find_first_not_of(" \t");
      if (first != std::string_view::npos && line[first] != '#') return true;
    }
    return false;
  }

  bool has_one_column(std::string_view line) const {
    ColumnReader columns(line, separator_);
    columns.read_text();
    return columns.is_at_end();
  }

  std::vector<PointField> list_table_fields(std::size_t columns) const {
    if (columns == 3) return {x, y, z};
    if (columns == 6) return {x, y, z, red, green, blue};
    lines_.fail("has " + std::to_string(columns) + " columns without names, and neither 3 (x y z) nor 6 (x y z r g b)");
  }

  std::vector<PointField> read_names(const std::vector<std::string_view>& columns) const {
    std::vector<PointField> fields;
    for (std::string_view name : columns) {
      if (fields.empty() && name.starts_with("//")) name.remove_prefix(2);  // some writers mark the names so
      fields.push_back(get_point_field(strip_quotes(name)));
    }
    return fields;
  }

  u64 read_count(std::string_view line, u64 line_count) const {
    const std::vector<std::string_view> columns = list_columns(line, ' ');
    u64 count = 0;
    const char* end = columns.front().data() + columns.front().size();
    const auto [next, error] = std::from_chars(columns.front().data(), end, count);
    if (columns.size() != 1 || error != std::errc() || next != end)
      lines_.fail(quote(line) + " is not the number of the points that follow");
    if (count > line_count - lines_.get_number())
      lines_.fail("announces " + std::to_string(count) + " points, but only " +
                  std::to_string(line_count - lines_.get_number()) + " lines follow");
    return count;
  }

  void set_block_columns(std::string_view line, u64 line_count) {
    separator_ = find_separator(line, false);
    switch (list_columns(line, separator_).size()) {
      case 3:
        return set_columns({x, y, z}, line_count);
      case 4:
        return set_columns({x, y, z, other}, line_count);
      case 6:
        return set_columns({x, y, z, red, green, blue}, line_count);
      case 7:
        return set_columns({x, y, z, other, red, green, blue}, line_count);
      default:
        lines_.fail(quote(line) + " is not x y z [intensity] [r g b]");
    }
  }

  void set_columns(std::vector<PointField> fields, std::optional<u64> line_count = {}) {
    const PointFields present = check_fields(path_, "line " + std::to_string(lines_.get_number()), fields);
    fields_ = std::move(fields);
    collector_.emplace(path_, present, line_count ? *line_count : count_lines(path_), 1.0f, collecting_);
  }

  void add_point(std::string_view line) {
    PointValues values;
    ColumnReader columns(line, separator_);
    std::size_t column = 0;
    for (; column < fields_.size() && !columns.is_at_end(); ++column) {
      const PointField field = fields_[column];
      if (field == other) {
        columns.read_text();
      } else if (!columns.read(values[static_cast<std::size_t>(field)])) {
        fail_number(line, column);
      }
    }
    if (column < fields_.size() || !columns.is_at_end())
      lines_.fail("has " + std::to_string(list_columns(line, separator_).size()) + " columns, not " +
                  std::to_string(fields_.size()));
    if (!collector_->add(values)) lines_.fail(quote(line) + " has no color of components from 0 to 65535");
  }

  [[noreturn]] void fail_number(std::string_view line, std::size_t column) const {
    const std::string_view text = list_columns(line, separator_)[column];
    lines_.fail(quote(text) + " in column " + std::to_string(column + 1) + " is not a number");
  }

  const std::string& path_;
  const PointCollecting& collecting_;
  PointLines lines_;
  char separator_ = ' ';
  std::vector<PointField> fields_;
  std::optional<PointCollector> collector_;
};

}  // namespace

PointSource read_point_table(const std::string& path, bool is_tab_separator, const PointCollecting& collecting) {
  return PointTextReader(path, collecting).read_table(is_tab_separator);
}

PointSource read_point_blocks(const std::string& path, const PointCollecting& collecting) {
  return PointTextReader(path, collecting).read_blocks();
}
