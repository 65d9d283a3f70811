// Exit code 1 with one line for files that cannot be used, 2 for command lines that make no sense.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tools/hair_bytes.h"
#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

/// A sanitizer ends the program where the system's allocator throws, and counts the importer's own leaks as ours.
constexpr bool is_sanitized = VQGAS_IS_SANITIZED != 0;

std::string make_noise(std::size_t size) {
  std::mt19937 random(7);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// A binary PLY file that promises `faces` triangles and holds none.
std::string make_cut_ply(int faces) {
  std::string ply =
      "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face " +
      std::to_string(faces) + "\nproperty list uchar int vertex_indices\nend_header\n";
  const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  ply.append(reinterpret_cast<const char*>(positions), sizeof(positions) - 5);
  return ply;
}

/// Each with one fault.
std::vector<std::pair<std::string, std::string>> make_broken_hair() {
  std::vector<std::pair<std::string, std::string>> files;
  const auto add = [&](const std::string& name, const auto& spoil) {
    HairBytes hair;
    spoil(hair);
    files.emplace_back(name + ".hair", hair.write());
  };
  add("signature", [](HairBytes& hair) { hair.signature = "HAIL"; });
  add("no_strand", [](HairBytes& hair) { hair.hairs = 0, hair.segments.clear(); });
  add("no_points", [](HairBytes& hair) { hair.arrays = 5; });
  add("unknown_array", [](HairBytes& hair) { hair.arrays |= 32; });
  add("too_short", [](HairBytes& hair) { hair.thickness.pop_back(); });
  add("too_long", [](HairBytes& hair) { hair.thickness.push_back(1.0f); });
  add("sum", [](HairBytes& hair) { hair.segments[1] = 3; });
  add("default_sum", [](HairBytes& hair) { hair.arrays = 6, hair.default_segments = 0xFFFFFFFF; });
  add("no_segment", [](HairBytes& hair) { hair.arrays = 6, hair.hairs = 5; });
  add("no_thickness", [](HairBytes& hair) { hair.arrays = 3, hair.default_thickness = 0.0f; });
  add("flat", [](HairBytes& hair) { hair.thickness.assign(hair.thickness.size(), 0.0f); });
  add("huge", [](HairBytes& hair) { hair.hairs = hair.points = 0xFFFFFFFF; });
  add("not_finite", [](HairBytes& hair) {
    for (auto& position : hair.positions) position[1] = NAN;
  });
  files.emplace_back("header.hair", HairBytes().write().substr(0, 100));
  files.emplace_back("noise.hair", make_noise(4000));
  files.emplace_back("single.curves", "0 0 0 1\n\n1 0 0 1\n");
  files.emplace_back("blank.txt", "# nothing\n\n");
  files.emplace_back("flat.curves", "0 0 0 0\n1 0 0 -1\n");
  return files;
}

std::vector<std::pair<std::string, std::string>> make_broken_files() {
  const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
  std::vector<std::pair<std::string, std::string>> files = {
      {"empty.obj", ""},
      {"blank.obj", "\n\n\n"},
      {"cut.ply", make_cut_ply(1)},
      {"cut.obj", triangle + "f 1 2"},
      {"strips.ply",
       "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
       "element tristrips 1\nproperty list int int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"},
      {"lines.obj", triangle + "l 1 2\n"},
      {"vertex.obj", triangle + "v 1 0 \\\nx\nv 1 1 1\nf 1 2 4\n"},
      {"range.obj", triangle + "f 1 2 9\n"},
      {"not_finite.obj", "v 0 0 0\nv 1 0 0\nv nan 1 0\nf 1 2 3\n"},
      {"unknown.xyz", "hello"},
      {"quoted \"name\" 100%s.obj", "v"}};
  for (const std::string format : {"obj", "ply", "stl", "gltf", "glb", "off"})
    files.emplace_back("noise." + format, make_noise(4000));
  for (const auto& file : make_broken_hair()) files.push_back(file);
  return files;
}

/// Files on which a reader crashed, ran for minutes, allocated a gigabyte, read outside of a buffer, or printed what
/// would spoil a terminal.
std::vector<std::pair<std::string, std::string>> make_damaged_files() {
  const std::string ply = make_cut_ply(1), scatter = R"({"format": "vqgas scatter 1", "geometries": [)";
  const std::string instances = R"("matrix": [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0]}})";
  const std::string gltf = R"({"asset": {"version": "2.0"}, "buffers": [{"byteLength": 36, "uri": "data:;base64,)" +
                           std::string(48, 'A') + R"("}], "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
                           "scenes": [{"nodes": [0]}], "nodes": [{"mesh": 0)";
  const std::string view = R"(}], "bufferViews": [{"buffer": 0, "byteLength": 36}], )";
  const std::string accessor = R"({"bufferView": 0, "componentType": 5126, "type": "VEC3", "count": )";
  return {
      {"element.ply",
       "ply\nformat binary_little_endian 1.0\n\xff\xff"
       "ement vertex "},
      {"list.ply", std::string(ply).replace(ply.find("vertex_indices\nend"), 17, "")},
      {"deep.json", scatter + R"("cube.obj"], "instances": {"geometry": [)" + std::string(200000, '[') +
                        std::string(200000, ']') + "], " + instances},
      {"name.json", scatter + "\"\x7f.obj\"], \"instances\": {\"geometry\": [0], " + instances},
      {"token.json", scatter + "\x7f"},
      {"view.gltf", gltf + R"(}], "bufferViews": [{"buffer": 0, "byteOffset": 18446744073709551615, "byteLength": 36}],
                         "accessors": [)" +
                        accessor + "3}]}"},
      {"accessor.gltf", gltf + view + R"("accessors": [)" + accessor + "4}]}"},
      {"skin.gltf",
       gltf + R"(, "skin": 0)" + view + R"("skins": [{"joints": {}}], "accessors": [)" + accessor + "3}]}"}};
}

/// A fault is one line that names the file, and nothing on standard output.
void expect_one_line(const ProgramResult& result, const std::string& name) {
  EXPECT_EQ(result.exit_code, 1) << name << ": " << result.err;
  EXPECT_EQ(result.count_error_lines(), 1u) << name << ": " << result.err;
  EXPECT_NE(result.err.find(name), std::string::npos) << result.err;
  EXPECT_EQ(result.out, "") << name;
}

}  // namespace

TEST(VqgasBadInput, each_broken_file_gives_one_line_and_exit_code_1) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.get_path() / "folder.obj");
  std::vector<std::string> names = {"missing.obj", "folder.obj", "demo:nothing", "/dev/null"};
  for (const auto& [name, bytes] : make_broken_files()) {
    folder.write(name, bytes);
    names.push_back(name);
  }
  for (const std::string& name : names) {
    expect_one_line(run_vqgas(folder.get_path(), {"info", name}), name);
    expect_one_line(run_vqgas(folder.get_path(), {"render", name, "-o", "out.png", "--size", "8x8"}), name);
    expect_one_line(run_vqgas(folder.get_path(), {"trace", name, "--ray", "0,0,1,0,0,-1"}), name);
    EXPECT_FALSE(std::filesystem::exists(folder.get_path() / "out.png")) << name;
  }
  // Of several files, the one that is broken.
  expect_one_line(run_vqgas(folder.get_path(), {"render", "demo:knot", "not_finite.hair", "-o", "out.png"}),
                  "not_finite.hair");
}

TEST(VqgasBadInput, damaged_files_cost_neither_a_crash_nor_time) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  for (const auto& [name, bytes] : make_damaged_files()) {
    folder.write(name, bytes);
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", name});
    expect_one_line(result, name);
    EXPECT_EQ(result.err.find("breaks down"), std::string::npos) << name;
    EXPECT_EQ(result.err.find('\x7f'), std::string::npos) << name;
  }
  // 16384 x 16384 pixels of 8 bytes
  folder.write("huge.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x40\0\0\0\x40\0\x10\x06\0\0\0\xf9\x58\xcc\xc7"
                                       "\0\0\0\0IDAT\x35\xaf\x06\x1e\0\0\0\0IEND\xae\x42\x60\x82",
                                       57));
  const ProgramResult huge = run_vqgas(
      folder.get_path(), {"uv", "cube.obj", "--project", "planar", "-o", "a.png", "--background", "huge.png"});
  expect_one_line(huge, "huge.png");
  EXPECT_NE(huge.err.find("too short"), std::string::npos) << huge.err;
}

TEST(VqgasBadInput, heights_that_cannot_be_used_are_told) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  folder.write("hair.curves", "0 0 0 1\n1 0 0 1\n");
  write_png(folder.get_path() / "gray.png", 2, {0, 255, 255, 0});
  write_png(folder.get_path() / "color.png", 1, {0, 255, 255}, false);
  folder.write("cut.png", folder.read("gray.png").substr(0, 45));
  folder.write("noise.png", make_noise(4000));
  const auto displace = [&](const std::string& file, std::vector<std::string> options) {
    options.insert(options.begin(), {"trace", file, "--ray", "0,0,5,0,0,-1", "--displace"});
    return run_vqgas(folder.get_path(), options);
  };
  for (const std::string height : {"missing.png", "color.png", "cut.png", "noise.png", "cube.obj"})
    expect_one_line(displace("cube.obj", {height}), height);
  const ProgramResult no_uv = displace("cube.obj", {"gray.png"});
  expect_one_line(no_uv, "cube.obj");
  EXPECT_NE(no_uv.err.find("UV map"), std::string::npos) << no_uv.err;
  expect_one_line(displace("hair.curves", {"noise"}), "hair.curves");
  expect_one_line(displace("cube.obj", {"noise", "--bound", "1e30"}), "cube.obj");
  for (const std::string bound : {"nan", "inf", "-1", "0", "x"})
    EXPECT_EQ(displace("cube.obj", {"noise", "--bound", bound}).exit_code, 2) << bound;
  for (const std::string rate : {"nan", "0", "-1", "1025", "1.5"})
    EXPECT_EQ(displace("cube.obj", {"noise", "--rate", rate}).exit_code, 2) << rate;
  EXPECT_EQ(run_vqgas(folder.get_path(), {"info", "cube.obj", "--rate", "4"}).exit_code, 2);
}

TEST(VqgasBadInput, counts_beyond_all_memory_are_not_believed) {
  if (is_sanitized) GTEST_SKIP() << "a sanitizer ends the program when memory runs out";
  const TestFolder folder;
  folder.write("huge.off", "OFF\n3000000000 3000000000 0\n0 0 0\n");
  expect_one_line(run_vqgas(folder.get_path(), {"info", "huge.off"}), "huge.off");
  if (sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE) > 40l << 30) return;  // which would hold the fur
  folder.write("cube.obj", make_cube_obj(1.0));
  const std::vector<std::string> line = {"groom",     "cube.obj", "-o",       "fur.hair",
                                         "--strands", "20000",    "--points", "65536"};
  expect_one_line(run_vqgas(folder.get_path(), line), "cube.obj");
}

TEST(VqgasBadInput, outputs_that_cannot_be_written_are_told_before_the_work) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  std::filesystem::create_directory(folder.get_path() / "taken.png");
  for (const std::string name : {"nowhere/out.png", "nowhere/out.exr", "taken.png"})
    expect_one_line(run_vqgas(folder.get_path(), {"render", "cube.obj", "-o", name}), name);
  expect_one_line(run_vqgas(folder.get_path(), {"info", "cube.obj", "--quiet", "--json", "nowhere/a.json"}),
                  "nowhere/a.json");
  expect_one_line(run_vqgas(folder.get_path(), {"groom", "cube.obj", "-o", "nowhere/a.hair"}), "nowhere/a.hair");
  folder.write("flat.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n");
  expect_one_line(run_vqgas(folder.get_path(), {"groom", "flat.obj", "-o", "a.hair"}), "flat.obj");
  EXPECT_EQ(folder.list(), (std::vector<std::string>{"cube.obj", "flat.obj", "taken.png"}));
}

TEST(VqgasBadInput, outputs_that_do_not_fit_are_told) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  for (const std::string name : {"full.png", "full.exr", "full.hair", "full.json"})
    std::filesystem::create_symlink("/dev/full", folder.get_path() / name);
  for (const std::string name : {"full.png", "full.exr"})
    expect_one_line(run_vqgas(folder.get_path(), {"render", "cube.obj", "-o", name, "--size", "64x48"}), name);
  expect_one_line(run_vqgas(folder.get_path(), {"groom", "cube.obj", "-o", "full.hair"}), "full.hair");
  ProgramResult written = run_vqgas(folder.get_path(), {"info", "cube.obj", "--json", "full.json"});
  written.out.clear();  // the table comes first
  expect_one_line(written, "full.json");
  const std::vector<std::vector<std::string>> prints = {
      {"--help"}, {"info", "cube.obj"}, {"info", "cube.obj", "--json", "-"}, {"trace", "cube.obj"}};
  for (const std::vector<std::string>& line : prints)
    expect_one_line(run_vqgas(folder.get_path(), line, "", "/dev/full"), "standard output");
  const std::string line = "cd '" + folder.get_path().string() +
                           "' && { sleep 0.2; '" VQGAS_PROGRAM "' info cube.obj 2>err; echo $? >code; } | :";
  EXPECT_EQ(std::system(line.c_str()), 0);
  EXPECT_EQ(folder.read("code"), "141\n") << "nobody reads the pipe";
  EXPECT_EQ(folder.read("err"), "");
}

TEST(VqgasBadInput, no_output_replaces_an_input_or_another_output) {
  namespace fs = std::filesystem;
  const TestFolder folder;
  const std::string cube = make_cube_obj(1.0);
  folder.write("cube.obj", cube);
  fs::create_directory(folder.get_path() / "sub");
  fs::create_symlink("../cube.obj", folder.get_path() / "sub/link.obj");
  fs::create_symlink("later.json", folder.get_path() / "dangling.json");
  fs::create_hard_link(folder.get_path() / "cube.obj", folder.get_path() / "hard.obj");
  const std::vector<std::string> before = folder.list();
  const std::string absolute = (folder.get_path() / "sub/../p.png").string();
  const std::vector<std::vector<std::string>> lines = {
      {"info", "cube.obj", "--json", "cube.obj"},
      {"info", "sub/link.obj", "--json", "./cube.obj"},
      {"select", "cube.obj", "--json", "hard.obj"},
      {"trace", "cube.obj", "--json", "/dev/stdin"},
      {"trace", "cube.obj", "--json", "/dev/../dev/stdout"},
      {"groom", "cube.obj", "-o", "fur.hair", "--json", "sub/../fur.hair"},
      {"report", "demo:knot", "--with", "cube.obj", "-o", "hard.obj"},
      {"render", "cube.obj", "-o", "p.png", "--json", "p.png"},
      {"render", "cube.obj", "-o", "p.png", "-o", absolute},
      {"render", "cube.obj", "--layers", "beauty,depth", "-o", "p.png", "-o", "p.depth.png"}};
  for (const auto& line : lines) {
    const ProgramResult result = run_vqgas(folder.get_path(), line);
    EXPECT_EQ(result.exit_code, 2) << testing::PrintToString(line);
    EXPECT_EQ(result.count_error_lines(), 1u) << result.err;
    EXPECT_EQ(result.err.find("vqgas: " + line.back() + ": "), 0u) << result.err;
  }
  const ProgramResult parts = run_vqgas(folder.get_path(), {"render", "cube.obj", "-o", "p.png", "--layers", "parts"});
  EXPECT_EQ(parts.exit_code, 2);
  EXPECT_EQ(parts.count_error_lines(), 1u);
  EXPECT_NE(parts.err.find("--structure grid"), std::string::npos) << parts.err;
  EXPECT_EQ(folder.list(), before);
  EXPECT_EQ(folder.read("cube.obj"), cube);

  // Links are followed to what they name, devices and pipes written as they are.
  const auto run_info = [&](const std::string& name) {
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", "cube.obj", "--quiet", "--json", name});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return result.out;
  };
  run_info("dangling.json");
  EXPECT_TRUE(fs::is_symlink(folder.get_path() / "dangling.json"));
  EXPECT_EQ(run_info("/dev/stdout").substr(0, 1), "[");
  run_info("/dev/null");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(VqgasBadInput, models_of_the_importer_load_or_are_told) {
  // In sanitized runs only the malformed ones: the importer's own leaks on its way out would count as ours.
  const std::filesystem::path models = is_sanitized ? "/usr/share/assimp/models/invalid" : "/usr/share/assimp/models";
  if (!std::filesystem::is_directory(models)) GTEST_SKIP() << "the package assimp-testmodels is not installed";
  const TestFolder folder;
  std::size_t loaded = 0;
  for (const auto& model : std::filesystem::recursive_directory_iterator(models)) {
    if (!model.is_regular_file()) continue;
    if (is_sanitized && model.path().filename() == "OutOfMemory.off") continue;
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", model.path().string(), "--quiet"});
    if (result.exit_code != 0) expect_one_line(result, model.path().filename().string());
    EXPECT_EQ(result.exit_code == 0 ? result.err : result.out, "") << model.path();
    loaded += result.exit_code == 0;
  }
  EXPECT_GT(loaded, is_sanitized ? 0u : 200u);
}

// The library goes on without what it has no memory for; the program must not pass off such a picture as the scene's.
TEST(VqgasBadInput, what_there_is_no_memory_for_is_told_and_not_shown) {
  if (is_sanitized) GTEST_SKIP() << "a sanitizer reserves terabytes of addresses";
  const TestFolder folder;
  rlimit former = {};
  getrlimit(RLIMIT_AS, &former);
  std::size_t refused = 0, shown = 0;
  for (const rlim_t megabytes : {100, 125, 150, 4000}) {
    const rlimit limit = {megabytes << 20, former.rlim_max};
    setrlimit(RLIMIT_AS, &limit);
    const ProgramResult result = run_vqgas(folder.get_path(), {"render", "demo:mills", "--bundle", "--threads", "1",
                                                               "-o", "m.png", "--size", "8x8", "--quiet"});
    setrlimit(RLIMIT_AS, &former);
    const bool has_picture = !folder.list().empty();
    EXPECT_EQ(result.exit_code, has_picture ? 0 : 1) << result.err;
    EXPECT_EQ(result.count_error_lines(), has_picture ? 0u : 1u) << result.err;
    EXPECT_EQ(result.err.find("not enough memory") == std::string::npos, has_picture) << result.err;
    (has_picture ? shown : refused) += 1;
  }
  EXPECT_GE(refused, 2u);
  EXPECT_GE(shown, 1u);
}

TEST(VqgasBadInput, a_bad_line_of_hair_is_told_by_its_number) {
  const TestFolder folder;
  for (const std::string bad : {"1 2 3", "1 2 3 4 5", "1,2,3,4", "a 2 3 4"}) {
    folder.write("hair.curves", "# head\n\n0 0 0 1\n" + bad + "\n");
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", "hair.curves"});
    expect_one_line(result, "hair.curves");
    EXPECT_NE(result.err.find("line 4"), std::string::npos) << result.err;
  }
}

TEST(VqgasBadInput, a_node_that_the_importer_leaves_empty_is_passed_over) {
  if (is_sanitized) GTEST_SKIP() << "the importer leaks when it reads this file";
  const TestFolder folder;
  folder.write("two.raw", "First\n0 0 0 1 0 0 0 1 0\nSecond\n0 0 1 1 0 1 0 1 1\n");
  const ProgramResult result = run_vqgas(folder.get_path(), {"trace", "two.raw", "--ray", "0.2,0.2,5,0,0,-1"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_NE(result.out.find("\n0,4,"), std::string::npos) << result.out;
}

TEST(VqgasBadInput, a_bad_file_among_others_costs_none_of_their_reports) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  folder.write("red.curves", "0 0 \x1b[31m 1\n");
  const ProgramResult result =
      run_vqgas(folder.get_path(), {"info", "missing.obj", "cube.obj", "red.curves", "demo:knot", "--quiet"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.count_error_lines(), 2u) << result.err;
  EXPECT_EQ(result.err.find('\x1b'), std::string::npos) << "it would color the terminal";
  EXPECT_NE(result.err.find("missing.obj: no such file"), std::string::npos) << result.err;
  for (const char* name : {"cube.obj\n", "demo:knot\n"}) EXPECT_NE(result.out.find(name), std::string::npos) << name;
  EXPECT_EQ(run_vqgas(folder.get_path(), {"render", "cube.obj", "-o", "A.PNG", "--size", "8x8"}).exit_code, 0);
}

TEST(VqgasBadInput, command_lines_that_make_no_sense_give_exit_code_2) {
  const TestFolder folder;
  folder.write("cube.obj", make_cube_obj(1.0));
  std::vector<std::vector<std::string>> lines = {
      {}, {"frobnicate"}, {"info"}, {"render", "cube.obj"}, {"report", "cube.obj"}};
  lines.push_back({"render", "cube.obj", "-o", "out.jpg"});
  lines.push_back({"info", "cube.obj", "--structure", "octree"});
  lines.push_back({"info", "cube.obj", "--threads", "0"});
  lines.push_back({"groom", "cube.obj", "-o", "fur.obj"});
  lines.push_back({"groom", "cube.obj", "-o", "fur.hair", "--strands", "9", "--density", "9"});
  for (const std::string ray : {"0,0,1,0,0", "0,0,1,0,0,-1,5", "0,0,1,0,0,x"})
    lines.push_back({"trace", "cube.obj", "--ray", ray});
  for (const std::string size : {"100", "0x5", "99999x99999"})
    lines.push_back({"render", "cube.obj", "-o", "out.png", "--size", size});
  for (const std::string eye : {"0,0,0/0,0,0/0,1,0/40", "0,5,0/0,0,0/0,1,0/40", "0,0,5/0,0,0/0,1,0/180", "0,0,5/0,0,0"})
    lines.push_back({"render", "cube.obj", "-o", "out.png", "--camera", eye});
  for (const std::string length : {"nan", "-nan", "inf", "-0.1", "1e3x"})
    lines.push_back({"groom", "cube.obj", "-o", "fur.hair", "--strands", "1", "--length", length});
  for (const std::string points : {"1", "2.5", "nan", "-3", "65537"})
    lines.push_back({"groom", "cube.obj", "-o", "fur.hair", "--strands", "1", "--points", points});
  lines.push_back({"scatter", "cube.obj", "--on", "cube.obj", "--count", "1", "--jitter", "nan", "-o", "out.json"});
  EXPECT_NE(run_vqgas(folder.get_path(), {"frobnicate"}).err.find("'frobnicate' is no subcommand"), std::string::npos);
  for (const auto& line : lines) {
    const ProgramResult result = run_vqgas(folder.get_path(), line);
    EXPECT_EQ(result.exit_code, 2) << testing::PrintToString(line) << result.err;
    EXPECT_NE(result.err, "") << testing::PrintToString(line);
  }
  EXPECT_EQ(folder.list(), std::vector<std::string>{"cube.obj"});
}
