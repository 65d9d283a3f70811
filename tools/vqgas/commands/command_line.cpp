#include "tools/vqgas/commands/command_line.h"

#include <CLI/CLI.hpp>

#include <cmath>

#include "tools/vqgas/commands/beam_input.h"
#include "tools/vqgas/commands/trace_rays.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/import/point_write.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Options as text, before they are parsed.
struct RenderTexts {
  std::string camera, size = "960x540", shutter;
  std::vector<std::string> layers = {"beauty"};
};

struct SelectTexts {
  std::string mode = "any", camera, size = "960x540", rect, box;
};

/// Replaces other names of standard output by "-".
std::string name_standard_output(const std::string& path) {
  const bool is_standard_output = path == "/dev/stdout" || path == "/dev/fd/1" || path == "/proc/self/fd/1";
  return is_standard_output ? "-" : path;
}

void add_common_options(CLI::App& command, CommonOptions& options, const std::string& json_help) {
  command.add_option("--threads", options.threads, "Threads to work with; without it, as many as the machine runs")
      ->check(CLI::Range(1u, 1024u));
  command.add_flag("--quiet", options.quiet, "No progress, no messages");
  command.add_option("--json", options.json, json_help)->type_name("FILE")->transform(name_standard_output);
}

/// The library's own checks accept NaN and print ranges with 300 digits.
CLI::Validator make_number_check(const std::string& kind, bool (*is_valid)(double), const std::string& mark) {
  const auto check = [kind, is_valid](const std::string& text) {
    const std::vector<double> values = parse_numbers(text, ',');
    return values.size() == 1 && is_valid(values[0]) ? std::string() : "'" + text + "' is not " + kind;
  };
  return CLI::Validator(check, mark);
}

CLI::Validator is_finite_number() {
  return make_number_check(
      "a finite number", [](double value) { return std::isfinite(value); }, "");
}

CLI::Validator is_positive_number() {
  return make_number_check(
      "a positive number", [](double value) { return std::isfinite(value) && value > 0.0; }, "POSITIVE");
}

std::string get_file_help() {
  return "Scene and mesh files (glTF, FBX, Collada, OBJ, PLY, STL, ...), hair files (.hair of the cyHair format; "
         ".curves or .txt with x y z radius a line and an empty line between strands), point clouds (.ply without "
         "faces, .xyz, .pts, .csv), scatter files (.json) or built-in scenes: demo:NAME "
         "with NAME one of " +
         list_demo_scenes();
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

void add_displace_options(CLI::App& command, DisplaceOptions& displace) {
  CLI::Option* height = command
                            .add_option("--displace", displace.height,
                                        "Displace all meshes along their normals: by noise, or by a gray PNG file of 8 "
                                        "or 16 bits over the first UV map (black is inwards, white outwards)")
                            ->type_name("HEIGHT.png|noise");
  command
      .add_option("--bound", displace.bound,
                  "Largest displacement, in the mesh's own units; without it 2 % of the diagonal of each mesh")
      ->check(is_positive_number())
      ->needs(height);
  command.add_option("--rate", displace.rate, "Parts into which displacement cuts each edge of a polygon")
      ->capture_default_str()
      ->check(CLI::Range(1u, DisplacedMeshSettings::most_rate))
      ->needs(height);
  command
      .add_option(
          "--cache", displace.cache,
          "Megabytes of micro-triangles kept at most; without it a quarter of the machine's memory. Too few are "
          "computed again and again, which is slow")
      ->check(CLI::Range(0u, 16777216u))
      ->type_name("MB");
}

const CLI::IsMember& is_view() {
  static const CLI::IsMember member({"front", "side", "top", "three-quarter"});
  return member;
}

void add_view_options(CLI::App& command, std::string& view, std::string& camera, std::string& size) {
  command.add_option("--view", view, "Frame everything from here")->capture_default_str()->check(is_view());
  command
      .add_option("--camera", camera, "Instead of a view: eye, target, up vector, vertical field of view in degrees")
      ->type_name("ex,ey,ez/tx,ty,tz/ux,uy,uz/fov");
  command.add_option("--size", size, "Picture size in pixels")->capture_default_str()->type_name("WxH");
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

void add_info(CLI::App& app, InfoOptions& options) {
  CLI::App* command = app.add_subcommand("info", "Build the structure over each file and report its statistics");
  command->add_option("FILE", options.files, get_file_help())->required();
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the numbers as JSON; - is standard output, instead of the table");
  command->footer("Example:\n  vqgas info bunny.obj demo:terrain --threads 2 --json report.json");
}

void add_render(CLI::App& app, RenderOptions& options, RenderTexts& texts) {
  CLI::App* command = app.add_subcommand("render", "Render the files, together, to PNG and EXR pictures");
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option("-o,--output", options.outputs, "NAME.png (one file a layer) or NAME.exr (all layers); repeatable")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME");
  add_view_options(*command, options.view, texts.camera, texts.size);
  command->add_option("--samples", options.samples, "Rays per pixel of beauty")
      ->capture_default_str()
      ->check(CLI::Range(1u, 65536u));
  command->add_option("--layers", texts.layers, "Any of " + list_layers())
      ->delimiter(',')
      ->allow_extra_args(false)
      ->capture_default_str()
      ->type_name("LAYER,...");
  command
      ->add_option("--frame", options.frame,
                   "Show the scene at this frame; without it and a shutter, deforming meshes and hair are static")
      ->type_name("F")
      ->check(is_finite_number());
  command
      ->add_option("--shutter", texts.shutter,
                   "Motion blur between these times, in frames from --frame on (built-in scenes move from 0 to 1)")
      ->type_name("OPEN,CLOSE");
  command
      ->add_option("--motion-samples", options.motion_samples,
                   "Samples of motion over the shutter, at least; without it, as many as look smooth")
      ->check(CLI::Range(2u, 1024u))
      ->type_name("N");
  command
      ->add_option("--overview", options.overview,
                   "See the layer parts from this view or camera instead, after the rays of the picture: parts that "
                   "they have not built are gray")
      ->check([](const std::string& text) { return text.find('/') == text.npos ? is_view()(text) : std::string(); })
      ->type_name("VIEW|CAMERA");
  command
      ->add_option("--point-size", options.point_size,
                   "Diameter of points in pixels; without it by their radius, or, if the file has none, as wide as "
                   "closes the gaps between them: 1 to 6 pixels")
      ->check(is_positive_number())
      ->type_name("PX");
  add_scene_options(*command, options);
  command->add_flag("--floor", options.has_floor, "Stand the scene on an endless floor (beauty only)");
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "Example:\n  vqgas render bunny.obj --view front --layers beauty,depth,heat -o bunny.png -o bunny.exr\n"
      "  vqgas render demo:wave --shutter 0,0.5 --samples 64 -o wave.png\n"
      "  vqgas render bunny.obj fur.hair --layers beauty,heat -o furry.png");
}

void add_trace(CLI::App& app, TraceOptions& options, std::string& format) {
  CLI::App* command = app.add_subcommand(
      "trace", "Shoot single rays and print what they hit, as CSV with the header\n" + std::string(trace_csv_header));
  command->add_option("FILE", options.file, get_file_help())->required();
  command
      ->add_option("--ray", options.rays, "A ray; repeatable. Without it rays are read from standard input, one a line")
      ->allow_extra_args(false)
      ->type_name("ox,oy,oz,dx,dy,dz[,tnear,tfar[,time]]");
  command->add_flag("--all", options.all, "All hits of each ray, nearest first, instead of the nearest");
  command->add_option("--format", format, "csv or json")->capture_default_str()->check(CLI::IsMember({"csv", "json"}));
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the hits as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Rays count from 0, distances are in units of the ray's direction, primitive is the polygon's number, shape by\n"
      "shape in the order of the file, group the number of its shading group, u and v the barycentric weights of the\n"
      "second and third corner of the triangle that was hit, nx,ny,nz the unit normal of the polygon as wound, path\n"
      "the numbers of the object and of those in its groups. A miss is a row with the ray's number.\n"
      "Of hair the primitive is the segment, u runs along it, v around it, and the normal points outwards.\n"
      "Example:\n  vqgas trace bunny.obj --ray 0,0.1,1,0,0,-1 --all\n  vqgas trace demo:knot <rays.csv >hits.csv");
}

void add_beam(CLI::App& app, BeamOptions& options, std::string& format) {
  CLI::App* command = app.add_subcommand(
      "beam", "Cast single beams at point clouds and print the nearest point in each, as CSV with the header\n" +
                  std::string(beam_csv_header));
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option("--beam", options.beams,
                   "A beam; repeatable. Without it beams are read from standard input, one a line")
      ->allow_extra_args(false)
      ->type_name("ox,oy,oz,dx,dy,dz,SIZE[,tnear,tfar]");
  command->add_flag("--parallel", options.is_parallel,
                    "Beams of constant width: SIZE is the width; without it the angle in degrees");
  command
      ->add_option("--edge", options.edge,
                   "Points in the border of a beam, 0.5 / EDGE of its width, have another weight: 1 on the border, "
                   "falling to 0 at the border's inner end")
      ->capture_default_str()
      ->check(is_positive_number());
  add_frame_option(*command, options.frame);
  add_fps_option(*command, options.frames_per_second);
  command->add_option("--format", format, "csv or json")->capture_default_str()->check(CLI::IsMember({"csv", "json"}));
  add_common_options(*command, options, "Write the points as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Beams count from 0, t is in units of the direction, object and point are the numbers of the object and of the\n"
      "point in its cloud. A beam without a point is a row with its number. The cross-section is a square with "
      "upright\n"
      "sides; instead of SIZE a beam may have four corners in a ring, as x,y,z each: directions from the origin, or\n"
      "with --parallel offsets.\n"
      "Example:\n  vqgas beam scan.ply --beam 0,0.1,1,0,0,-1,0.5\n  vqgas beam demo:galaxy <beams.csv >points.csv");
}

void add_select(CLI::App& app, SelectOptions& options, SelectTexts& texts) {
  CLI::App* command = app.add_subcommand("select",
                                         "List the scene's objects or points in a rectangle of a picture, or in a box, "
                                         "as CSV with the header\nobject,name");
  command->add_option("FILE", options.files, get_file_help())->required();
  command
      ->add_option(
          "--mode", texts.mode,
          "any: objects that the space touches; all: those that lie wholly in it; of clouds: those with any, or "
          "all points in it. points: the points of clouds in it, as x,y,z; vertices: as object,point,x,y,z")
      ->capture_default_str()
      ->check(CLI::IsMember({"any", "all", "points", "vertices"}));
  CLI::Option* rect =
      command->add_option("--rect", texts.rect, "Rectangle of the picture, in pixels; without it the whole picture")
          ->type_name("LEFT,TOP,RIGHT,BOTTOM");
  CLI::Option* near =
      command->add_option("--near", options.near, "Nothing less deep than this along the view")->capture_default_str();
  CLI::Option* far = command->add_option("--far", options.far, "Nothing deeper than this along the view");
  command->add_option("--box", texts.box, "Instead of a rectangle: a box in space")
      ->type_name("x,y,z/x,y,z")
      ->excludes(rect)
      ->excludes(near)
      ->excludes(far);
  add_view_options(*command, options.view, texts.camera, texts.size);
  command
      ->add_option(
          "-o,--output", options.outputs,
          "NAME.png: picture that shows what was selected; NAME.csv or NAME.ply: the selected points with their "
          "colors, which are then not listed. Repeatable")
      ->allow_extra_args(false)
      ->type_name("NAME");
  add_frame_option(*command, options.frame);
  add_scene_options(*command, options);
  add_shape_options(*command, options.shapes);
  add_displace_options(*command, options.displace);
  add_common_options(*command, options, "Write the list as JSON as well; - is standard output, instead of CSV");
  command->footer(
      "Objects count from 0 in the order of the files. Deforming shapes of built-in scenes are static.\n"
      "Example:\n  vqgas select scene.glb --rect 100,100,400,300 --mode all -o selected.png\n"
      "  vqgas select scan.ply --box 0,0,0/1,1,1 --mode points -o part.ply -o part.png");
}

void add_groom(CLI::App& app, GroomOptions& options) {
  GroomSettings& settings = options.settings;
  CLI::App* command = app.add_subcommand("groom", "Grow fur on a mesh and write it as a hair file");
  command->add_option("MESH", options.file, "Scene or mesh file, or built-in scene, at rest")->required();
  command->add_option("-o,--output", options.output, "Hair file, of the cyHair format")
      ->required()
      ->type_name("NAME.hair");
  CLI::Option* count = command->add_option("--strands", settings.curves, "How many strands, whatever the mesh's size")
                           ->capture_default_str()
                           ->check(CLI::Range(u64{1}, u64{0xFFFFFFFF}));
  command->add_option("--density", options.density, "Instead: strands per unit of area, in the mesh's own units")
      ->check(is_positive_number())
      ->excludes(count);
  const auto add_number = [&](const char* name, auto& value, const char* help, double low, double high) {
    command->add_option(name, value, help)->capture_default_str()->check(CLI::Range(low, high));
  };
  add_number("--length", settings.length, "Of the longest strands, in diagonals of the mesh's box", 0.0, 1000.0);
  add_number("--thickness", settings.thickness, "Diameter at the root, in diagonals; tips have a tenth", 0.0, 1000.0);
  add_number("--points", settings.points, "Points of each strand; the segments between are one less", 2, 65536);
  add_number("--curl", settings.curl, "Windings: 0 none, 1 tight locks", 0.0, 100.0);
  add_number("--lean", settings.lean, "How far neighbors bend to the same side", 0.0, 100.0);
  add_number("--gravity", settings.gravity, "How far strands hang down, towards -y", -100.0, 100.0);
  add_number("--clump", settings.clump, "How far tufts draw together: 0 not at all, 1 in a point", 0.0, 1.0);
  add_number("--seed", settings.seed, "Of the random numbers", 0, 4294967295.0);
  command->add_flag("--flip", settings.is_flipped, "Grow against the normals: for meshes that are wound inside out");
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "Roots are spread evenly over the area. The same call writes the same bytes for any number of threads.\n"
      "Example:\n  vqgas groom bunny.obj -o fur.hair --strands 200000 --length 0.04 --curl 0.5 --seed 7\n"
      "  vqgas render bunny.obj fur.hair -o furry.png");
}

void add_scatter(CLI::App& app, ScatterOptions& options, std::string& scale) {
  CLI::App* command = app.add_subcommand("scatter", "Place instances on a surface, evenly, and write a scatter file");
  command->add_option("GEOMETRY", options.geometries, "What is placed: mesh, scene and hair files, or built-in scenes")
      ->required();
  command->add_option("--on", options.ground, "The ground: a scene or mesh file, or a built-in scene, at rest")
      ->required()
      ->type_name("GROUND");
  command->add_option("-o,--output", options.output, "Scatter file")->required()->type_name("NAME.json");
  CLI::Option_group* amount = command->add_option_group("Amount");
  amount->add_option("--count", options.count, "How many instances")->check(CLI::Range(1u, most_scattered));
  amount->add_option("--density", options.density, "Instead: instances per unit of area, in the ground's own units")
      ->check(is_positive_number());
  amount->require_option(1);
  command->add_option("--seed", options.placing.seed, "Of the random numbers")->capture_default_str();
  command->add_option("--scale", scale, "Sizes of the instances, between these")
      ->type_name("MIN,MAX")
      ->default_str("1,1");
  const auto set_align = [&options](const std::string& name) { options.placing.is_aligned = name == "normal"; };
  command->add_option_function<std::string>("--align", set_align, "Where y of an instance points")
      ->check(CLI::IsMember({"normal", "up"}))
      ->default_str("up");
  command->add_option("--jitter", options.placing.tilt_degrees, "Degrees by which instances lean from there, at most")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 180.0));
  command->add_option("--sway", options.sway_degrees, "Degrees by which instances sway to each side, in motion")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 90.0));
  command->add_option("--period", options.sway_period, "Frames from one side to the other and back")
      ->capture_default_str()
      ->check(is_positive_number());
  command->add_flag("--no-ground", options.leaves_ground_out, "Do not name the ground in the file");
  add_common_options(*command, options, "Write a report as JSON; - is standard output");
  command->footer(
      "The origin of each instance stands on the ground; it is turned around its own y at random. The same call "
      "writes\n"
      "the same bytes. All subcommands read the file: the instances are one object of the scene.\n"
      "Example:\n  vqgas scatter fern.obj tuft.hair --on hill.obj --count 20000 --scale 0.5,1.5 --sway 4 -o "
      "ferns.json\n"
      "  vqgas render ferns.json --shutter 0,2 -o ferns.png");
}

void read_scatter_texts(const std::string& scale, ScatterOptions& options) {
  if (!options.output.ends_with(".json")) throw UsageError("-o: '" + options.output + "' does not end in .json");
  if (scale.empty()) return;
  const std::vector<double> v = parse_numbers(scale, ',');
  if (v.size() != 2 || !std::isfinite(v[0] + v[1]) || !(v[0] > 0.0) || v[0] > v[1])
    throw UsageError("--scale: '" + scale + "' is not MIN,MAX with MIN above 0 and not above MAX");
  options.placing.least_scale = v[0];
  options.placing.greatest_scale = v[1];
}

template <class Options>
void read_size(const std::string& text, Options& options) {
  const std::vector<double> values = parse_numbers(text, 'x');
  const auto is_side = [](double value) { return value >= 1.0 && value <= 16384.0 && value == std::floor(value); };
  if (values.size() != 2 || !is_side(values[0]) || !is_side(values[1]))
    throw UsageError("--size: '" + text + "' is not WIDTHxHEIGHT with sides from 1 to 16384");
  options.width = static_cast<uint>(values[0]);
  options.height = static_cast<uint>(values[1]);
}

void read_layers(const std::vector<std::string>& names, RenderOptions& options) {
  options.layers.clear();
  for (const std::string& name : names) {
    Layer layer;
    if (!find_layer(name, layer)) throw UsageError("--layers: there is no layer '" + name + "'");
    if (std::find(options.layers.begin(), options.layers.end(), layer) == options.layers.end())
      options.layers.push_back(layer);
  }
}

void read_shutter(const std::string& text, RenderOptions& options) {
  const std::vector<double> values = parse_numbers(text, ',');
  const bool valid =
      values.size() == 2 && std::isfinite(values[0]) && std::isfinite(values[1]) && values[0] <= values[1];
  if (!valid) throw UsageError("--shutter: '" + text + "' is not OPEN,CLOSE with OPEN not after CLOSE");
  options.shutter = Shutter{values[0], values[1]};
}

void read_render_texts(const RenderTexts& texts, RenderOptions& options) {
  read_size(texts.size, options);
  read_layers(texts.layers, options);
  if (!texts.camera.empty()) options.camera = parse_camera(texts.camera);
  if (options.overview.find('/') != std::string::npos)
    options.overview_camera = parse_camera(options.overview, "--overview");
  if (!texts.shutter.empty()) read_shutter(texts.shutter, options);
  for (const std::string& output : options.outputs) {
    if (!output.ends_with(".png") && !output.ends_with(".exr"))
      throw UsageError("-o: '" + output + "' ends neither in .png nor in .exr");
  }
}

void read_rect(const std::string& text, SelectOptions& options) {
  const std::vector<double> v = parse_numbers(text, ',');
  const bool valid = v.size() == 4 && std::isfinite(v[0] + v[1] + v[2] + v[3]) && v[0] < v[2] && v[1] < v[3];
  if (!valid) throw UsageError("--rect: '" + text + "' is not LEFT,TOP,RIGHT,BOTTOM with a width and a height");
  options.rect = PictureRect{v[0], v[1], v[2], v[3]};
}

void read_box(const std::string& text, SelectOptions& options) {
  std::string numbers = text;
  std::replace(numbers.begin(), numbers.end(), '/', ',');
  const std::vector<double> v = parse_numbers(numbers, ',');
  bool valid = v.size() == 6;
  for (std::size_t axis = 0; valid && axis < 3; ++axis)
    valid = std::isfinite(v[axis]) && std::isfinite(v[axis + 3]) && v[axis] <= v[axis + 3];
  if (!valid) throw UsageError("--box: '" + text + "' is not x,y,z/x,y,z, the lower corner first");
  options.box = GMathBbox3<double>({v[0], v[1], v[2]}, {v[3], v[4], v[5]});
}

void read_select_texts(const SelectTexts& texts, SelectOptions& options) {
  read_size(texts.size, options);
  constexpr const char* modes[] = {"any", "all", "points", "vertices"};
  for (uint mode = 0; mode < std::size(modes); ++mode)
    if (texts.mode == modes[mode]) options.mode = static_cast<GeometryFrustumMode>(mode);
  if (!texts.camera.empty()) options.camera = parse_camera(texts.camera);
  if (!texts.rect.empty()) read_rect(texts.rect, options);
  if (!texts.box.empty()) read_box(texts.box, options);
  if (!(options.near <= options.far)) throw UsageError("--near and --far: nothing lies between them");
  for (const std::string& output : options.outputs) {
    if (output.ends_with(".png")) continue;
    if (!is_point_output(output)) throw UsageError("-o: '" + output + "' ends in none of .png, .csv and .ply");
    if (!options.has_points()) throw UsageError("-o: '" + output + "' needs --mode points or vertices");
  }
}

}  // namespace

std::vector<std::string> list_inputs(const SceneOptions& options, std::vector<std::string> files) {
  if (options.displace.is_file()) files.push_back(options.displace.height);
  return files;
}

int run_command_line(int argc, char** argv) {
  CLI::App app("Builds ray-tracing structures over meshes, hair and points and shows what they answer.", "vqgas");
  app.set_version_flag("--version", "vqgas " VQGAS_VERSION);
  app.require_subcommand(1);
  InfoOptions info;
  RenderOptions render;
  RenderTexts render_texts;
  TraceOptions trace;
  std::string format = "csv";
  BeamOptions beam;
  std::string beam_format = "csv";
  SelectOptions select;
  SelectTexts select_texts;
  GroomOptions groom;
  ScatterOptions scatter;
  std::string scale;
  add_info(app, info);
  add_render(app, render, render_texts);
  add_trace(app, trace, format);
  add_beam(app, beam, beam_format);
  add_select(app, select, select_texts);
  add_groom(app, groom);
  add_scatter(app, scatter, scale);
  try {
    app.parse(argc, argv);
    if (app.got_subcommand("render")) read_render_texts(render_texts, render);
    if (app.got_subcommand("select")) read_select_texts(select_texts, select);
    check_trace_rays(trace.rays);
    check_beams(beam.beams, beam.is_parallel);
    if (app.got_subcommand("groom") && !groom.output.ends_with(".hair"))
      throw UsageError("-o: '" + groom.output + "' does not end in .hair");
    if (app.got_subcommand("scatter")) read_scatter_texts(scale, scatter);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const UsageError& error) {
    std::cerr << "vqgas: " << error.what() << "\nRun with --help for more information.\n";
    return 2;
  }
  trace.as_json = format == "json";
  beam.as_json = beam_format == "json";
  if (app.got_subcommand("info")) run_info(info);
  if (app.got_subcommand("render")) run_render(render);
  if (app.got_subcommand("trace")) run_trace(trace);
  if (app.got_subcommand("beam")) run_beam(beam);
  if (app.got_subcommand("select")) run_select(select);
  if (app.got_subcommand("groom")) run_groom(groom);
  if (app.got_subcommand("scatter")) run_scatter(scatter);
  return 0;
}
