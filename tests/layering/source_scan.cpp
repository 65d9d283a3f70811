// tests/layering/source_scan.cpp
#include "layering/source_scan.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <regex>
#include <sstream>

namespace {

bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

// One pass over a C++ file that blanks comments and literals in place.
class CodeBlanker {
 public:
  explicit CodeBlanker(std::string_view text) : code_(text) {}

  std::string run() {
    while (at_ < code_.size()) step();
    return std::move(code_);
  }

 private:
  bool starts_with(std::string_view what) const { return std::string_view(code_).substr(at_).starts_with(what); }

  void step() {
    if (starts_with("//")) {
      blank_through("\n", at_);
    } else if (starts_with("/*")) {
      blank_through("*/", at_ + 2);
    } else if (line_is_empty_ && code_[at_] == '#') {
      skip_directive();
    } else if (starts_with("R\"") && (at_ == 0 || !is_word(code_[at_ - 1]))) {
      const std::size_t open = std::min(code_.find('(', at_), code_.size());
      const std::size_t delimiter = std::min(at_ + 2, open);
      std::string end(1, ')');
      end.append(code_, delimiter, open - delimiter).push_back('"');
      blank_through(end, open);
    } else if (code_[at_] == '"' || (code_[at_] == '\'' && !is_digit_separator())) {
      blank_literal(code_[at_]);
    } else {
      if (code_[at_] == '\n') line_is_empty_ = true;
      if (std::isspace(static_cast<unsigned char>(code_[at_])) == 0) line_is_empty_ = false;
      ++at_;
    }
  }

  // 1'000: the mark stands in a word that began with a digit.
  bool is_digit_separator() const {
    std::size_t start = at_;
    while (start > 0 && (is_word(code_[start - 1]) || code_[start - 1] == '\'')) --start;
    return start < at_ && std::isdigit(static_cast<unsigned char>(code_[start])) != 0;
  }

  // Directives stay, for the names they include; a comment behind one does not.
  void skip_directive() {
    line_is_empty_ = false;
    while (at_ < code_.size() && code_[at_] != '\n' && !starts_with("//") && !starts_with("/*")) ++at_;
  }

  void blank_literal(char quote) {
    for (++at_; at_ < code_.size() && code_[at_] != quote && code_[at_] != '\n'; ++at_) {
      if (code_[at_] == '\\' && at_ + 1 < code_.size() && code_[at_ + 1] != '\n') code_[at_++] = ' ';
      code_[at_] = ' ';
    }
    if (at_ < code_.size() && code_[at_] == quote) ++at_;
    line_is_empty_ = false;
  }

  // Blanks to the end of `end`, looking for it from `from` on. Line ends stay, so lines keep their numbers.
  void blank_through(const std::string& end, std::size_t from) {
    const std::size_t found = code_.find(end, from);
    const std::size_t stop = found == std::string::npos ? code_.size() : found + end.size();
    for (; at_ < stop; ++at_) {
      if (code_[at_] == '\n') line_is_empty_ = true;
      if (code_[at_] != '\n') code_[at_] = ' ';
    }
  }

  std::string code_;
  std::size_t at_ = 0;
  bool line_is_empty_ = true;
};

// A library that takes in the object files of another holds all of it, as if it linked it.
constexpr std::string_view object_files = "$<TARGET_OBJECTS:";

struct CMakeCommand {
  std::string name;
  std::vector<std::string> words;
};

std::vector<CMakeCommand> find_commands(std::string_view text) {
  static const std::regex comment("#[^\n]*"), command(R"((\w+)\s*\(([^()]*)\))");
  const std::string plain = std::regex_replace(std::string(text), comment, "");
  std::vector<CMakeCommand> commands;
  for (std::sregex_iterator found(plain.begin(), plain.end(), command), end; found != end; ++found) {
    std::istringstream arguments((*found)[2].str());
    CMakeCommand& added = commands.emplace_back(CMakeCommand{(*found)[1].str(), {}});
    for (std::string word; arguments >> word;) added.words.push_back(word);
  }
  return commands;
}

bool is_keyword(const std::string& word) {
  return std::all_of(word.begin(), word.end(), [](char c) { return (c >= 'A' && c <= 'Z') || c == '_'; });
}

}  // namespace

std::string read_file(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::string code_only(std::string_view text) { return CodeBlanker(text).run(); }

std::vector<ScanInclude> find_includes(std::string_view code) {
  static const std::regex include(R"re(^\s*#\s*include\s*(["<])([^">]+)[">].*)re");
  std::vector<ScanInclude> includes;
  std::istringstream lines{std::string(code)};
  std::smatch match;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.find('#') == std::string::npos || !std::regex_match(line, match, include)) continue;
    includes.push_back({match[2].str(), match[1].str() == "\"", number});
  }
  return includes;
}

std::map<std::string, std::set<std::string>> find_classes(std::string_view code) {
  static const std::regex definition(
      R"(\b(?:class|struct)\s+(?:alignas\([^)]*\)\s*)?(\w+)\s*(?:final\s*)?(:[^:{;][^{;]*)?\{)");
  static const std::regex base(R"((?:[:,]\s*)(?:(?:public|protected|private|virtual)\s+)*(\w+))");
  static const std::regex nested(R"(\b(?:class|struct)\s+(\w+)::(\w+)[^;{]*\{)");
  const std::string text(code);
  std::map<std::string, std::set<std::string>> classes;
  for (std::sregex_iterator found(text.begin(), text.end(), nested), end; found != end; ++found) {
    classes[(*found)[2].str()].insert((*found)[1].str());
  }
  for (std::sregex_iterator found(text.begin(), text.end(), definition), end; found != end; ++found) {
    std::set<std::string>& bases = classes[(*found)[1].str()];
    const std::string list = (*found)[2].str();
    for (std::sregex_iterator name(list.begin(), list.end(), base); name != end; ++name) {
      bases.insert((*name)[1].str());
    }
  }
  return classes;
}

ScanTargets find_targets(std::string_view text) {
  ScanTargets targets;
  for (const CMakeCommand& command : find_commands(text)) {
    const bool wrapped = command.name.starts_with("vq_add_");
    const bool links = command.name == "target_link_libraries";
    const bool declares = wrapped || command.name == "add_library" || command.name == "add_executable";
    if ((!links && !declares) || command.words.empty()) continue;
    std::set<std::string>& linked = targets[command.words[0]];
    bool collects = links;
    for (std::size_t i = 1; i < command.words.size(); ++i) {
      const std::string& word = command.words[i];
      if (word.starts_with(object_files)) {
        linked.insert(word.substr(object_files.size(), word.size() - object_files.size() - 1));
      } else if (is_keyword(word)) {
        collects = links || (wrapped && word == "LINK") || (!wrapped && word == "ALIAS");
      } else if (collects) {
        linked.insert(word);
      }
    }
  }
  return targets;
}

std::set<std::string> get_link_closure(const ScanTargets& all, const std::string& target) {
  std::set<std::string> reached;
  std::vector<std::string> open{target};
  while (!open.empty()) {
    const auto found = all.find(open.back());
    open.pop_back();
    if (found == all.end()) continue;
    for (const std::string& next : found->second) {
      if (reached.insert(next).second) open.push_back(next);
    }
  }
  return reached;
}

std::vector<std::string> list_repository(const std::filesystem::path& root) {
  std::vector<std::string> paths;
  std::filesystem::recursive_directory_iterator entry(root), end;
  for (; entry != end; ++entry) {
    const std::string name = entry->path().filename().string();
    const bool made = name.starts_with("build") || name == "out";
    if (name == ".git" || (entry.depth() == 0 && made)) {
      if (entry->is_directory()) entry.disable_recursion_pending();
      continue;
    }
    if (entry->is_regular_file()) paths.push_back(entry->path().lexically_relative(root).generic_string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}
