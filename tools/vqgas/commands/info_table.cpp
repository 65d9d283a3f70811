#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "tools/vqgas/commands/info_report.h"
#include "tools/vqgas/support/quote.h"

namespace {

void print_row(const char* name, const char* format, ...) __attribute__((format(printf, 2, 3)));
void print_row(const char* name, const char* format, ...) {
  std::printf("  %-28s", name);
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
}

void print_box(const GMathBbox3<double>& box) {
  print_row("box", "(%g, %g, %g) to (%g, %g, %g)", box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z);
}

/// Bytes an item.
void print_arrays(const std::vector<ArrayBytes>& arrays, uint count) {
  for (const ArrayBytes& array : arrays)
    if (array.bytes != 0) print_row(array.name, "%11.2f", double(array.bytes) / count);
  const u64 sum = get_sum(arrays);
  print_row("sum", "%11.2f  (%.2f MB)", double(sum) / count, 1e-6 * double(sum));
}

/// @param item  name of one item of the tree
void print_tree(const TreeReport& tree, const char* item) {
  if (tree.statistics) {
    const BvhStatistics& statistics = *tree.statistics;
    print_row("aligned nodes", "%11u", statistics.aligned_nodes);
    print_row("quantized nodes", "%11u", statistics.quantized_nodes);
    print_row("oriented nodes", "%11u", statistics.oriented_nodes);
    print_row("leaves", "%11u", statistics.leaves);
    print_row("depth", "%11u", statistics.depth);
    print_row("children per node", "%11.2f", statistics.children_per_node);
    print_row("surface-area cost", "%11.2f", statistics.surface_area_cost);
  }
  if (tree.kept == 0) return;
  std::printf("  bytes per %s\n", item);
  print_arrays(tree.arrays, tree.kept);
}

/// @param queries  rays or beams
void print_grid(const GridReport& grid, const char* queries) {
  print_row("parts of the grid", "%11u", grid.parts);
  print_row("  built before any query", "%11u  (%.2f MB)", grid.built_before, 1e-6 * double(grid.bytes_before));
  print_row(("  built after 64 x 64 " + std::string(queries)).c_str(), "%11u  (%.2f MB)", grid.built_after,
            1e-6 * double(grid.bytes_after));
}

void print_shape(const ShapeReport& shape) {
  if (shape.is_hair) {
    print_row("strands", "%11u", shape.strands);
    print_row("segments", "%11u  (%s)", shape.primitives, shape.is_cubic ? "cubic" : "linear");
  }
  print_row(shape.is_hair ? "segments kept" : "primitives kept", "%11u", shape.tree.kept);
  print_row(shape.is_hair ? "segments dropped" : "primitives dropped", "%11u", shape.primitives - shape.tree.kept);
  print_row(shape.is_hair ? "points, shading groups" : "vertices, shading groups", "%11u, %u", shape.points,
            shape.groups);
  print_box(shape.tree.bbox);
  if (shape.displaced.micro_triangles > 0) {
    print_row("micro-triangles", "%11.0f", double(shape.displaced.micro_triangles));
    print_row("  cached, at most, limit", "%11.2f MB, %.2f MB, %.0f MB", 1e-6 * double(shape.displaced.cache_bytes),
              1e-6 * double(shape.displaced.peak_cache_bytes), 1e-6 * double(shape.displaced.cache_limit));
  }
  if (shape.grid) print_grid(*shape.grid, "rays");
  print_tree(shape.tree, shape.is_hair ? "segment" : "primitive");
  for (const ClusterCount& clusters : shape.clusters)
    print_row(("clusters at " + std::to_string(clusters.requested)).c_str(), "%11u", clusters.made);
}

void print_cloud(const CloudReport& cloud) {
  print_row("points", "%11u", cloud.points);
  print_row("points not finite", "%11u", cloud.points - cloud.finite);
  print_row("colors, radii", "%11s, %s", cloud.has_colors ? "yes" : "no", cloud.has_radii ? "yes" : "no");
  print_box(cloud.bbox);
  print_grid(cloud.grid, "beams");
  std::printf("  bytes per point\n");
  print_arrays(cloud.arrays, cloud.points);
}

void print_build(const SceneReport& report) {
  const uint kept = report.get_kept_count();
  std::printf("  build on %u thread%s\n", report.threads, report.threads == 1 ? "" : "s");
  for (const TaskSeconds& stage : report.stages)
    print_row(stage.task.c_str(), "%11.4f s %9.2f Mprim/s", stage.seconds, get_rate(kept, stage.seconds));
  print_row("whole build", "%11.4f s %9.2f Mprim/s", report.build_seconds, get_rate(kept, report.build_seconds));
}

/// Replaces control characters of names from files, which could end the row or control the terminal.
std::string make_printable(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](unsigned char letter) { return std::iscntrl(letter) != 0; }, '?');
  return name;
}

/// Longest list that is printed; of the rest only the number.
constexpr std::size_t row_limit = 12;

void print_rest(std::size_t count) {
  if (count > row_limit) std::printf("  ... and %zu more, which --json lists\n", count - row_limit);
}

void print_shape_list(const std::vector<ShapeReport>& shapes) {
  std::printf("  %5s %8s %10s %8s %9s %10s  shape\n", "", "shown", "primitives", "dropped", "MB", "area cost");
  for (std::size_t k = 0; k < std::min(shapes.size(), row_limit); ++k) {
    const ShapeReport& shape = shapes[k];
    char cost[32] = "-";
    if (shape.tree.statistics) std::snprintf(cost, sizeof(cost), "%.2f", shape.tree.statistics->surface_area_cost);
    std::printf("  %5zu %8u %10u %8u %9.3f %10s  %s%s\n", k, shape.shown, shape.primitives,
                shape.primitives - shape.tree.kept, 1e-6 * double(get_sum(shape.tree.arrays)), cost,
                make_printable(shape.name).c_str(),
                shape.is_hair ? " (hair)"
                : shape.grid  ? " (grid)"
                              : "");
  }
  print_rest(shapes.size());
}

const char* get_remark(const ObjectReport& object) {
  const std::string kind = object.kind;
  return kind == "group" ? " (group)" : kind == "bundle" ? " (bundle)" : kind == "points" ? " (points)" : "";
}

void print_object_list(const std::vector<ObjectReport>& objects) {
  std::printf("  %5s %8s %10s %8s  object\n", "", "clusters", "primitives", "");
  for (std::size_t k = 0; k < std::min(objects.size(), row_limit); ++k) {
    const ObjectReport& object = objects[k];
    std::printf("  %5zu %8u %10.0f %8s  %s%s\n", k, object.clusters, object.primitives,
                object.left_out != nullptr ? "left out"
                : object.is_moving         ? "moves"
                                           : "",
                make_printable(object.name).c_str(), get_remark(object));
  }
  print_rest(objects.size());
  std::size_t left_out = 0;
  for (std::size_t k = 0; k < objects.size(); ++k) {
    if (objects[k].left_out == nullptr || ++left_out > row_limit) continue;
    print_row("left out", "%5zu %s: %s", k, make_printable(objects[k].name).c_str(), objects[k].left_out);
  }
  print_rest(left_out);
}

std::size_t count_kept(const ObjectsReport& report) {
  return static_cast<std::size_t>(std::count_if(report.objects.begin(), report.objects.end(),
                                                [](const ObjectReport& object) { return object.left_out == nullptr; }));
}

void print_group_list(const std::vector<ObjectsReport>& groups) {
  std::printf("  %5s %8s %8s %10s %8s %9s %10s  group\n", "", "objects", "left out", "primitives", "clusters", "MB",
              "area cost");
  for (std::size_t k = 0; k < std::min(groups.size(), row_limit); ++k) {
    const ObjectsReport& group = groups[k];
    const std::size_t kept = count_kept(group);
    std::printf("  %5zu %8zu %8zu %10.0f %8u %9.3f %10.2f  %s\n", k, group.objects.size(), group.objects.size() - kept,
                group.primitives, group.tree.kept, 1e-6 * double(get_sum(group.tree.arrays)),
                group.tree.statistics->surface_area_cost, make_printable(group.name).c_str());
  }
  print_rest(groups.size());
}

void print_objects(const ObjectsReport& report) {
  const std::size_t kept = count_kept(report);
  print_row("objects kept, left out", "%11zu, %zu", kept, report.objects.size() - kept);
  print_row("geometries as shown", "%11.0f", report.geometries);
  print_row("primitives as shown", "%11.0f", report.primitives);
  print_box(report.tree.bbox);
  print_tree(report.tree, "cluster");
}

void print_bundle(const BundleReport& report) {
  std::printf("bundle %s\n", make_printable(report.name).c_str());
  print_row("instances, valid", "%11u, %u", report.instances, report.valid_instances);
  print_row("primitives as shown", "%11.0f", report.primitives);
  print_row("structures, built", "%11u, %u  (%.2f MB)", report.geometries, report.built,
            1e-6 * double(report.structure_bytes));
  print_box(report.tree.bbox);
  print_tree(report.tree, "cluster");
  const u64 bytes = get_sum(report.tree.arrays);
  print_row("bytes per instance", "%11.2f", double(bytes) / std::max(report.valid_instances, 1u));
  print_row("both levels", "%11.2f MB", 1e-6 * double(bytes + report.structure_bytes));
  print_row("without instancing", "%11.2f MB  (%.2f bytes a primitive)", 1e-6 * report.flat_bytes,
            report.flat_bytes / std::max(report.primitives, 1.0));
}

void print_scene(const SceneReport& report) {
  u64 bytes = get_sum(report.whole.tree.arrays);
  for (const ObjectsReport& group : report.groups) bytes += get_sum(group.tree.arrays);
  for (const BundleReport& bundle : report.bundles) bytes += get_sum(bundle.tree.arrays);
  for (const ShapeReport& shape : report.shapes) bytes += get_sum(shape.tree.arrays);
  print_row("shapes, groups, bundles", "%11zu, %zu, %zu", report.shapes.size(), report.groups.size(),
            report.bundles.size());
  print_row("all structures", "%11.2f MB", 1e-6 * double(bytes));
  print_build(report);
  print_shape_list(report.shapes);
  for (std::size_t k = 0; k < report.shapes.size() && report.shapes.size() <= 3; ++k) {
    std::printf("shape %zu\n", k);
    print_shape(report.shapes[k]);
  }
  for (std::size_t k = 0; k < std::min(report.clouds.size(), row_limit); ++k) {
    std::printf("cloud %zu %s\n", k, make_printable(report.clouds[k].name).c_str());
    print_cloud(report.clouds[k]);
  }
  print_rest(report.clouds.size());
  std::printf("scene tree\n");
  print_objects(report.whole);
  print_object_list(report.whole.objects);
  if (!report.groups.empty()) print_group_list(report.groups);
  for (const BundleReport& bundle : report.bundles) print_bundle(bundle);
}

}  // namespace

void print_report(const SceneReport& report) {
  std::printf("%s\n", report.file.c_str());
  if (report.notes.frames) print_row("frames", "%11g to %g", report.notes.frames->first, report.notes.frames->last);
  if (!report.notes.not_shown.empty()) print_row("not in pictures", "%11s", join_words(report.notes.not_shown).c_str());
  if (report.is_plain) {
    if (report.clouds.empty()) {
      print_shape(report.shapes.front());
    } else {
      print_cloud(report.clouds.front());
    }
    print_build(report);
  } else {
    print_scene(report);
  }
  std::printf("\n");
}
