// tests/layering/source_scan.h
//
// Reads the repository the way the layering test looks at it: the include lines and the code of C++ files, and the link
// lists of CMakeLists.txt files. Every parser takes text, so that the test can check it on strings of its own.
#pragma once
#include <filesystem>
#include <map>
#include <set>
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
  std::string code;  ///< as code_only() returns it
  std::vector<ScanInclude> includes;
};

/// The targets of one CMakeLists.txt: name, and what each links directly.
using ScanTargets = std::map<std::string, std::set<std::string>>;

/// Reads a whole file; empty when it cannot be read.
std::string read_file(const std::filesystem::path& path);

/// `text` without its line comments.
std::string code_only(const std::string& text);

/// The include lines in the result of code_only().
std::vector<ScanInclude> find_includes(const std::string& code);

/// The targets that the text of a CMakeLists.txt declares, links collected over all its commands.
ScanTargets find_targets(const std::string& text);

/// Everything that `target` links, directly or through others.
std::set<std::string> get_link_closure(const ScanTargets& all, const std::string& target);

/// All regular files below `root`, relative, '/' between folders, sorted; without what git or a build leaves there.
std::vector<std::string> list_repository(const std::filesystem::path& root);
