// Holds the tree to the layering table of docs/architecture.md: who may include whom, that link lists say the same as
// includes, where intrinsics and foreign headers may appear, and that no file speaks of things outside the repository.
// The self-checks show on small strings that each rule can be broken.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "layering/layering_rules.h"
#include "layering/source_scan.h"

namespace {

const std::filesystem::path root = VQ_SOURCE_DIR;

bool is_cpp(const std::string& path) { return path.ends_with(".h") || path.ends_with(".cpp"); }

const std::vector<std::string>& get_paths() {
  static const std::vector<std::string> paths = list_repository(root);
  return paths;
}

const std::map<std::string, ScanFile>& get_sources() {
  static const std::map<std::string, ScanFile> sources = [] {
    std::map<std::string, ScanFile> read;
    for (const std::string& path : get_paths()) {
      if (!is_cpp(path)) continue;
      read[path] = scan_file(path, read_file(root / path));
    }
    return read;
  }();
  return sources;
}

std::string at(const ScanFile& file, const ScanInclude& include) {
  return file.path + ":" + std::to_string(include.line) + ": \"" + include.name + "\"";
}

/// The file that a quoted include names, or empty. The roots are the tree, host and tests.
std::string resolve(const std::string& name) {
  for (const std::string start : {"", "host/", "tests/"}) {
    if (get_sources().contains(start + name)) return start + name;
  }
  return {};
}

/// Folder of the CMakeLists.txt that compiles `path`: the nearest one upwards.
std::string get_owner(const std::string& path) {
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  while (!folder.empty() && !std::filesystem::exists(root / folder / "CMakeLists.txt")) folder = folder.parent_path();
  return folder.generic_string();
}

/// Targets of every folder that declares some.
const std::map<std::string, ScanTargets>& get_folder_targets() {
  static const std::map<std::string, ScanTargets> folders = [] {
    std::map<std::string, ScanTargets> read;
    for (const std::string& path : get_paths()) {
      if (!path.ends_with("/CMakeLists.txt")) continue;
      const ScanTargets targets = find_targets(read_file(root / path));
      if (!targets.empty()) read[path.substr(0, path.rfind('/'))] = targets;
    }
    return read;
  }();
  return folders;
}

TEST(Layering, the_walk_finds_the_tree) {
  EXPECT_TRUE(get_sources().contains("host/vq_core/core_types.h"));
  EXPECT_TRUE(get_sources().contains("tests/layering/layering_test.cpp"));
  EXPECT_TRUE(get_folder_targets().contains("host/vq_core"));
}

TEST(Layering, includes_obey_the_table) {
  for (const auto& [path, file] : get_sources()) {
    for (const ScanInclude& include : file.includes) {
      if (!include.quoted) continue;
      const std::string target = resolve(include.name);
      if (target.empty()) {
        ADD_FAILURE() << at(file, include) << " names no file of the tree";
        continue;
      }
      EXPECT_EQ(find_layer_fault(path, target), "") << at(file, include);
      if (is_structure_header(path) && is_structure_header(target)) {
        EXPECT_TRUE(is_base_or_helper(file.code, get_sources().at(target).code))
            << at(file, include) << ": a structure's header includes a sibling only as its base";
      }
    }
  }
}

// A missing link works by accident, as long as some other library drags it in; a needless one hides a layer.
TEST(Layering, link_lists_say_what_the_includes_say) {
  ScanTargets all;
  std::map<std::string, std::string> folder_of;
  for (const auto& [folder, targets] : get_folder_targets()) {
    all.insert(targets.begin(), targets.end());
    for (const auto& [name, links] : targets) folder_of[name] = folder;
  }
  std::map<std::string, std::set<std::string>> included;
  for (const auto& [path, file] : get_sources()) {
    for (const ScanInclude& include : file.includes) {
      const std::string target = include.quoted ? resolve(include.name) : "";
      if (!target.empty() && get_owner(path) != get_owner(target)) included[get_owner(path)].insert(get_owner(target));
    }
  }
  for (const auto& [folder, targets] : get_folder_targets()) {
    std::set<std::string> reached, direct;
    for (const auto& [name, links] : targets) {
      for (const std::string& link : get_link_closure(all, name)) reached.insert(folder_of[link]);
      for (const std::string& link : links) direct.insert(folder_of[link]);
    }
    for (const std::string& other : included[folder]) {
      const bool is_linked = reached.contains(other) || !get_folder_targets().contains(other);
      EXPECT_TRUE(is_linked) << folder << " includes " << other << " and does not link it";
    }
    for (const std::string& other : direct) {
      const bool is_needed = other.empty() || other == folder || included[folder].contains(other);
      EXPECT_TRUE(is_needed || !is_library_path(folder + "/")) << folder << " links " << other << " for nothing";
    }
  }
}

// Its headers have no ending and no folder. vq_core asks the system for large pages.
TEST(Layering, host_and_library_stand_on_the_standard_library) {
  for (const auto& [path, file] : get_sources()) {
    if (!is_library_path(path)) continue;
    for (const ScanInclude& include : file.includes) {
      const bool is_standard = include.quoted || include.name.find_first_of("./") == std::string::npos;
      const bool is_for_pages = path.starts_with("host/vq_core/") && include.name == "sys/mman.h";
      EXPECT_TRUE(is_standard || is_for_pages || is_intrinsics_header(include.name))
          << at(file, include) << " is not of the standard library";
    }
  }
}

TEST(Layering, intrinsics_stay_in_vq_simd) {
  for (const auto& [path, file] : get_sources()) {
    if (path.starts_with("host/vq_simd/") || path.starts_with("tests/layering/")) continue;
    EXPECT_EQ(find_intrinsic(file), "") << path;
  }
}

// Left out are binary files and the pages written for those who steer the development.
TEST(Layering, no_file_speaks_of_things_outside_the_repository) {
  for (const std::string& path : get_paths()) {
    const std::string text = read_file(root / path);
    if (path.substr(path.rfind('/') + 1).starts_with("DEVELOPERS")) continue;
    if (text.substr(0, 8192).find('\0') != std::string::npos) continue;
    for (const std::string& line : find_outside_words(text)) ADD_FAILURE() << path << ":" << line;
  }
}

TEST(LayeringSelfCheck, knows_right_from_wrong_includes) {
  const std::pair<const char*, const char*> allowed[] = {{"host/vq_ctx/a.cpp", "host/vq_sys/b.h"},
                                                         {"gas/bvh/bvh_kernel_impl.h", "gas/bvh/bvh_layout.h"},
                                                         {"gas/gas_fur.cpp", "gas/bvh/bvh_kernel.h"},
                                                         {"tools/vqgas/scene/a.cpp", "tools/vqgas/import/b.h"},
                                                         {"tools/vqgas/main.cpp", "tools/vqgas/commands/a.h"},
                                                         {"tests/tools/a.cpp", "tools/vqgas/image/a.h"}};
  const std::pair<const char*, const char*> forbidden[] = {{"host/vq_sys/a.cpp", "host/vq_ctx/b.h"},
                                                           {"host/vq_unheard_of/a.cpp", "host/vq_core/b.h"},
                                                           {"host/vq_module/a.cpp", "gas/a.h"},
                                                           {"gas/frame/a.h", "gas/bvh/bvh_layout.h"},
                                                           {"gas/bvh/bvh_layout.h", "gas/bvh/gas_bvh.h"},
                                                           {"gas/bvh/gas_bvh.h", "gas/bvh/gas_bvh_motion.h"},
                                                           {"gas/bvh/bvh_builder.cpp", "gas/bvh/bvh_kernel.h"},
                                                           {"gas/bvh/bvh_unheard_of.cpp", "gas/bvh/bvh_layout.h"},
                                                           {"gas/bvh/bvh_kernel.cpp", "gas/gas_fur.h"},
                                                           {"tools/vqgas/demo/a.cpp", "tests/support/a.h"},
                                                           {"tools/vqgas/demo/a.cpp", "tools/vqgas/import/b.h"},
                                                           {"tools/vqgas/image/a.h", "tools/vqgas/scene/b.h"},
                                                           {"tools/vqgas/a.cpp", "tools/vqgas/image/b.h"},
                                                           {"examples/a.cpp", "gas/bvh/bvh_layout.h"}};
  for (const auto& [from, to] : allowed) EXPECT_EQ(find_layer_fault(from, to), "") << from << " -> " << to;
  for (const auto& [from, to] : forbidden) EXPECT_NE(find_layer_fault(from, to), "") << from << " -> " << to;
  EXPECT_TRUE(is_base_or_helper("class A : public B { };", "class B : public C { };"));
  EXPECT_TRUE(is_base_or_helper("class A : public D { };", "struct B { };"));
  EXPECT_FALSE(is_base_or_helper("class A : public D { };", "class B : public C { };"));
}

TEST(LayeringSelfCheck, reads_intrinsics_link_lists_and_outside_words) {
  EXPECT_NE(find_intrinsic(scan_file("gas/a.cpp", "#include <immintrin.h>\n")), "");
  EXPECT_NE(find_intrinsic(scan_file("gas/a.cpp", "__m128 x = _mm_set1_ps(1);")), "");
  EXPECT_EQ(find_intrinsic(scan_file("gas/a.cpp", "// _mm_set1_ps\nint comm_x;")), "");
  const ScanTargets targets = find_targets(
      "vq_add_library(x SOURCES s.cpp\n LINK y # z\n w)\nadd_library(y INTERFACE)\n"
      "target_link_libraries(y INTERFACE v)\nvq_add_test(t SOURCES t.cpp $<TARGET_OBJECTS:o> LINK x)");
  EXPECT_EQ(get_link_closure(targets, "t"), (std::set<std::string>{"o", "x", "y", "w", "v"}));
  // Put together here, so that this file holds none of them.
  const std::string text =
      "as th"
      "e spec says\nreal specs\nsee Part"
      " 3.1.\nPart 3\ncd /wo"
      "rk/x\na/work/b\n${dir}/tmp/c\n";
  const std::vector<std::string> lines = find_outside_words(text);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(lines[0].starts_with("1") && lines[1].starts_with("3") && lines[2].starts_with("5"));
}

}  // namespace
