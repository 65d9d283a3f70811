// tools/vqgas/info_command.cpp
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "gas/bvh/bvh_statistics.h"
#include "tools/vqgas/command_line.h"
#include "tools/vqgas/held_messages.h"
#include "tools/vqgas/output_file.h"
#include "tools/vqgas/progress_display.h"
#include "tools/vqgas/query_scene.h"
#include "tools/vqgas/scene_load.h"
#include "vq_app_base/app_base.h"

namespace {

struct ArrayBytes {
  const char* name;
  u64 bytes;
};

struct ClusterCount {
  uint wanted, made;
};

/// Everything that the table says of the mesh, or of one hair, of a file.
struct PartReport {
  std::string file;
  bool is_hair, is_cubic;
  uint threads, primitives, kept, points, groups, strands;
  BvhStatistics tree;
  std::vector<ArrayBytes> arrays;
  std::vector<TaskSeconds> stages;
  double build_seconds;
  std::vector<ClusterCount> clusters;
  GMathBbox3<double> bbox;
};

std::vector<ArrayBytes> get_arrays(const SceneShape& shape) {
  const GasBvh<4>& tree = *shape.tree;
  const u64 nodes_and_order = tree.get_array_bytes();
  const u64 rest = shape.structure->get_memory_size() - nodes_and_order;
  return {{"aligned nodes", u64{tree.aligned_count} * sizeof(BvhNodeAligned)},
          {"quantized nodes", u64{tree.quantized_count} * sizeof(BvhNodeQuantized)},
          {"oriented nodes", u64{tree.oriented_count} * sizeof(BvhNodeOriented)},
          {"item order", tree.order != nullptr ? u64{tree.item_count} * sizeof(u32) : 0},
          {"item weights", tree.item_words != nullptr ? u64{tree.item_count} * sizeof(u32) : 0},
          {"primitive table and object", rest}};
}

/// Each shape of a file as a scene of its own.
std::vector<SceneSource> split_scene(const std::string& file, SceneSource&& source) {
  std::vector<SceneSource> parts;
  for (ShapeSource& shape : source.shapes) {
    parts.emplace_back().add_object("", std::move(shape));
    parts.back().files.push_back({file, 1});
  }
  return parts;
}

PartReport examine(const std::string& file, SceneSource&& source, const InfoOptions& options) {
  AppBase application = options.threads == 0 ? AppBase() : AppBase(options.threads);
  ProgressDisplay display(application, is_progress_wanted(options.quiet));
  display.set_unit("primitives");
  HeldMessages messages;
  const QueryScene scene(application, std::move(source), options.hair);
  if (!options.quiet) messages.release();
  const SceneShape& shape = scene.get_shapes().front();
  const GasClusterable& structure = *shape.structure;

  PartReport report = {};
  report.file = file;
  report.threads = application.get_thread_count();
  report.primitives = scene.get_primitive_count();
  report.kept = scene.get_kept_count();
  report.points = shape.point_count;
  report.groups = shape.geometry->get_shading_groups().get_count();
  if (const TubeMeshFast* hair = shape.hair) {
    report.is_hair = true;
    report.is_cubic = hair->get_curves().get_shape() == CurveShape::cubic;
    report.strands = hair->get_curves().get_curve_count();
  }
  report.tree = bvh_compute_statistics(*shape.tree);
  report.arrays = get_arrays(shape);
  report.stages = display.take_task_seconds();
  report.build_seconds = scene.get_build_seconds();
  report.bbox = structure.get_bbox();
  for (const uint wanted : {16u, 64u, 1024u}) {
    CoreVector<void*> clusters;
    structure.get_clusters(clusters, wanted, 0.5f);
    report.clusters.push_back({wanted, clusters.get_count()});
  }
  return report;
}

void print_row(const char* name, const char* format, ...) __attribute__((format(printf, 2, 3)));
void print_row(const char* name, const char* format, ...) {
  std::printf("  %-28s", name);
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
}

double get_rate(uint primitives, double seconds) { return seconds > 0.0 ? 1e-6 * primitives / seconds : 0.0; }

void print_stages(const PartReport& report) {
  for (const TaskSeconds& stage : report.stages)
    print_row(stage.task.c_str(), "%11.4f s %9.2f Mprim/s", stage.seconds, get_rate(report.kept, stage.seconds));
  print_row("whole build", "%11.4f s %9.2f Mprim/s", report.build_seconds, get_rate(report.kept, report.build_seconds));
}

void print_table(const PartReport& report) {
  const auto& box = report.bbox;
  std::printf("%s\n", report.file.c_str());
  if (report.is_hair) {
    print_row("strands", "%11u", report.strands);
    print_row("segments", "%11u  (%s)", report.primitives, report.is_cubic ? "cubic" : "linear");
  }
  print_row(report.is_hair ? "segments kept" : "primitives kept", "%11u", report.kept);
  print_row(report.is_hair ? "segments dropped" : "primitives dropped", "%11u", report.primitives - report.kept);
  print_row(report.is_hair ? "points, shading groups" : "vertices, shading groups", "%11u, %u", report.points,
            report.groups);
  print_row("box", "(%g, %g, %g) to (%g, %g, %g)", box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z);
  print_row("aligned nodes", "%11u", report.tree.aligned_nodes);
  print_row("quantized nodes", "%11u", report.tree.quantized_nodes);
  print_row("oriented nodes", "%11u", report.tree.oriented_nodes);
  print_row("leaves", "%11u", report.tree.leaves);
  print_row("depth", "%11u", report.tree.depth);
  print_row("children per node", "%11.2f", report.tree.children_per_node);
  print_row("surface-area cost", "%11.2f", report.tree.surface_area_cost);
  std::printf("  bytes per %s\n", report.is_hair ? "segment" : "primitive");
  u64 sum = 0;
  for (const ArrayBytes& array : report.arrays) {
    if (array.bytes != 0) print_row(array.name, "%11.2f", double(array.bytes) / report.kept);
    sum += array.bytes;
  }
  print_row("sum", "%11.2f  (%.2f MB)", double(sum) / report.kept, 1e-6 * double(sum));
  std::printf("  build on %u thread%s\n", report.threads, report.threads == 1 ? "" : "s");
  print_stages(report);
  for (const ClusterCount& clusters : report.clusters)
    print_row(("clusters at " + std::to_string(clusters.wanted)).c_str(), "%11u", clusters.made);
  std::printf("\n");
}

nlohmann::ordered_json make_json(const PartReport& report) {
  nlohmann::ordered_json json = {
      {"file", report.file},
      {"kind", report.is_hair ? "hair" : "mesh"},
      {"threads", report.threads},
      {"primitives",
       {{"in_file", report.primitives}, {"kept", report.kept}, {"dropped", report.primitives - report.kept}}},
      {report.is_hair ? "points" : "vertices", report.points},
      {"groups", report.groups},
      {"box",
       {{"min", {report.bbox.min.x, report.bbox.min.y, report.bbox.min.z}},
        {"max", {report.bbox.max.x, report.bbox.max.y, report.bbox.max.z}}}},
      {"nodes",
       {{"aligned", report.tree.aligned_nodes},
        {"quantized", report.tree.quantized_nodes},
        {"oriented", report.tree.oriented_nodes}}},
      {"leaves", report.tree.leaves},
      {"depth", report.tree.depth},
      {"children_per_node", report.tree.children_per_node},
      {"surface_area_cost", report.tree.surface_area_cost}};
  if (report.is_hair) {
    json["strands"] = report.strands;
    json["shape"] = report.is_cubic ? "cubic" : "linear";
  }
  u64 sum = 0;
  for (const ArrayBytes& array : report.arrays) {
    json["bytes_per_primitive"][array.name] = double(array.bytes) / report.kept;
    sum += array.bytes;
  }
  json["bytes_per_primitive"]["sum"] = double(sum) / report.kept;
  for (const TaskSeconds& stage : report.stages)
    json["stages"].push_back({{"stage", stage.task},
                              {"seconds", stage.seconds},
                              {"mprim_per_second", get_rate(report.kept, stage.seconds)}});
  json["build"] = {{"seconds", report.build_seconds},
                   {"mprim_per_second", get_rate(report.kept, report.build_seconds)}};
  for (const ClusterCount& clusters : report.clusters)
    json["clusters"].push_back({{"wanted", clusters.wanted}, {"made", clusters.made}});
  return json;
}

}  // namespace

void run_info(const InfoOptions& options) {
  check_output(options.json);
  nlohmann::ordered_json json = nlohmann::ordered_json::array();
  for (const std::string& file : options.files) {
    for (SceneSource& part :
         split_scene(file, load_scene({file}, {options.frame, options.frame, {}, options.frames_per_second}))) {
      const PartReport report = examine(file, std::move(part), options);
      json.push_back(make_json(report));
      if (options.json != "-" && !options.quiet) print_table(report);
    }
  }
  if (!options.json.empty())
    write_text_file(options.json, json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}
