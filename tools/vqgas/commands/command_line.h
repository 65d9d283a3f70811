// tools/vqgas/commands/command_line.h
//
// What the command line asks for. The options themselves stand in option_groups.h and NAME_options.cpp.
#pragma once
#include <array>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/render/camera.h"
#include "tools/vqgas/render/select_frustum.h"
#include "tools/vqgas/render/uv_picture.h"
#include "tools/vqgas/scene/scene_displace.h"
#include "tools/vqgas/scene/scene_shape.h"
#include "tools/vqgas/source/groom.h"
#include "tools/vqgas/source/scatter.h"

class OfApp;

struct CommonOptions {
  uint threads = 0;  ///< 0: as many as the machine runs at once
  bool quiet = false;
  std::string json;  ///< file for the report, "-" for standard output, empty for none
};

struct SceneOptions : CommonOptions {
  ShapeSettings shapes;
  DisplaceOptions displace;
  bool is_bundled = false;  ///< objects that share shapes become instances of a bundle
  double frames_per_second = 24.0;
};

/// Loads the files, displaces the meshes and bundles the objects. Throws as load_scene().
SceneSource load_scene(const SceneOptions& options, const std::vector<std::string>& files, const SceneTimes& times,
                       OfApp& application);
/// The settings as options.
std::string print_shape_settings(const ShapeSettings& shapes);
/// Throws UsageError for an option of shapes that changes nothing in this scene.
void check_effects(const ShapeSettings& shapes, const SceneSource& scene);
/// `files`, and the picture of heights if there is one.
std::vector<std::string> list_inputs(const SceneOptions& options, std::vector<std::string> files);

struct InfoOptions : SceneOptions {
  std::vector<std::string> files;
  double frame = 0.0;
};

struct ReportOptions : SceneOptions {
  std::vector<std::string> files;
  std::string output;
  double frame = 0.0;
  double size_limit = 19.0;  ///< of the page, in megabytes

  /// The second column of the page: what differs from the first.
  struct Second {
    std::vector<std::string> files;
    std::optional<MeshStructure> structure;
    bool is_linear = false, is_aligned_only = false, is_bundled = false;
    bool exists() const { return !files.empty() || structure || is_linear || is_aligned_only || is_bundled; }
  } second;
};

/// From where a picture is seen, and its size in pixels.
struct ViewOptions {
  std::string view = "three-quarter";
  std::optional<Camera> camera;  ///< instead of the view
  uint up_axis = 1;
  uint width = 960, height = 540;

  /// The camera, or the one that shows all boxes in the view.
  Camera choose_camera(const std::vector<GMathBbox3<double>>& boxes) const {
    return camera ? *camera : frame_boxes(view, up_axis, boxes, static_cast<double>(width) / height);
  }
};

struct Shutter {
  double open = 0.0, close = 0.0;
};

struct FrameRange {
  uint first = 0, last = 0;
};

struct RenderOptions : SceneOptions, ViewOptions {
  std::vector<std::string> files;
  std::vector<std::string> outputs;
  uint samples = 16;
  bool has_legend = false;
  std::vector<Layer> layers = {Layer::beauty};
  std::optional<double> frame;
  std::optional<FrameRange> frames;  ///< a picture each, instead of the one at `frame`
  std::optional<Shutter> shutter;    ///< counted from the frame
  std::optional<uint> motion_samples;
  bool has_floor = false;
  double point_size = 0.0;              ///< in pixels; 0: as suits the points
  std::optional<ViewOptions> overview;  ///< of the layer parts; none: as the other layers
};

/// How answers are printed.
enum class AnswerFormat { csv, json, table };

struct TraceOptions : SceneOptions {
  std::string file;
  std::vector<std::string> rays;
  bool all = false;
  AnswerFormat format = AnswerFormat::csv;
};

inline constexpr const char* beam_csv_header = "beam,object,point,t,weight,x,y,z";

struct BeamOptions : CommonOptions {
  std::vector<std::string> files;
  std::vector<std::string> beams;
  bool is_parallel = false;
  double edge = 1.0;  ///< GeometryRayFrustumData::edge
  double frame = 0.0, frames_per_second = 24.0;
  AnswerFormat format = AnswerFormat::csv;
};

/// By GeometryFrustumMode.
inline constexpr std::array<const char*, 4> select_mode_names = {"any", "all", "points", "vertices"};

struct SelectOptions : SceneOptions, ViewOptions {
  std::vector<std::string> files;
  std::vector<std::string> outputs;
  std::optional<PictureRect> rect;
  double near = 0.0, far = std::numeric_limits<double>::infinity();
  std::optional<GMathBbox3<double>> box;  ///< instead of the camera's view
  GeometryFrustumMode mode = GeometryFrustumMode::any;
  double frame = 0.0;

  /// The whole picture if no rectangle was given.
  PictureRect get_rect() const;
  bool has_points() const { return mode == GeometryFrustumMode::points || mode == GeometryFrustumMode::vertices; }
};

struct GroomOptions : CommonOptions {
  std::string file, output;
  GroomSettings settings;
  std::optional<double> density;  ///< strands per unit of area, instead of settings.curves
};

struct CompareOptions : SceneOptions, ViewOptions {
  std::string first, second;
  ShapeSettings other_shapes;  ///< of the second; those of the first are `shapes`
  std::string output;
  uint rays = 100000, seed = 1;
  double tolerance = 1e-6;  ///< of the diagonal
  double frame = 0.0;

  CompareOptions() { width = 480, height = 270; }
};

struct UvOptions : CommonOptions {
  std::vector<std::string> files, outputs;
  std::string map;  ///< empty: the first of each mesh
  PolyMeshProjection projection = PolyMeshProjection::none;
  UvColoring coloring = UvColoring::geometry;
  std::vector<UvTile> tiles;  ///< empty: those in use
  std::string background;
  uint size = 1024;
  double line_width = 1.0;
  bool has_info = false;
};

/// The most instances that the command scatter makes.
inline constexpr uint most_scattered = 4000000;

struct ScatterOptions : CommonOptions {
  std::vector<std::string> geometries;
  std::string ground, output;
  DisplaceOptions displace;  ///< of the ground
  uint count = 0;
  std::optional<double> density;  ///< instances per unit of area, instead of `count`
  ScatterSettings placing;
  double sway_degrees = 0.0, sway_period = 24.0;
  bool leaves_ground_out = false;
};

/// Parses the command line and runs its subcommand.
/// @return the program's exit code: 0; 2 for an invalid command line, after an error message
/// Throws InputError, UsageError and Interrupted.
int run_command_line(int argc, char** argv);

// The subcommands, each in a file of its own.
void run_info(const InfoOptions& options);
void run_report(const ReportOptions& options);
void run_render(const RenderOptions& options);
void run_trace(const TraceOptions& options);
void run_beam(const BeamOptions& options);
void run_select(const SelectOptions& options);
void run_groom(const GroomOptions& options);
void run_scatter(const ScatterOptions& options);
void run_uv(const UvOptions& options);
void run_compare(const CompareOptions& options);
