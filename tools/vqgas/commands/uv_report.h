// tools/vqgas/commands/uv_report.h
#pragma once
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqgas/scene/uv_layout.h"
#include "vq_of/of_app.h"

struct UvMapCounts {
  std::string name;
  uint positions, edges;
};

/// What `uv --info` reports of one mesh.
struct UvReport {
  std::string name, map;
  std::vector<UvMapCounts> maps;
  uint polygons, unplaced, invalid;
  std::vector<UvTile> tiles;
  bool has_all_tiles;  ///< false: there are more tiles in use
  uint islands, flipped, overlapping;
  std::optional<double> unused_percent;  ///< of the tiles; none without tiles, or without all of them
};

/// More tiles are neither listed nor drawn.
inline constexpr std::size_t most_uv_tiles = 400;

/// Examines the layout and, for their counts, the other maps of its mesh. Runs on all threads. Throws Interrupted.
UvReport make_uv_report(OfApp& application, const MeshSource& mesh, const UvLayout& layout);

void print_uv_report(const UvReport& report);
nlohmann::ordered_json make_uv_report_json(const UvReport& report);
