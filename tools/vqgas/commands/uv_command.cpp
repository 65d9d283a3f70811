// tools/vqgas/commands/uv_command.cpp
#include <algorithm>
#include <cstdio>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/commands/uv_report.h"
#include "tools/vqgas/image/image_exr.h"
#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/image/picture_resample.h"
#include "tools/vqgas/scene/scene_load.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"

namespace {

/// The pictures of one tile.
struct TileFiles {
  UvTile tile;
  std::vector<std::string> names;  ///< [output]
};

std::vector<std::string> list_uv_inputs(const UvOptions& options) {
  std::vector<std::string> inputs = options.files;
  if (!options.background.empty()) inputs.push_back(options.background);
  return inputs;
}

std::vector<UvTile> choose_tiles(const UvOptions& options, const std::vector<UvLayout>& layouts) {
  if (!options.tiles.empty()) return options.tiles;
  std::vector<UvTile> tiles = find_uv_tiles(layouts, most_uv_tiles);
  if (tiles.size() > most_uv_tiles)
    throw InputError(options.files.front(),
                     "uses more than " + std::to_string(most_uv_tiles) + " tiles; choose some with --tile U,V");
  if (tiles.empty()) tiles.push_back({});  // no polygon has an area
  return tiles;
}

/// Of several tiles, each has its number before the extension.
std::vector<TileFiles> list_tile_files(const std::vector<std::string>& outputs, const std::vector<UvTile>& tiles) {
  std::vector<TileFiles> files;
  for (const UvTile& tile : tiles) {
    files.push_back({tile, outputs});
    if (tiles.size() == 1) break;
    for (std::string& name : files.back().names) name.insert(name.rfind('.') + 1, get_tile_name(tile).append("."));
  }
  return files;
}

void note_left_out(const std::vector<UvLayout>& layouts) {
  for (const UvLayout& layout : layouts) {
    if (layout.invalid == 0) continue;
    const uint count = layout.mesh->get_polygon_count() + layout.unplaced + layout.invalid;
    std::fprintf(stderr, "%s: map %s: %u of %u polygons left out: a UV position is not finite or beyond 1e6\n",
                 layout.name.c_str(), layout.map_names[layout.map].c_str(), layout.invalid, count);
  }
}

bool is_svg(const std::string& name) { return get_extension(name) == ".svg"; }

/// Draws each tile once for all of its files.
void draw_tiles(const UvOptions& options, const UvDrawing& drawing, const std::vector<TileFiles>& files) {
  Picture background(options.size, options.size, {Layer::beauty});
  if (!options.background.empty())
    background = resample_beauty(read_color_png(options.background), options.size, options.size);
  for (const TileFiles& file : files) {
    UvPictureSettings settings;
    settings.tile = file.tile;
    settings.size = options.size;
    settings.line_width = options.line_width;
    std::optional<Picture> picture;
    for (const std::string& name : file.names) {
      if (is_svg(name)) {
        write_text_file(name, print_uv_svg(drawing, settings));
        continue;
      }
      if (!picture) draw_uv_picture(drawing, settings, picture.emplace(background));
      if (get_extension(name) == ".png") {
        write_transparent_png(name, *picture);
      } else {
        write_exr(name, *picture);
      }
    }
    for (const std::string& name : file.names)
      if (!options.quiet && options.json != "-") std::printf("%s\n", name.c_str());
  }
}

void report(const UvOptions& options, OfApp& application, const SceneSource& scene,
            const std::vector<UvLayout>& layouts) {
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (const UvLayout& layout : layouts) {
    const UvReport made = make_uv_report(application, std::get<MeshSource>(scene.shapes[layout.shape]), layout);
    throw_if_interrupted();
    json.push_back(make_uv_report_json(made));
    if (options.has_info && options.json != "-") print_uv_report(made);
  }
  if (!options.json.empty()) write_text_file(options.json, print_json_text(json));
}

}  // namespace

void run_uv(const UvOptions& options) {
  std::vector<std::string> outputs = options.outputs;
  outputs.push_back(options.json);
  check_outputs(outputs, list_uv_inputs(options));
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  HeldMessages messages;
  SceneSource scene = load_scene(options.files, {}, {&application, options.quiet});
  if (options.projection != PolyMeshProjection::none) project_uvs(scene, options.projection);
  const std::vector<UvLayout> layouts = make_uv_layouts(scene, options.map);
  throw_if_interrupted();
  if (!options.quiet) messages.release(), note_left_out(layouts);
  if (options.has_info || !options.json.empty()) report(options, application, scene, layouts);
  if (options.outputs.empty()) return;
  const std::vector<TileFiles> files = list_tile_files(options.outputs, choose_tiles(options, layouts));
  outputs = {options.json};
  for (const TileFiles& file : files) outputs.insert(outputs.end(), file.names.begin(), file.names.end());
  check_outputs(outputs, list_uv_inputs(options));
  const UvDrawing drawing(application, layouts, options.coloring);
  display.set_unit("pixels");
  draw_tiles(options, drawing, files);
}
