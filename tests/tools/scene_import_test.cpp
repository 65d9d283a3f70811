// Nodes, their motion, and meshes that change their form, against closed forms: a ray aimed at a point of a triangle
// that is known to be at a place tells by its barycentric weights whether it is there.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sstream>

#include "tools/image_file.h"
#include "tools/run_program.h"

namespace {

using Json = nlohmann::json;
using Point = std::array<double, 3>;
using Matrix = std::array<Point, 4>;  // columns, the last one the translation
using Triangle = std::array<Point, 3>;

/// Grows a glTF file; its numbers are in a second file.
struct GltfFile {
  Json json = {{"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", {0, 1}}}}}};
  std::string bytes = {};

  int add(const std::string& type, const std::vector<double>& values, int component = 5126) {
    const int accessor = static_cast<int>(json["accessors"].size()), width = type == "MAT4" ? 16 : type.back() - '0';
    const std::size_t count = type == "SCALAR" ? values.size() : values.size() / width, first = bytes.size();
    for (const double value : values) {
      const float number = static_cast<float>(value);
      const std::uint32_t index = component == 5126 ? 0 : static_cast<std::uint32_t>(value);
      bytes.append(component == 5126 ? reinterpret_cast<const char*>(&number) : reinterpret_cast<const char*>(&index),
                   component == 5121 ? 1 : 4);
    }
    json["bufferViews"].push_back({{"buffer", 0}, {"byteOffset", first}, {"byteLength", bytes.size() - first}});
    json["accessors"].push_back(
        {{"bufferView", accessor}, {"componentType", component}, {"count", count}, {"type", type}});
    return accessor;
  }

  void animate(int node, const std::string& path, const std::vector<double>& seconds, const std::string& type,
               const std::vector<double>& values) {
    Json& animation = json["animations"][0];
    const std::size_t sampler = animation["samplers"].size();
    const int input = add("SCALAR", seconds), output = add(type, values);
    animation["samplers"].push_back({{"input", input}, {"output", output}});
    animation["channels"].push_back({{"sampler", sampler}, {"target", {{"node", node}, {"path", path}}}});
  }

  /// In the binary form if the name says so.
  void write(const TestFolder& folder, const std::string& name) {
    if (name.ends_with(".glb")) return folder.write(name, print_binary());
    json["buffers"] = {{{"byteLength", bytes.size()}, {"uri", name + ".bin"}}};
    folder.write(name, json.dump());
    folder.write(name + ".bin", bytes);
  }

  std::string print_binary() {
    json["buffers"] = {{{"byteLength", bytes.size()}}};
    std::string text = json.dump(), body = bytes;
    text.resize((text.size() + 3) / 4 * 4, ' ');
    body.resize((body.size() + 3) / 4 * 4, '\0');
    const auto print = [](std::size_t number) {
      const auto word = static_cast<std::uint32_t>(number);
      return std::string(reinterpret_cast<const char*>(&word), sizeof(word));
    };
    return "glTF" + print(2) + print(28 + text.size() + body.size()) + print(text.size()) + "JSON" + text +
           print(body.size()) + std::string("BIN\0", 4) + body;
  }
};

/// Two nodes that show a square from -1 to 1, "moved" at its place and "beside".
GltfFile make_squares() {
  GltfFile file;
  const int position = file.add("VEC3", {-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0});
  const int corners = file.add("SCALAR", {0, 1, 2, 0, 2, 3}, 5125);
  file.json["meshes"] = {{{"primitives", {{{"attributes", {{"POSITION", position}}}, {"indices", corners}}}}}};
  file.json["nodes"] = {{{"name", "moved"}, {"mesh", 0}},
                        {{"name", "beside"}, {"mesh", 0}, {"translation", {9, 0, 0}}}};
  return file;
}
constexpr Triangle lower_right = {{{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}}};  // polygon 0 of the square

/// "moved" hangs on two bones, "root" and one above it "tip", which hold each vertex by `weight`. The place of its node
/// must not count then.
GltfFile make_skinned(double weight) {
  GltfFile file = make_squares();
  const Json tip = {{"name", "tip"}, {"translation", {0, 1, 0}}};
  file.json["nodes"].insert(file.json["nodes"].end(), {Json{{"name", "root"}, {"children", {3}}}, tip});
  file.json["scenes"][0]["nodes"] = {0, 1, 2};
  std::vector<double> joints, weights;
  for (int vertex = 0; vertex < 4; ++vertex) {
    joints.insert(joints.end(), {0, 1, 0, 0});
    weights.insert(weights.end(), {weight, weight, 0, 0});
  }
  const int inverse = file.add(
      "MAT4", {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -1, 0, 1});
  file.json["meshes"].push_back(file.json["meshes"][0]);
  Json& attributes = file.json["meshes"][1]["primitives"][0]["attributes"];
  attributes["WEIGHTS_0"] = file.add("VEC4", weights);
  attributes["JOINTS_0"] = file.add("VEC4", joints, 5121);
  file.json["skins"] = {{{"joints", {2, 3}}, {"inverseBindMatrices", inverse}}};
  file.json["nodes"][0] = {{"name", "moved"}, {"mesh", 1}, {"skin", 0}, {"translation", {0, 0, 30}}};
  return file;
}

Point transform(const Matrix& m, const Point& p) {
  Point out = m[3];
  for (int k = 0; k < 9; ++k) out[k % 3] += m[k / 3][k % 3] * p[k / 3];
  return out;
}
Triangle transform(const Matrix& m, const Triangle& t) {
  return {transform(m, t[0]), transform(m, t[1]), transform(m, t[2])};
}
Matrix move(const Point& to) { return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, to}}; }
Matrix scale(const Point& by) { return {{{by[0], 0, 0}, {0, by[1], 0}, {0, 0, by[2]}, {}}}; }
Matrix turn(double angle) {
  return {{{std::cos(angle), std::sin(angle), 0}, {-std::sin(angle), std::cos(angle), 0}, {0, 0, 1}, {}}};
}
Json turn_quaternion(double angle) { return {0, 0, std::sin(angle / 2), std::cos(angle / 2)}; }

/// Aims at the point of weights 0.5, 0.3, 0.2 of each triangle at its frame. A hit is null where nothing is hit.
std::vector<Json> aim(const TestFolder& folder, const std::string& name,
                      const std::vector<std::pair<Triangle, double>>& targets, const std::string& rate = "24",
                      const std::vector<std::string>& options = {}) {
  std::ostringstream rays;
  rays.precision(17);
  const Point direction = {0.2, -0.1, -1.0};
  for (const auto& [t, frame] : targets) {
    for (int k = 0; k < 3; ++k) rays << 0.5 * t[0][k] + 0.3 * t[1][k] + 0.2 * t[2][k] - 5.0 * direction[k] << ',';
    rays << "0.2,-0.1,-1,0,100," << frame << '\n';
  }
  std::vector<std::string> line = {"trace", name, "--format", "json", "--fps", rate};
  line.insert(line.end(), options.begin(), options.end());
  const ProgramResult result = run_vqgas(folder.get_path(), line, rays.str());
  EXPECT_EQ(result.exit_code, 0) << result.err;
  std::vector<Json> hits(targets.size());
  const Json report = Json::parse(result.out, nullptr, false);
  for (std::size_t k = 0; k < hits.size() && result.exit_code == 0; ++k) {
    const Json& found = report["rays"][k]["hits"];
    if (!found.empty()) hits[k] = found[0];
  }
  return hits;
}

void expect_there(const Json& hit, const std::string& object) {
  ASSERT_TRUE(hit.is_object());
  EXPECT_EQ(hit["object"], object);
  EXPECT_NEAR(hit["distance"], 5.0, 1e-5);
  EXPECT_NEAR(hit["u"], 0.3, 1e-5);
  EXPECT_NEAR(hit["v"], 0.2, 1e-5);
}

}  // namespace

TEST(VqgasSceneImport, nodes_stand_at_the_product_of_their_matrices_and_share_meshes) {
  GltfFile file = make_squares();
  file.json["nodes"] = {
      {{"name", "base"}, {"translation", {3, 1, 2}}, {"rotation", turn_quaternion(0.7)}, {"children", {2}}},
      {{"name", "aside"}, {"mesh", 0}, {"translation", {99, 0, 0}}},
      {{"name", "arm"}, {"mesh", 0}, {"scale", {2, -0.5, 3}}, {"translation", {0, 4, 0}}, {"children", {3}}},
      {{"name", "hand"}, {"mesh", 1}, {"rotation", turn_quaternion(-1.9)}, {"translation", {2, 3, 1}}}};
  Json& meshes = file.json["meshes"];
  meshes.push_back(meshes[0]);  // of two primitives, the first somewhere else
  meshes[1]["primitives"].push_back(meshes[0]["primitives"][0]);
  meshes[1]["primitives"][0]["attributes"]["POSITION"] = file.add("VEC3", {50, 0, 0, 51, 0, 0, 51, 1, 0, 50, 1, 0});
  const TestFolder folder;
  file.write(folder, "tree.gltf");
  const auto arm = [&](const Triangle& t) {
    return transform(move({3, 1, 2}),
                     transform(turn(0.7), transform(move({0, 4, 0}), transform(scale({2, -0.5, 3}), t))));
  };
  const Triangle in_arm = transform(move({2, 3, 1}), transform(turn(-1.9), lower_right));
  const std::vector<Json> hits = aim(
      folder, "tree.gltf", {{transform(move({99, 0, 0}), lower_right), 0}, {arm(lower_right), 0}, {arm(in_arm), 0}});
  expect_there(hits[0], "aside");
  expect_there(hits[1], "arm");
  expect_there(hits[2], "hand");
  EXPECT_EQ(hits[0]["primitive"], hits[1]["primitive"]);
  EXPECT_EQ(hits[2]["primitive"], 4);  // two polygons are shared, and two come before it in its own mesh
}

TEST(VqgasSceneImport, what_grows_from_nothing_is_there_and_other_rays_do_not_coarsen_a_turn) {
  GltfFile file = make_squares();
  file.animate(0, "scale", {0, 1}, "VEC3", {0, 0, 0, 1, 1, 1});
  file.animate(1, "rotation", {0, 1, 2}, "VEC4", {0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, -1});  // a turn in two seconds
  const TestFolder folder;
  file.write(folder, "grow.gltf");
  const Triangle nothing = {{{77, 0, 0}, {77, 0, 0}, {77, 0, 0}}};
  const Triangle turned = transform(move({9, 0, 0}), transform(turn(std::numbers::pi * 7 / 24), lower_right));
  const std::vector<Json> hits =
      aim(folder, "grow.gltf",
          {{nothing, 0}, {transform(scale({0.5, 0.5, 0.5}), lower_right), 12}, {turned, 7}, {nothing, 16}});
  expect_there(hits[1], "moved");
  expect_there(hits[2], "beside");

  const Json report =
      Json::parse(run_vqgas(folder.get_path(), {"info", "grow.gltf", "--frame", "5", "--json", "-"}).out);
  for (const Json& object : report[0]["scene_tree"]["objects"]) EXPECT_TRUE(object["moves"].get<bool>()) << object;
}

TEST(VqgasSceneImport, nodes_move_over_the_frames_with_what_hangs_from_them) {
  GltfFile file = make_squares();
  file.json["nodes"] = {{{"name", "base"}, {"translation", {1, 0, 0}}, {"scale", {1, 2, 1}}, {"children", {1}}},
                        {{"name", "arm"}, {"mesh", 0}, {"children", {2}}},
                        {{"name", "hand"}, {"mesh", 0}, {"translation", {0, 7, 0}}}};
  file.json["scenes"][0]["nodes"] = {0};
  file.animate(0, "rotation", {0.1, 1.1}, "VEC4", {0, 0, 0, 1, 0, 0, 1, 0});  // half a turn in a second
  file.animate(1, "translation", {0.35, 0.6, 1.1}, "VEC3", {4, 0, 0, 4, 0, 0, 4, 0, 8});
  // An animation each; they are played together. A third one that also moves the arm is not.
  Json& animations = file.json["animations"];
  animations = {animations[0], animations[0], animations[0]};
  animations[0]["channels"].erase(1);
  animations[1]["channels"].erase(0);
  animations[2]["channels"] = {{{"sampler", 0}, {"target", {{"node", 1}, {"path", "rotation"}}}},
                               {{"sampler", 0}, {"target", {{"node", 2}, {"path", "rotation"}}}}};
  const TestFolder folder;
  file.write(folder, "turn.gltf");
  std::vector<std::pair<Triangle, double>> arms, hands;
  for (int sample = 0; sample <= 8; ++sample) {
    const double frame = 1.5 * sample;  // where motion is sampled; there are ten frames a second
    const double turned = std::clamp((frame - 1) / 10, 0.0, 1.0), moved = std::clamp((frame - 6) / 5, 0.0, 1.0);
    const auto arm = [&](const Triangle& t) {
      const Triangle in_base = transform(scale({1, 2, 1}), transform(move({4, 0, 8 * moved}), t));
      return transform(move({1, 0, 0}), transform(turn(std::numbers::pi * turned), in_base));
    };
    arms.emplace_back(arm(lower_right), frame);
    hands.emplace_back(arm(transform(move({0, 7, 0}), lower_right)), frame);
  }
  for (const Json& hit : aim(folder, "turn.gltf", arms, "10")) expect_there(hit, "arm");
  for (const Json& hit : aim(folder, "turn.gltf", hands, "10")) expect_there(hit, "hand");
  // Keys from 0.1 to 1.1 seconds; the third animation, which is not played, adds none.
  const ProgramResult result =
      run_vqgas(folder.get_path(), {"info", "turn.gltf", "--fps", "10", "--json", "-", "--quiet"});
  const Json info = Json::parse(result.out)[0];
  EXPECT_NEAR(info["first_frame"].get<double>(), 1.0, 1e-5);
  EXPECT_NEAR(info["last_frame"].get<double>(), 11.0, 1e-5);
  EXPECT_FALSE(info.contains("not_shown"));
}

TEST(VqgasSceneImport, what_pictures_leave_out_is_said_once_a_file) {
  const TestFolder folder;
  folder.write("m.mtl", "newmtl paint\nKd 1 0 0\nmap_Kd paint.png\nd 0.5\n");
  folder.write("painted.obj", "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl paint\nf 1 2 3\n");
  const std::vector<std::string> line = {"render", "painted.obj", "-o", "p.png", "--size", "8x8", "--samples", "1"};
  const ProgramResult shown = run_vqgas(folder.get_path(), line);
  EXPECT_EQ(shown.exit_code, 0);
  EXPECT_NE(shown.err.find("vqgas: painted.obj: textures and transparency of the file are not shown\n"),
            std::string::npos)
      << shown.err;
  const ProgramResult info = run_vqgas(folder.get_path(), {"info", "painted.obj", "--json", "-", "--quiet"});
  EXPECT_EQ(Json::parse(info.out)[0]["not_shown"], Json({"textures", "transparency"}));
  EXPECT_FALSE(Json::parse(info.out)[0].contains("first_frame"));
}

TEST(VqgasSceneImport, an_obj_file_may_have_blanks_comments_and_numbers_of_any_form) {
  const TestFolder folder;
  const std::string faces = "vt .5 .25\nvn .0 .0 1\nf 1/1/1 2/1/1 3/1/1 # of 2\nf 2/1/1 4/1/1 3/1/1\n";
  folder.write("square.obj", "# from C:\\\nv 0 .0 0\nv .5 0 -.5\n  v 0 \\\n.25 .5\nv\t1e0 +.75 .5e1 # .9\n" + faces);
  const ProgramResult info = run_vqgas(folder.get_path(), {"info", "square.obj", "--json", "-", "--quiet"});
  ASSERT_EQ(info.exit_code, 0) << info.err;
  EXPECT_EQ(Json::parse(info.out)[0]["primitives"]["kept"], 2);
  EXPECT_EQ(Json::parse(info.out)[0]["box"], Json({{"min", {0.0, 0.0, -0.5}}, {"max", {1.0, 0.75, 5.0}}}));
}

TEST(VqgasSceneImport, morph_targets_and_bones_move_vertices) {
  GltfFile morph = make_squares(), skin = make_skinned(0.5);
  morph.json["meshes"][0]["primitives"][0]["targets"] = {
      {{"POSITION", morph.add("VEC3", {0, 0, 0, 0, 0, 0, 0, 2, 4, 0, 2, 4})}}};
  morph.json["meshes"][0]["primitives"][0]["attributes"]["TEXCOORD_0"] = morph.add("VEC2", {0, 0, 1, 0, 1, 1, 0, 1});
  morph.animate(0, "weights", {0.125, 1}, "SCALAR", {0, 1});
  skin.animate(3, "rotation", {0, 1}, "VEC4", {0, 0, 0, 1, 0, 0, std::sqrt(0.5), std::sqrt(0.5)});
  const TestFolder folder;
  morph.write(folder, "morph.gltf");
  skin.write(folder, "skin.gltf");
  write_png(folder.get_path() / "white.png", 1, {255});
  std::vector<std::pair<Triangle, double>> lifted, displaced, bent;
  for (const double frame : {0.0, 3.0, 12.0, 24.0}) {
    const double part = frame / 24, lift = std::max((frame - 3) / 21, 0.0);
    lifted.push_back({Triangle{{{-1, -1, 0}, {1, -1, 0}, {1, 1 + 2 * lift, 4 * lift}}}, frame});
    const double slope = std::hypot(4 * lift, 2 + 2 * lift), up = 0.25 * (2 + 2 * lift) / slope;
    displaced.push_back({transform(move({0, -lift / slope, up}), lifted.back().first), frame});
    // Half where it was, half turned about the tip.
    Triangle half = transform(move({0, 1, 0}),
                              transform(turn(part * std::numbers::pi / 2), transform(move({0, -1, 0}), lower_right)));
    for (int k = 0; k < 9; ++k) half[k / 3][k % 3] = (half[k / 3][k % 3] + lower_right[k / 3][k % 3]) / 2;
    bent.push_back({half, frame});
  }
  for (const Json& hit : aim(folder, "morph.gltf", lifted)) expect_there(hit, "moved");
  for (const std::string structure : {"bvh4", "grid"})
    for (const Json& hit : aim(folder, "morph.gltf", displaced, "24",
                               {"--displace", "white.png", "--bound", "0.25", "--rate", "1", "--structure", structure}))
      expect_there(hit, "moved");
  for (const Json& hit : aim(folder, "skin.gltf", bent)) expect_there(hit, "moved");
  expect_there(aim(folder, "skin.gltf", {bent[1]})[0], "moved");  // at a moment of its own
}

TEST(VqgasSceneImport, what_is_broken_is_left_out_or_told) {
  using Changes = std::vector<std::pair<std::string, Json>>;
  const TestFolder folder;
  const auto write = [&](const std::string& name, GltfFile file, const Changes& changes) {
    for (const auto& [place, value] : changes) file.json[Json::json_pointer(place)] = value;
    file.write(folder, name);
  };
  const Triangle there = lower_right, above = transform(move({0, 0, 30}), there),
                 aside = transform(move({9, 0, 0}), there);
  const auto check = [&](const std::string& name, const GltfFile& file, const Changes& changes, const Triangle* moved) {
    SCOPED_TRACE(name);
    write(name, file, changes);
    const std::vector<Json> hits = aim(folder, name, {{moved != nullptr ? *moved : there, 24}, {aside, 24}});
    if (moved != nullptr) expect_there(hits[0], "moved");
    EXPECT_EQ(hits[0].is_null(), moved == nullptr);
    expect_there(hits[1], "beside");
  };
  const auto animated = [](const std::string& path, const std::vector<double>& seconds, const std::string& type,
                           const std::vector<double>& values) {
    GltfFile file = make_squares();
    file.animate(0, path, seconds, type, values);
    return file;
  };
  const auto moving = [&](const std::vector<double>& seconds, const std::vector<double>& places) {
    return animated("translation", seconds, "VEC3", places);
  };
  const GltfFile plain = make_squares();
  check("singular.gltf", plain, {{"/nodes/0/scale", {0, 1, 1}}}, nullptr);
  check("infinite.gltf", plain, {{"/nodes/0/scale", {1e300, 1, 1}}}, nullptr);
  check("no_numbers.gltf", moving({NAN, 1}, {5, 5, 5, NAN, 0, 0}), {{"/nodes/0/translation", {0, 0, 30}}}, &above);
  check("no_keys.gltf", moving({}, {}), {}, &there);
  check("unsorted.gltf", moving({1, 0, 2, 1}, {5, 5, 5, 6, 6, 6, 0, 0, 90, 0, 0, 30}), {}, &above);
  check("far_keys.gltf", moving({-1e30, 1e30}, {0, 0, 0, 0, 0, 60}), {}, &above);
  check("no_morph_target.gltf", animated("weights", {0, 1}, "SCALAR", {0, 1}), {}, &there);
  Json points = plain.json["meshes"][0];
  points["primitives"][0]["mode"] = 0;
  check("no_polygon.gltf", plain, {{"/meshes/1", points}, {"/nodes/0/mesh", 1}}, nullptr);
  check("heavy.gltf", make_skinned(3), {}, &there);
  check("weightless.gltf", make_skinned(0), {}, &above);
  check("lost_bones.gltf", make_skinned(1), {{"/scenes/0/nodes", {0, 1}}}, &above);
  // The importer itself breaks down without inverse bind matrices, which are identities then.
  const Triangle lifted = transform(move({0, 0.5, 0}), there);
  const Json no_inverse = {{"joints", {2, 3}}};
  check("no_inverse.gltf", make_skinned(1), {{"/skins/0", no_inverse}}, &lifted);
  check("no_inverse.glb", make_skinned(1), {{"/skins/0", no_inverse}}, &lifted);

  write("no_mesh.gltf", plain, {{"/nodes/0/mesh", 7}});
  write("cycle.gltf", plain, {{"/nodes/0/children", Json{0}}});
  for (const std::string name : {"no_mesh.gltf", "cycle.gltf"}) {
    const ProgramResult result = run_vqgas(folder.get_path(), {"info", name});
    EXPECT_EQ(result.exit_code, 1) << name;
    EXPECT_EQ(result.count_error_lines(), 1u) << result.err;
    EXPECT_NE(result.err.find(name), std::string::npos) << result.err;
  }
}

TEST(VqgasSceneImport, info_tells_of_each_object_what_became_of_it) {
  GltfFile file = make_squares();
  Json dots = file.json["meshes"][0], lost = dots;
  dots["primitives"][0]["mode"] = 0;
  lost["primitives"][0]["attributes"]["POSITION"] = file.add("VEC3", {NAN, 0, 0, 1, NAN, 0, 1, 1, NAN, NAN, NAN, NAN});
  file.json["meshes"].insert(file.json["meshes"].end(), {dots, lost});
  const std::vector<Json> nodes = {{{"name", "shown"}, {"mesh", 0}},
                                   {{"name", "flat"}, {"mesh", 0}, {"scale", {1, 0, 1}}},
                                   {{"name", "dots"}, {"mesh", 1}},
                                   {{"name", "lost"}, {"mesh", 2}},
                                   {{"name", "again"}, {"mesh", 0}, {"translation", {9, 0, 0}}}};
  file.json["nodes"] = nodes;
  file.json["scenes"][0]["nodes"] = {0, 1, 2, 3, 4};
  const TestFolder folder;
  file.write(folder, "scene.gltf");
  const ProgramResult result = run_vqgas(folder.get_path(), {"info", "scene.gltf", "--json", "-", "--quiet"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json report = Json::parse(result.out)[0], objects = report["scene_tree"]["objects"];
  const std::vector<Json> reasons = {nullptr, "singular matrix", "no clusters", "no clusters", nullptr};
  ASSERT_EQ(objects.size(), nodes.size());
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    EXPECT_EQ(objects[k]["name"], nodes[k]["name"]);
    EXPECT_EQ(objects[k].value("left_out", Json()), reasons[k]) << objects[k];
    EXPECT_EQ(objects[k]["clusters"] == 0, !reasons[k].is_null());
  }
  EXPECT_EQ(report["shapes"][0]["shown"], 3);
  EXPECT_EQ(report["scene_tree"]["geometries"], 2);
  EXPECT_EQ(report["scene_tree"]["primitives"], 4);
}
