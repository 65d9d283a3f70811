// Holds every #include line to the layering table of docs/architecture.md. That headers compile alone is a target of
// its own, header_check.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A line is a rank, a string a group: how the paths of its members begin. The longest beginning counts. A file may
// include its own group and the ranks before it; the groups of one rank are blind to each other. What only "host/" or
// "gas/bvh/" matches has no place in the table, and may include nothing.
const std::vector<std::vector<std::string>> ranks = {
    {"host/vq_core/", "host/", "gas/bvh/"},
    {"host/vq_simd/"},
    {"host/vq_sys/", "host/vq_gmath/", "host/vq_event/"},
    {"host/vq_resource/", "host/vq_app_base/"},
    {"host/vq_of/"},
    {"host/vq_ctx/", "host/vq_shading_variable/"},
    {"host/vq_geometry/"},
    {"host/vq_curve/"},
    {"host/vq_gas_base/"},
    {"host/vq_module/"},
    {"gas/frame/"},
    {"gas/bvh/bvh_layout gas/bvh/bvh_quantize gas/bvh/bvh_oriented"},
    {"gas/bvh/bvh_start gas/bvh/gas_bvh"},
    {"gas/bvh/gas_bvh_motion"},
    {"gas/bvh/bvh_build gas/bvh/bvh_finalize gas/bvh/bvh_node_pool", "gas/bvh/bvh_cluster",
     "gas/bvh/bvh_kernel gas/bvh/bvh_frustum gas/bvh/bvh_scratch", "gas/bvh/bvh_statistics"},
    {"gas/structure/"},
    {"gas/"},
    {"tools/vqgas/support/"},
    {"tools/vqgas/image/"},
    {"tools/vqgas/source/"},
    {"tools/vqgas/demo/", "tools/vqgas/import/"},
    {"tools/vqgas/scene/"},
    {"tools/vqgas/render/"},
    {"tools/vqgas/commands/"},
    {"tools/", "bench/", "examples/", "tests/"}};

struct Place {
  std::size_t rank = ranks.size(), length = 0;
  std::string group;
};

Place find_place(const std::string& path) {
  Place best;
  for (std::size_t rank = 0; rank < ranks.size(); ++rank) {
    for (const std::string& group : ranks[rank]) {
      std::istringstream words(group);
      for (std::string start; words >> start;)
        if (path.starts_with(start) && start.size() > best.length) best = {rank, start.size(), group};
    }
  }
  return best;
}

/// Whether `from` may include `to`, both relative to the root of the repository.
bool is_allowed(const std::string& from, const std::string& to) {
  const Place own = find_place(from), other = find_place(to);
  const std::string top = from.substr(0, from.find('/')), other_top = to.substr(0, to.find('/'));
  if (top == "examples" && to.starts_with("gas/")) return to.find('/', 4) == std::string::npos;
  if (other_top != "host" && other_top != "gas" && other_top != top) return top == "tests" && other_top == "tools";
  return own.group == other.group || other.rank < own.rank;
}

/// Headers of the standard library have no ending. vq_core asks the system for large pages, vq_simd for intrinsics.
bool is_allowed_outside(const std::string& from, const std::string& name) {
  const bool intrinsics = name.ends_with("intrin.h") || name == "arm_neon.h";
  if (intrinsics || from.starts_with("host/vq_simd/")) return from.starts_with("host/vq_simd/");
  if (from.starts_with("host/vq_core/") && name == "sys/mman.h") return true;
  return name.find_first_of("./") == std::string::npos || !(from.starts_with("host/") || from.starts_with("gas/"));
}

TEST(Layering, includes_obey_the_table) {
  namespace fs = std::filesystem;
  const fs::path root = VQ_SOURCE_DIR;
  const std::regex include(R"re(\s*#\s*include\s*(["<])([^">]+)[">].*)re");
  uint32_t count = 0;
  for (const char* top : {"host", "gas", "tools", "bench", "examples", "tests"}) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / top)) {
      const std::string path = entry.path().lexically_relative(root).generic_string();
      if (!path.ends_with(".h") && !path.ends_with(".cpp")) continue;
      std::ifstream file(entry.path());
      std::smatch match;
      for (std::string line; std::getline(file, line);) {
        if (line.find('#') == std::string::npos || !std::regex_match(line, match, include)) continue;
        ++count;
        const std::string name = match[2];
        if (match[1] == "<") {
          EXPECT_TRUE(is_allowed_outside(path, name)) << path << ": <" << name << ">";
          continue;
        }
        std::string target;
        for (const std::string start : {"tests/", "host/", ""})
          if (fs::exists(root / (start + name))) target = start + name;
        EXPECT_FALSE(target.empty()) << path << ": " << name << " is no file of the tree";
        EXPECT_TRUE(is_allowed(path, target)) << path << ": \"" << name << "\"";
      }
    }
  }
  EXPECT_GT(count, 1000u);
}

TEST(Layering, the_table_tells_right_from_wrong) {
  EXPECT_TRUE(is_allowed("gas/gas_fur.cpp", "gas/bvh/bvh_kernel.h") && is_allowed("tests/a.cpp", "tools/vqgas/a.h"));
  const std::pair<const char*, const char*> wrong[] = {{"host/vq_sys/a.cpp", "host/vq_ctx/b.h"},
                                                       {"host/vq_unheard_of/a.cpp", "host/vq_core/b.h"},
                                                       {"gas/frame/a.h", "gas/bvh/bvh_layout.h"},
                                                       {"gas/bvh/gas_bvh.h", "gas/bvh/gas_bvh_motion.h"},
                                                       {"gas/bvh/bvh_builder.cpp", "gas/bvh/bvh_kernel.h"},
                                                       {"gas/bvh/bvh_unheard_of.cpp", "gas/bvh/bvh_layout.h"},
                                                       {"gas/bvh/bvh_kernel.cpp", "gas/gas_fur.h"},
                                                       {"bench/a.cpp", "tests/support/a.h"},
                                                       {"examples/a.cpp", "gas/bvh/bvh_layout.h"}};
  for (const auto& [from, to] : wrong) EXPECT_FALSE(is_allowed(from, to)) << from << " -> " << to;
  EXPECT_FALSE(is_allowed_outside("gas/a.cpp", "immintrin.h") || is_allowed_outside("gas/a.cpp", "unistd.h"));
}

}  // namespace
