// tools/vqgas/commands/info_report.h
//
// The report of `vqgas info` on a file.
#pragma once
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "gas/bvh/bvh_statistics.h"
#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/support/progress_display.h"

struct ArrayBytes {
  const char* name;
  u64 bytes;
};

struct ClusterCount {
  uint requested, made;
};

/// A tree, its statistics and its memory.
struct TreeReport {
  std::optional<BvhStatistics> statistics;  ///< none for a grid
  uint kept;                                ///< items in it
  std::vector<ArrayBytes> arrays;
  GMathBbox3<double> bbox;
};

/// A grid before any query and after the rays or beams of a small picture from three-quarter view.
struct GridReport {
  uint parts;
  uint built_before, built_after;  ///< parts
  u64 bytes_before, bytes_after;
};

struct ShapeReport {
  std::string name;  ///< in the file, else of the first object that shows it
  bool is_hair, is_cubic;
  uint primitives, points, groups, strands;
  uint shown;                      ///< number of objects that show it; objects of a group count once
  TreeReport tree;                 ///< of a grid its memory after the rays
  std::optional<GridReport> grid;  ///< none for another structure
  DisplacedMemory displaced;
  std::vector<ClusterCount> clusters;
};

/// A point cloud. The tree of a part is built when a query first reaches it.
struct CloudReport {
  std::string name;
  uint points, finite;
  bool has_colors, has_radii;
  GridReport grid;                 ///< of its structure, before and after the beams of a small picture
  std::vector<ArrayBytes> arrays;  ///< after them
  GMathBbox3<double> bbox;
};

struct ObjectReport {
  std::string name;
  uint clusters;
  const char* left_out;  ///< reason; null if it is in the tree
  const char* kind;      ///< "geometry", "group", "bundle" or "points"
  bool is_moving;
  double primitives;
};

/// A bundle of instances. Its structure is the first of two levels; below are those of its geometries.
struct BundleReport {
  std::string name;  ///< of the first object that shows it
  uint instances, valid_instances;
  uint geometries, built;  ///< structures below it that could be, and those there are
  double primitives;       ///< of all valid instances
  TreeReport tree;
  u64 structure_bytes;  ///< of all structures below it
  /// If each valid instance had primitives of its own: bytes a primitive of the structure of its geometry, times the
  /// primitives.
  double flat_bytes;
};

/// The whole scene, or a group.
struct ObjectsReport {
  std::string name;  ///< of the first object that shows the group; empty for the whole
  std::vector<ObjectReport> objects;
  TreeReport tree;
  double geometries, primitives;  ///< counted once for each object that shows them
};

struct SceneReport {
  std::string file;
  SceneFileNotes notes;
  uint threads;
  std::vector<ShapeReport> shapes;
  std::vector<CloudReport> clouds;
  ObjectsReport whole;
  std::vector<ObjectsReport> groups;
  std::vector<BundleReport> bundles;
  std::vector<TaskSeconds> stages;
  double build_seconds;

  bool is_plain;  ///< one shape or cloud, shown once with the identity matrix
  /// Primitives and points.
  uint get_kept_count() const;
};

SceneReport make_scene_report(const std::string& file, const QueryScene& scene, std::vector<TaskSeconds>&& stages);
/// The arrays of a structure's tree and the rest of the structure.
std::vector<ArrayBytes> list_array_bytes(const GasBvh<4>& tree, const GasObject& structure);
u64 get_sum(const std::vector<ArrayBytes>& arrays);
/// Millions of primitives a second.
double get_rate(uint primitives, double seconds);

/// Prints the report as tables on standard output.
void print_report(const SceneReport& report);
/// The complete report; tables leave out parts of long lists.
nlohmann::ordered_json make_report_json(const SceneReport& report);
