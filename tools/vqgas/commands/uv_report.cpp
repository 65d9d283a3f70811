#include "tools/vqgas/commands/uv_report.h"

#include <cstdio>

#include "gas/geometry_uv_map_data.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/scene/uv_statistics.h"
#include "vq_module/module_geometry.h"

namespace {

UvMapCounts count_map(const UvLayout& layout) {
  const ModuleClusterFunctions no_clusters = {};
  const ModuleGeometry module(layout.name.c_str(), layout.mesh, nullptr, no_clusters);
  GeometryUvMapData data(&module, 0);
  data.load();
  return {layout.map_names[layout.map], static_cast<uint>(layout.get_map().positions.size()), data.edges.get_count()};
}

std::string list_tiles(const UvReport& report) {
  constexpr std::size_t most = 12;
  std::string list;
  for (std::size_t k = 0; k < report.tiles.size() && k < most; ++k)
    list.append(k == 0 ? "" : " ").append(get_tile_name(report.tiles[k]));
  if (report.tiles.size() > most || !report.has_all_tiles) list += " ...";
  return list.empty() ? "none" : list;
}

}  // namespace

UvReport make_uv_report(OfApp& application, const MeshSource& mesh, const UvLayout& layout) {
  UvReport report = {};
  report.name = layout.name;
  report.map = layout.map_names[layout.map];
  for (uint map = 0; map < layout.map_names.size(); ++map)
    report.maps.push_back(count_map(map == layout.map ? layout : make_uv_layout(mesh, map)));
  report.polygons = layout.mesh->get_polygon_count();
  report.unplaced = layout.unplaced;
  report.invalid = layout.invalid;
  report.tiles = find_uv_tiles({&layout, 1}, most_uv_tiles);
  report.has_all_tiles = report.tiles.size() <= most_uv_tiles;
  if (!report.has_all_tiles) report.tiles.pop_back();
  report.islands = count_uv_islands(layout);
  report.flipped = count_flipped_polygons(layout);
  const UvPolygonTree tree(application, layout);
  report.overlapping = tree.count_overlapping();
  if (report.has_all_tiles && !report.tiles.empty())
    report.unused_percent = 100.0 * tree.get_unused_share(report.tiles);
  return report;
}

void print_uv_report(const UvReport& report) {
  std::printf("%s\n", report.name.c_str());
  for (const UvMapCounts& map : report.maps)
    std::printf("  map %-24s %10u positions %10u edges\n", map.name.c_str(), map.positions, map.edges);
  std::printf("  layout of map %s\n", report.map.c_str());
  const auto print = [](const char* name, uint count) { std::printf("    %-26s %10u\n", name, count); };
  print("polygons", report.polygons);
  if (report.unplaced > 0) print("without UV positions", report.unplaced);
  if (report.invalid > 0) print("left out", report.invalid);
  print("islands", report.islands);
  print("flipped polygons", report.flipped);
  print("overlapping polygons", report.overlapping);
  std::printf("    %-26s %10zu  %s\n", "tiles in use", report.tiles.size(), list_tiles(report).c_str());
  if (report.unused_percent) std::printf("    %-26s %9.2f%%\n", "unused space", *report.unused_percent);
}

nlohmann::ordered_json make_uv_report_json(const UvReport& report) {
  nlohmann::ordered_json json = begin_report("uv");
  json["name"] = report.name;
  json["maps"] = nlohmann::ordered_json::array();
  for (const UvMapCounts& map : report.maps)
    json["maps"].push_back({{"name", map.name}, {"positions", map.positions}, {"edges", map.edges}});
  json["map"] = report.map;
  json["polygons"] = {{"placed", report.polygons}, {"without_uvs", report.unplaced}, {"left_out", report.invalid}};
  json["tiles"] = nlohmann::ordered_json::array();
  for (const UvTile& tile : report.tiles) json["tiles"].push_back({{"u", tile.u}, {"v", tile.v}});
  json["has_all_tiles"] = report.has_all_tiles;
  json["islands"] = report.islands;
  json["flipped"] = report.flipped;
  json["overlapping"] = report.overlapping;
  json["unused_percent"] = nullptr;
  if (report.unused_percent) json["unused_percent"] = *report.unused_percent;
  return json;
}
