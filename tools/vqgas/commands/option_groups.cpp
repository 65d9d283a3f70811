#include "tools/vqgas/commands/option_groups.h"

#include <charconv>
#include <cmath>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Replaces other names of standard output by "-".
std::string name_standard_output(const std::string& path) {
  const bool is_standard_output = path == "/dev/stdout" || path == "/dev/fd/1" || path == "/proc/self/fd/1";
  return is_standard_output ? "-" : path;
}

/// The library's own checks accept NaN and print ranges with 300 digits.
template <class IsValid>
CLI::Validator make_number_check(const std::string& kind, const IsValid& is_valid, const std::string& mark) {
  const auto check = [kind, is_valid](const std::string& text) {
    const std::vector<double> values = parse_numbers(text, ',');
    return values.size() == 1 && is_valid(values[0]) ? std::string() : "'" + text + "' is not " + kind;
  };
  return CLI::Validator(check, mark);
}

/// Reads --size.
void read_size(const std::string& text, uint& width, uint& height) {
  const std::vector<double> values = parse_numbers(text, 'x');
  const auto is_side = [](double value) { return value >= 1.0 && value <= 16384.0 && value == std::floor(value); };
  if (values.size() != 2 || !is_side(values[0]) || !is_side(values[1]))
    throw UsageError("--size: '" + text + "' is not WIDTHxHEIGHT with sides from 1 to 16384");
  width = static_cast<uint>(values[0]);
  height = static_cast<uint>(values[1]);
}

}  // namespace

CLI::Validator is_finite_number() {
  return make_number_check(
      "a finite number", [](double value) { return std::isfinite(value); }, "");
}

CLI::Validator is_positive_number() {
  return make_number_check(
      "a positive number", [](double value) { return std::isfinite(value) && value > 0.0; }, "POSITIVE");
}

CLI::Validator is_number_within(double low, double high) {
  const std::string range = print_number(low) + " to " + print_number(high);
  return make_number_check(
      "a number from " + range, [low, high](double value) { return value >= low && value <= high; }, range);
}

CLI::Validator is_whole_within(u64 low, u64 high) {
  const std::string range = std::to_string(low) + " to " + std::to_string(high);
  const auto check = [low, high, range](const std::string& text) {
    u64 value = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool is_valid = read.ec == std::errc() && read.ptr == text.data() + text.size();
    return is_valid && value >= low && value <= high ? std::string()
                                                     : "'" + text + "' is not a whole number from " + range;
  };
  return CLI::Validator(check, range);
}

CLI::Validator is_view() {
  const auto check = [](const std::string& text) {
    GMathVec3<double> back, up;
    return find_view(text, back, up)
               ? std::string()
               : "'" + text + "' is none of " + view_names + ", nor an azimuth and an elevation from -90 to 90";
  };
  return CLI::Validator(check, "");
}

std::string get_file_help() {
  return "Scene and mesh files (glTF, FBX, Collada, OBJ, PLY, STL, ...), hair files (.hair of the cyHair format; "
         ".curves or .txt with x y z radius a line and an empty line between strands), point clouds (.ply without "
         "faces, .xyz, .pts, .csv), scatter files (.json) or built-in scenes: demo:NAME "
         "with NAME one of " +
         list_demo_scenes();
}

void add_common_options(CLI::App& command, CommonOptions& options, const std::string& json_help) {
  command.add_option("--threads", options.threads, "Threads to work with; without it, as many as the machine runs")
      ->check(is_whole_within(1, 1024));
  command.add_flag("--quiet", options.quiet, "No progress, no messages");
  command.add_option("--json", options.json, json_help)->type_name("FILE")->transform(name_standard_output);
}

void add_shape_options(CLI::App& command, ShapeSettings& shapes) {
  const auto set_structure = [&shapes](const std::string& name) {
    shapes.structure = name == "grid" ? MeshStructure::grid : MeshStructure::bvh4;
  };
  command
      .add_option_function<std::string>("--structure", set_structure,
                                        "Over meshes. bvh4: a tree with four children a node, built at once; grid: "
                                        "parts that are built when a query first reaches them")
      ->check(CLI::IsMember({"bvh4", "grid"}))
      ->default_str("bvh4, but grid for demo:cliffs");
  HairSettings& hair = shapes.hair;
  command.add_flag("--linear", hair.is_linear, "Hair as straight pieces from point to point, not as smooth curves");
  command.add_flag("--aligned-only", hair.is_aligned_only, "Hair without oriented nodes, for comparison");
}

void add_displacement_options(CLI::App& command, DisplaceOptions& displace, const std::string& what) {
  CLI::Option* height = command
                            .add_option("--displace", displace.height,
                                        "Displace " + what +
                                            " along the normals: by noise, or by a gray PNG file of "
                                            "8 or 16 bits over the first UV map (black is inwards, white outwards)")
                            ->type_name("HEIGHT.png|noise");
  command
      .add_option("--bound", displace.bound,
                  "Largest displacement, in the mesh's own units; without it 2 % of the diagonal of each mesh")
      ->check(is_positive_number())
      ->needs(height);
  command.add_option("--rate", displace.rate, "Parts into which displacement cuts each edge of a polygon")
      ->capture_default_str()
      ->check(is_whole_within(1, DisplacedMeshSettings::most_rate))
      ->needs(height);
}

void add_displace_options(CLI::App& command, DisplaceOptions& displace) {
  add_displacement_options(command, displace, "all meshes");
  command
      .add_option(
          "--cache", displace.cache,
          "Megabytes of micro-triangles kept at most; without it a quarter of the machine's memory. Too few are "
          "computed again and again, which is slow")
      ->check(is_whole_within(0, 16777216))
      ->type_name("MB");
}

void add_view_options(CLI::App& command, ViewOptions& options, ViewTexts& texts) {
  texts.size = std::to_string(options.width) + "x" + std::to_string(options.height);
  command
      .add_option("--view", options.view,
                  std::string("Frame everything from here: ") + view_names +
                      ", or an azimuth from the front to the right and an elevation, in degrees")
      ->capture_default_str()
      ->check(is_view())
      ->type_name("VIEW|AZIMUTH,ELEVATION");
  command
      .add_option_function<std::string>(
          "--up", [&options](const std::string& axis) { options.up_axis = static_cast<uint>(axis[0] - 'x'); },
          "The scene's upward axis, for views, light and floor. With z, front looks along y, as most programs for "
          "construction have it")
      ->check(CLI::IsMember({"x", "y", "z"}))
      ->default_str("y");
  command
      .add_option("--camera", texts.camera,
                  "Instead of a view: eye, target, up vector, vertical field of view in degrees")
      ->type_name("ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  command.add_option("--size", texts.size, "Picture size in pixels")->capture_default_str()->type_name("WxH");
}

void complete_view(const CLI::App& command, const ViewTexts& texts, ViewOptions& options) {
  read_size(texts.size, options.width, options.height);
  if (texts.camera.empty()) return;
  if (command.count("--view") > 0) throw UsageError("--view: has no effect with --camera");
  options.camera = parse_camera(texts.camera);
  options.camera->up_axis = options.up_axis;
}

void add_fps_option(CLI::App& command, double& frames_per_second) {
  command.add_option("--fps", frames_per_second, "Frames per second, for files with times in seconds")
      ->capture_default_str()
      ->check(is_positive_number());
}

void add_frame_option(CLI::App& command, double& frame) {
  command.add_option("--frame", frame, "Frame at which objects stand")
      ->capture_default_str()
      ->check(is_finite_number());
}

void add_scene_options(CLI::App& command, SceneOptions& options) {
  command.add_flag(
      "--bundle", options.is_bundled,
      "Put the objects that share a mesh or hair into one bundle of instances, instead of one object each");
  add_fps_option(command, options.frames_per_second);
}

void add_format_option(CLI::App& command, AnswerFormat& format) {
  const auto set = [&format](const std::string& name) {
    format = name == "json" ? AnswerFormat::json : name == "table" ? AnswerFormat::table : AnswerFormat::csv;
  };
  command
      .add_option_function<std::string>("--format", set,
                                        "Of standard output; table: the columns of csv, aligned and rounded")
      ->check(CLI::IsMember({"csv", "json", "table"}))
      ->default_str("csv");
}
