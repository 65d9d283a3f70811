// tests/layering/source_scan.h
//
// Reads the repository the way the layering test looks at it: the include lines and the code of C++ files, and the link
// lists of CMakeLists.txt files. Every parser takes text, so that the test can check it on strings of its own.
#pragma once
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

/// One include line of a C++ file.
struct ScanInclude {
  std::string name;
  bool quoted = false;  ///< "name" rather than <name>
  int line = 0;         ///< counts from 1
};

/// One C++ file of the tree. `path` is relative to the root, with '/' between the folders.
struct ScanFile {
  std::string path;
  std::string code;  ///< without its line comments
  std::vector<ScanInclude> includes;
};

/// The targets of one CMakeLists.txt: name, and what each links directly.
using ScanTargets = std::map<std::string, std::set<std::string>>;

/// Reads a whole file; empty when it cannot be read.
inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

inline ScanFile scan_file(const std::string& path, const std::string& text) {
  static const std::regex comment("//[^\n]*");
  static const std::regex include(R"re(^\s*#\s*include\s*(["<])([^">]+)[">].*)re");
  ScanFile file{path, std::regex_replace(text, comment, ""), {}};
  std::istringstream lines(file.code);
  std::smatch match;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.find('#') == std::string::npos || !std::regex_match(line, match, include)) continue;
    file.includes.push_back({match[2].str(), match[1].str() == "\"", number});
  }
  return file;
}

/// The targets that the text of a CMakeLists.txt declares, links collected over all its commands. A library that takes
/// in the object files of another holds all of it, as if it linked it.
inline ScanTargets find_targets(const std::string& text) {
  static const std::regex comment("#[^\n]*"), command(R"((\w+)\s*\(([^()]*)\))");
  static const std::string object_files = "$<TARGET_OBJECTS:";
  const auto is_keyword = [](const std::string& word) {
    return std::all_of(word.begin(), word.end(), [](char c) { return (c >= 'A' && c <= 'Z') || c == '_'; });
  };
  const std::string plain = std::regex_replace(text, comment, "");
  ScanTargets targets;
  for (std::sregex_iterator found(plain.begin(), plain.end(), command), end; found != end; ++found) {
    const std::string name = (*found)[1].str();
    const bool wrapped = name.starts_with("vq_add_"), links = name == "target_link_libraries";
    std::istringstream arguments((*found)[2].str());
    std::string word;
    arguments >> word;
    if (!wrapped && !links && name != "add_library" && name != "add_executable") continue;
    std::set<std::string>& linked = targets[word];
    bool collects = links;
    while (arguments >> word) {
      if (word.starts_with(object_files)) {
        linked.insert(word.substr(object_files.size(), word.size() - object_files.size() - 1));
      } else if (is_keyword(word)) {
        collects = links || (wrapped && word == "LINK");
      } else if (collects) {
        linked.insert(word);
      }
    }
  }
  return targets;
}

/// Everything that `target` links, directly or through others.
inline std::set<std::string> get_link_closure(const ScanTargets& all, const std::string& target) {
  std::set<std::string> reached;
  std::vector<std::string> open{target};
  while (!open.empty()) {
    const auto found = all.find(open.back());
    open.pop_back();
    if (found == all.end()) continue;
    for (const std::string& next : found->second)
      if (reached.insert(next).second) open.push_back(next);
  }
  return reached;
}

/// All regular files below `root`, relative, '/' between folders, sorted; without what git or a build leaves there.
inline std::vector<std::string> list_repository(const std::filesystem::path& root) {
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
