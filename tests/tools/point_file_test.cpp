// Point clouds in files: what is read of bytes that the tests put together, and what is written.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <csignal>
#include <cstring>

#include "tools/run_program.h"
#include "tools/vqgas/import/point_file.h"
#include "tools/vqgas/import/point_write.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"

namespace {

std::vector<float> get_numbers(const PointSource& cloud) {
  std::vector<float> numbers;
  for (const auto& p : cloud.positions) numbers.insert(numbers.end(), {p.x, p.y, p.z});
  return numbers;
}

/// Numbers as bytes in either order.
struct Bytes {
  std::string text;
  bool is_big = false;

  template <class T>
  void add(T value) {
    std::string bytes(reinterpret_cast<const char*>(&value), sizeof(T));
    if (is_big) std::reverse(bytes.begin(), bytes.end());
    text += bytes;
  }
};

const std::string xyz_properties = "property float x\nproperty float y\nproperty float z\n";

std::string make_header(const std::string& format, const std::string& elements) {
  return "ply\nformat " + format + " 1.0\ncomment made by hand\n" + elements + "end_header\n";
}

/// Two points with all kinds of properties, behind an element of two rows.
const std::string mixed_elements =
    "element camera 2\nproperty list uchar short shape\nproperty char id\n"
    "element vertex 2\nproperty double z\nproperty uint8 red\nproperty list ushort float weights\nproperty short x\n"
    "property uchar green\nproperty float32 radius\nproperty uchar blue\nproperty uint y\nproperty int quality\n"
    "element face 0\nproperty list uchar int vertex_indices\n";

std::string make_mixed_ply(bool is_big) {
  Bytes bytes{make_header(is_big ? "binary_big_endian" : "binary_little_endian", mixed_elements), is_big};
  for (const u8 size : {u8{2}, u8{0}}) {
    bytes.add(size);
    for (u8 k = 0; k < size; ++k) bytes.add(std::int16_t{700});
    bytes.add(std::int8_t{-1});
  }
  for (const int k : {0, 1}) {
    bytes.add(k == 0 ? 3.5 : -0.25);
    bytes.add(static_cast<u8>(k == 0 ? 255 : 1));
    bytes.add(static_cast<u16>(k));
    if (k == 1) bytes.add(7.0f);
    bytes.add(static_cast<std::int16_t>(k == 0 ? 1 : -300));
    bytes.add(static_cast<u8>(k == 0 ? 128 : 0));
    bytes.add(k == 0 ? 0.5f : 0.25f);
    bytes.add(static_cast<u8>(k == 0 ? 0 : 2));
    bytes.add(static_cast<u32>(k == 0 ? 2 : 70000));
    bytes.add(std::int32_t{-5});
  }
  return bytes.text;
}

PointSource read_bytes(const std::string& name, const std::string& bytes) {
  const TestFolder folder;
  folder.write(name, bytes);
  return read_points((folder.get_path() / name).string());
}

/// The fault after the name of the file.
std::string get_fault(const std::string& path) {
  try {
    read_points(path);
    return "";
  } catch (const InputError& error) {
    const std::string fault = error.what();
    EXPECT_EQ(fault.find('\n'), std::string::npos) << fault;
    EXPECT_EQ(fault.find(path + ": "), 0u) << fault;
    return fault.substr(path.size() + 2);
  }
}

}  // namespace

TEST(PointFile, all_formats_give_the_same_points) {
  const std::vector<std::pair<std::string, std::string>> files = {
      {"little.ply", make_mixed_ply(false)},
      {"big.ply", make_mixed_ply(true)},
      {"text.ply", make_header("ascii", mixed_elements) +
                       "2 700 700 -1\n0 -1\n\n3.5 255 0 1 128 0.5 0 2 -5\n-.25 1 1 7 -300 0 .25 2 7e4 -5\r\n"},
      {"named.csv",
       "Blue;NAME;z;Y; x;RED;green;Radius\n0;\"a;\"\"b\";3.5;+2;1 ;255;128;.5\n2;;-0.25;70000;-300;1;0;0.25"},
      {"tabs.csv",
       "\xEF\xBB\xBF//x\ty\tz\tr\tg\tb\tradius\tname\n1\t2\t3.5\t255\t128\t0\t0.5\ta b\n"
       "-300\t7e4\t-0.25\t1\t0\t2\t0.25\t\n"},
      {"plain.XYZ", "# a comment\n\n1 2 3.5\t255  128 0 # the first\r\n  -300 70000 -.25 1 0 2\n"},
      {"commas.csv", "1,2,3.5,255,128,0\n-300, 70000, -.25, 1, 0, 2\n"},
      {"blocks.pts", "1\n1 2 3.5 -900 255 128 0\n0\n1\n-300 70000 -.25 17 1 0 2"}};
  for (const auto& [name, bytes] : files) {
    SCOPED_TRACE(name);
    const PointSource cloud = read_bytes(name, bytes);
    EXPECT_EQ(get_numbers(cloud), (std::vector<float>{1, 2, 3.5f, -300, 70000, -0.25f}));
    EXPECT_EQ(cloud.colors, (std::vector<u32>{0xFF8000, 0x010002}));
    const bool has_radii = bytes.find("adius") != std::string::npos;
    EXPECT_EQ(cloud.radii, has_radii ? std::vector<float>({0.5f, 0.25f}) : std::vector<float>());
    EXPECT_EQ(cloud.non_finite_count, 0u);
  }
  EXPECT_TRUE(read_bytes("bare.xyz", "1 2 3\n").colors.empty());
  EXPECT_TRUE(read_bytes("bare.pts", "1\n1 2 3 4\n").colors.empty());
  EXPECT_TRUE(read_bytes("partial.csv", "x,y,z,red,blue\n1,2,3,4,-5\n").colors.empty());
}

TEST(PointFile, the_range_of_colors_follows_from_their_values) {
  const auto read = [](const std::string& colors) {
    std::string text = "r g b x y z\n";
    for (const char c : colors + "\n") text += c == '\n' ? " 0 0 0\n" : std::string(1, c);
    return read_bytes("a.csv", text).colors;
  };
  EXPECT_EQ(read("0 1 0.5\n0.25 0 1"), (std::vector<u32>{0x00FF80, 0x4000FF}));
  EXPECT_EQ(read("0 1 0.75\n2 0 1\n1 1 1"), (std::vector<u32>{0x000101, 0x020001, 0x010101}));
  EXPECT_EQ(read("1 0 0\n255 0 77\n65535 257 25700"), (std::vector<u32>{0, 0x010000, 0xFF0164}));
  std::string ply = make_header("binary_little_endian", "element vertex 1\n" + xyz_properties +
                                                            "property uchar r\nproperty uchar g\nproperty uchar b\n");
  ply += std::string(12, '\0') + "\1" + std::string(1, '\0') + "\1";
  EXPECT_EQ(read_bytes("a.ply", ply).colors, (std::vector<u32>{0x010001}));
  EXPECT_NEAR(read_bytes("b.xyz", "0 0 0 128 255 0\n").get_color(0).x, 0.2158605f, 1e-6f);
}

TEST(PointFile, points_that_are_not_finite_are_read_and_counted) {
  const PointSource cloud =
      read_bytes("a.csv", "x y z radius\n1 nan 12345678901 1\n1e39 -1e999 1e-999 1\n0 0 0 inf\n1 2 3 1\n");
  EXPECT_EQ(cloud.non_finite_count, 3u);
  ASSERT_EQ(cloud.positions.size(), 4u);
  EXPECT_TRUE(std::isnan(cloud.positions[0].y));
  EXPECT_EQ(cloud.positions[0].z, 12345678901.0f);
  EXPECT_EQ(cloud.positions[1].x, INFINITY);
  EXPECT_EQ(cloud.positions[1].y, -INFINITY);
  EXPECT_EQ(cloud.positions[1].z, 0.0f);
  EXPECT_EQ(cloud.radii[2], INFINITY);
}

TEST(PointFile, files_of_many_pieces_are_read_whole) {
  constexpr u32 count = 300000;  // several MiB, in rows of 13 bytes and of different lengths
  Bytes binary{make_header("binary_big_endian",
                           "element vertex " + std::to_string(count) + "\n" + xyz_properties + "property uchar tag\n"),
               true};
  std::string text;
  std::vector<float> numbers;
  for (u32 k = 0; k < count; ++k) {
    for (const u32 value : {k, 3 * k, k % 7}) {
      binary.add(static_cast<float>(value));
      text += std::to_string(value) + " ";
      numbers.push_back(static_cast<float>(value));
    }
    binary.add(u8{9});
    text += '\n';
  }
  EXPECT_EQ(get_numbers(read_bytes("a.ply", binary.text)), numbers);
  EXPECT_EQ(get_numbers(read_bytes("a.xyz", text)), numbers);
  EXPECT_EQ(
      get_numbers(read_bytes(
          "b.ply", make_header("ascii", "element vertex " + std::to_string(count) + "\n" + xyz_properties) + text)),
      numbers);
  EXPECT_EQ(get_numbers(read_bytes("a.pts", std::to_string(count) + "\n" + text)), numbers);
}

TEST(PointFile, faults_name_the_line_or_the_byte) {
  const auto ply = [](const std::string& format, const std::string& count, const std::string& rest) {
    return make_header(format, "element vertex " + count + "\n" + xyz_properties) + rest;
  };
  const std::string listed =
      make_header("binary_little_endian", "element vertex 2\n" + xyz_properties + "property list int double weights\n");
  const std::string row(16, '\0');
  const std::string second = "vertex 1, byte " + std::to_string(listed.size() + 16) + ": ";
  struct Fault {
    std::string name, bytes, text;
  };
  const std::vector<Fault> faults = {
      {"empty.xyz", "", "is empty"},
      {"blank.csv", "# nothing\n\n", "holds no point"},
      {"names.csv", "x,y,z\n", "holds no point"},
      {"zero.pts", "0\n", "holds no point"},
      {"zero.ply", ply("ascii", "0", ""), "holds no point"},
      {"word.xyz", "1 2 3\n# 4\n1 two 3\n", "line 3: 'two' in column 2 is not a number"},
      {"glued.xyz", "1 2 3\n1 2.0.5 3\n", "line 2: '2.0.5' in column 2 is not a number"},
      {"control.xyz", "1 2 3\n\x1b[2J 2 3\n", "line 2: '?[2J' in column 1 is not a number"},
      {"comma.csv", "1,5;2;3\n", "line 1: does not name x, y and z"},
      {"hole.csv", "1,2,3\n1,,3\n", "line 2: '' in column 2 is not a number"},
      {"long.xyz", "1 2 3\n1 2 3 4\n", "line 2: has 4 columns, not 3"},
      {"short.csv", "name,x,y,z\na,1,2,3\nb,2,3", "line 3: has 3 columns, not 4"},
      {"four.xyz", "1 2 3 4\n", "line 1: has 4 columns without names"},
      {"lacking.csv", "x,y,red\n1,2,3\n", "line 1: does not name x, y and z"},
      {"twice.csv", "x,y,z,R,red\n1,2,3,4,5\n", "line 1: names x, y, z, a color or the radius twice"},
      {"normals.xyz", "1 2 3 0 -0.5 1\n", "line 1: '1 2 3 0 -0.5 1' has no color"},
      {"endless.xyz", std::string(3 << 20, '1'), "line 1: is longer than 1 MiB"},
      {"head.pts", "1 2 3\n", "line 1: '1 2 3' is not the number of the points that follow"},
      {"early.pts", "3\n1 2 3\n1 2 3\n1\n1 2 3\n", "line 1: announces 3 points, but only 2 follow"},
      {"late.pts", "1\n1 2 3\n1 2 3\n", "line 3: '1 2 3' is not the number"},
      {"huge.pts", "18446744073709551615\n1 2 3\n", "line 1: announces 18446744073709551615 points, but only 1 lines"},
      {"blanks.pts", "2\n1 2 3\n\n", "line 1: announces 2 points, but only 1 follow"},
      {"noise.ply", "ply\n\x01x\x02\n", "line 2: '?x?' is no valid line of a PLY header"},
      {"negative.ply", ply("ascii", "-1", ""), "line 4: 'element vertex -1' is no valid line"},
      {"cut.ply", ply("binary_little_endian", "2", row),
       "is cut off: its header announces 2 rows of vertex of at least 12"},
      {"huge.ply", ply("binary_big_endian", "18446744073709551615", row), "is cut off: its header announces 1844"},
      {"huge_text.ply", ply("ascii", "4000000000", "1 2 3\n"), "is cut off: its header announces 4000000000 rows"},
      {"more.ply", ply("binary_little_endian", "1", row), "has 4 bytes more than its header asks for"},
      {"more_text.ply", ply("ascii", "1", "1 2 3\n\n4 5 6\n"), "line 11: follows after the rows"},
      {"few.ply", ply("ascii", "2", "1.00 2.00 3.00\n"), "ends after 1 of 2 rows of its element vertex"},
      {"narrow.ply", ply("ascii", "1", "1.5 2.5\n"), "line 9: has too few numbers"},
      {"word.ply", ply("ascii", "1", "1 2 three\n"), "line 9: 'three' is not a number"},
      {"flat.ply", make_header("ascii", "element vertex 1\nproperty float x\n") + "1\n",
       "element vertex: does not name"},
      {"list.ply", listed + row + std::string(12, '\0') + "\xFF\xFF\xFF\x7F", second + "has a list beyond"},
      {"length.ply", listed + row + std::string(12, '\0') + "\xFF\xFF\xFF\xFF", second + "has a list without"}};
  const TestFolder folder;
  for (const Fault& fault : faults) {
    folder.write(fault.name, fault.bytes);
    const std::string text = get_fault((folder.get_path() / fault.name).string());
    EXPECT_EQ(text.substr(0, fault.text.size()), fault.text) << fault.name << ": " << text;
  }
  std::filesystem::create_directory(folder.get_path() / "folder.pts");
  EXPECT_EQ(get_fault((folder.get_path() / "folder.pts").string()), "is a folder");
  EXPECT_EQ(get_fault((folder.get_path() / "missing.csv").string()), "no such file");
}

TEST(PointFile, memory_is_announced_and_limited_before_it_is_allocated) {
  const TestFolder folder;
  const std::string path = (folder.get_path() / "a.ply").string();
  u64 points = 0, bytes = 0;
  const PointReading reading{nullptr, [&](u64 count, u64 size) { points = count, bytes = size; }};
  folder.write("a.csv", "# a comment\nx y z r g b radius\n1 2 3 4 5 6 7\n");
  read_points((folder.get_path() / "a.csv").string(), reading);
  EXPECT_EQ(points, 3u) << "lines";
  EXPECT_EQ(bytes, 3u * 20u);

  constexpr u64 count = 4000000000;  // the file has a length, but takes no room
  folder.write("a.ply",
               make_header("binary_little_endian", "element vertex " + std::to_string(count) + "\n" + xyz_properties));
  std::filesystem::resize_file(path, std::filesystem::file_size(path) + 12 * count);
  if (sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE) > 90l << 30) return;  // which would hold the points
  EXPECT_EQ(get_fault(path).substr(0, 35), "needs 48.00 GB for 4000000000 point") << get_fault(path);
}

TEST(PointFile, a_signal_ends_the_reading) {
  constexpr std::size_t count = 300000;  // in several pieces
  std::string lines;
  for (std::size_t k = 0; k < count; ++k) lines += "1 2 3\n";
  const std::string elements = "element vertex " + std::to_string(count) + "\n" + xyz_properties;
  const TestFolder folder;
  for (const auto& [name, bytes] : std::initializer_list<std::pair<std::string, std::string>>{
           {"a.xyz", lines},
           {"a.pts", std::to_string(count) + "\n" + lines},
           {"text.ply", make_header("ascii", elements) + lines},
           {"a.ply", make_header("binary_little_endian", elements) + std::string(12 * count, '\0')}}) {
    folder.write(name, bytes);
    const auto read_until_signal = [&] {
      install_signal_handlers();
      try {
        read_points((folder.get_path() / name).string(), {nullptr, [](u64, u64) { std::raise(SIGTERM); }});
      } catch (const Interrupted&) {
        std::_Exit(report_interrupt());
      }
      std::_Exit(0);
    };
    EXPECT_EXIT(read_until_signal(), testing::ExitedWithCode(128 + SIGTERM), "^vqgas: interrupted\n$") << name;
  }
}

TEST(PointFile, ply_files_with_faces_are_meshes) {
  const TestFolder folder;
  const auto is_point = [&](const std::string& name, const std::string& bytes) {
    folder.write(name, bytes);
    return is_point_file((folder.get_path() / name).string());
  };
  const std::string vertices = "element vertex 3\n" + xyz_properties;
  EXPECT_TRUE(is_point("a.PLY", make_header("ascii", vertices)));
  EXPECT_TRUE(is_point("b.ply", make_header("ascii", vertices + "element face 0\nproperty list uchar int i\n")));
  EXPECT_FALSE(is_point("c.ply", make_header("ascii", vertices + "element face 1\nproperty list uchar int i\n")));
  EXPECT_FALSE(is_point("d.ply", make_header("ascii", vertices + "element tristrips 1\nproperty list int int i\n")));
  EXPECT_FALSE(is_point("e.ply", std::string(3 << 20, 'x')));
  EXPECT_FALSE(is_point("f.ply", ""));
  EXPECT_FALSE(is_point("g.obj", make_header("ascii", vertices)));
  EXPECT_FALSE(is_point_file((folder.get_path() / "missing.ply").string()));
}

TEST(PointFile, written_points_are_read_again) {
  const TestFolder folder;
  PointRows points{{"plain", "with, \"all\"\nkinds"},
                   {{{0.1f, -2, 3e30f}, 0, 7, 0x01FF80}, {{4, 5, 6}, 1, 4294967294u}}};
  const auto write = [&](const std::string& name) {
    write_points((folder.get_path() / name).string(), points);
    const PointSource cloud = read_points((folder.get_path() / name).string());
    EXPECT_EQ(get_numbers(cloud), (std::vector<float>{0.1f, -2, 3e30f, 4, 5, 6})) << name;
    return cloud.colors;
  };
  const std::vector<u32> colors = {0x01FF80, 0xFFFFFF};
  EXPECT_EQ(write("a.csv"), colors);
  EXPECT_EQ(folder.read("a.csv"),
            "x,y,z,red,green,blue,object,name,point\n0.1,-2,3e+30,1,255,128,0,plain,7\n"
            "4,5,6,255,255,255,1,\"with, \"\"all\"\" kinds\",4294967294\n");
  EXPECT_EQ(write("a.ply"), colors);
  const std::string ply = folder.read("a.ply");
  EXPECT_NE(ply.find("\ncomment object 1 with, \"all\" kinds\n"), std::string::npos);
  EXPECT_NE(ply.find("uchar blue\nproperty uint object\nproperty uint point\nend_header\n"), std::string::npos);
  EXPECT_TRUE(ply.ends_with(std::string("\1\0\0\0\xFE\xFF\xFF\xFF", 8)));

  points.rows.front().color = core_invalid_index;
  EXPECT_TRUE(write("b.csv").empty());
  EXPECT_TRUE(write("b.ply").empty());
  EXPECT_EQ(folder.read("b.csv").substr(0, 40), "x,y,z,object,name,point\n0.1,-2,3e+30,0,p");
  EXPECT_FALSE(is_point_output("a.xyz"));
}
