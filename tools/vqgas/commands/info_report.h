// tools/vqgas/commands/info_report.h
//
// What `vqgas info` tells of a file.
#pragma once
#include <nlohmann/json_fwd.hpp>
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
  uint wanted, made;
};

/// A tree and what it costs.
struct TreeReport {
  BvhStatistics statistics;
  uint kept;  ///< items in it
  std::vector<ArrayBytes> arrays;
  GMathBbox3<double> bbox;
};

struct ShapeReport {
  std::string name;  ///< its own in the file, else that of the first object that shows it

  bool is_hair, is_cubic;
  uint primitives, points, groups, strands;
  uint shown;  ///< how many objects show it, those in groups included once a group
  TreeReport tree;
  std::vector<ClusterCount> clusters;
};

struct ObjectReport {
  std::string name;
  uint clusters;
  const char* left_out;  ///< why; null when it is in the tree
  bool is_group, is_moving;
  double primitives;
};

/// A scene: the whole, or one that objects show as a group.
struct ObjectsReport {
  std::string name;  ///< of the first object that shows it; none for the whole
  std::vector<ObjectReport> objects;
  TreeReport tree;
  double geometries, primitives;  ///< as shown: what several objects show counts several times
};

struct SceneReport {
  std::string file;
  uint threads;
  std::vector<ShapeReport> shapes;
  ObjectsReport whole;
  std::vector<ObjectsReport> groups;
  std::vector<TaskSeconds> stages;
  double build_seconds;

  bool is_plain;  ///< one shape, shown once where it was made
  uint get_kept_count() const;
};

SceneReport make_scene_report(const std::string& file, const QueryScene& scene, std::vector<TaskSeconds>&& stages);
u64 get_sum(const std::vector<ArrayBytes>& arrays);
/// Millions of primitives a second.
double get_rate(uint primitives, double seconds);

/// Prints it as tables on standard output.
void print_report(const SceneReport& report);
/// The same, and what tables leave out.
nlohmann::ordered_json make_report_json(const SceneReport& report);
