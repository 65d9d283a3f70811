#include "tools/vqgas/commands/info_report.h"
#include "tools/vqgas/commands/json_text.h"

namespace {

using Json = nlohmann::ordered_json;

void add_box(Json& json, const GMathBbox3<double>& box) {
  json["box"] = {{"min", {box.min.x, box.min.y, box.min.z}}, {"max", {box.max.x, box.max.y, box.max.z}}};
}

/// Bytes an item.
void add_bytes(Json& json, const std::vector<ArrayBytes>& arrays, uint count) {
  for (const ArrayBytes& array : arrays) json[array.name] = double(array.bytes) / std::max(count, 1u);
  json["sum"] = double(get_sum(arrays)) / std::max(count, 1u);
}

/// @param queries  rays or beams
void add_grid(Json& json, const GridReport& grid, const std::string& queries) {
  json["grid"] = {{"parts", grid.parts},
                  {"built_before_" + queries, grid.built_before},
                  {"built_after_" + queries, grid.built_after},
                  {"bytes_before_" + queries, grid.bytes_before},
                  {"bytes_after_" + queries, grid.bytes_after}};
}

void add_tree(Json& json, const TreeReport& tree, const char* bytes_name) {
  add_box(json, tree.bbox);
  if (tree.statistics) {
    const BvhStatistics& statistics = *tree.statistics;
    json["nodes"] = {{"aligned", statistics.aligned_nodes},
                     {"quantized", statistics.quantized_nodes},
                     {"oriented", statistics.oriented_nodes}};
    json["leaves"] = statistics.leaves;
    json["depth"] = statistics.depth;
    json["children_per_node"] = statistics.children_per_node;
    json["surface_area_cost"] = statistics.surface_area_cost;
  }
  add_bytes(json[bytes_name], tree.arrays, tree.kept);
  json["bytes"] = get_sum(tree.arrays);
}

void add_shape(Json& json, const ShapeReport& shape) {
  json["kind"] = shape.is_hair ? "hair" : "mesh";
  json["primitives"] = {
      {"in_file", shape.primitives}, {"kept", shape.tree.kept}, {"dropped", shape.primitives - shape.tree.kept}};
  json[shape.is_hair ? "points" : "vertices"] = shape.points;
  json["groups"] = shape.groups;
  if (shape.is_hair) {
    json["strands"] = shape.strands;
    json["shape"] = shape.is_cubic ? "cubic" : "linear";
  }
  json["structure"] = shape.is_hair ? "fur" : shape.grid ? "grid" : "bvh4";
  if (shape.grid) add_grid(json, *shape.grid, "rays");
  if (shape.displaced.micro_triangles > 0)
    json["displaced"] = {{"micro_triangles", shape.displaced.micro_triangles},
                         {"cache_bytes", shape.displaced.cache_bytes},
                         {"peak_cache_bytes", shape.displaced.peak_cache_bytes},
                         {"cache_limit_bytes", shape.displaced.cache_limit}};
  add_tree(json, shape.tree, "bytes_per_primitive");
  for (const ClusterCount& clusters : shape.clusters)
    json["clusters"].push_back({{"wanted", clusters.requested}, {"made", clusters.made}});
}

void add_cloud(Json& json, const CloudReport& cloud) {
  json["kind"] = "points";
  json["points"] = cloud.points;
  json["finite"] = cloud.finite;
  json["has_colors"] = cloud.has_colors;
  json["has_radii"] = cloud.has_radii;
  add_box(json, cloud.bbox);
  add_grid(json, cloud.grid, "beams");
  add_bytes(json["bytes_per_point"], cloud.arrays, cloud.points);
  json["bytes"] = get_sum(cloud.arrays);
}

void add_build(Json& json, const SceneReport& report) {
  const uint kept = report.get_kept_count();
  for (const TaskSeconds& stage : report.stages)
    json["stages"].push_back(
        {{"stage", stage.task}, {"seconds", stage.seconds}, {"mprim_per_second", get_rate(kept, stage.seconds)}});
  json["build"] = {{"seconds", report.build_seconds}, {"mprim_per_second", get_rate(kept, report.build_seconds)}};
}

Json make_objects(const ObjectsReport& report) {
  Json json;
  json["geometries"] = report.geometries;
  json["primitives"] = report.primitives;
  add_tree(json, report.tree, "bytes_per_cluster");
  json["objects"] = Json::array();
  for (const ObjectReport& object : report.objects) {
    json["objects"].push_back({{"name", object.name},
                               {"kind", object.kind},
                               {"primitives", object.primitives},
                               {"moves", object.is_moving},
                               {"clusters", object.clusters}});
    if (object.left_out != nullptr) json["objects"].back()["left_out"] = object.left_out;
  }
  return json;
}

Json make_bundle(const BundleReport& report) {
  Json json = {{"name", report.name},
               {"instances", report.instances},
               {"valid_instances", report.valid_instances},
               {"clusters", report.tree.kept},
               {"primitives", report.primitives},
               {"structures", {{"geometries", report.geometries}, {"built", report.built}}}};
  add_tree(json, report.tree, "bytes_per_cluster");
  json["bytes_of_structures"] = report.structure_bytes;
  json["bytes_flat"] = report.flat_bytes;
  return json;
}

}  // namespace

Json make_report_json(const SceneReport& report) {
  Json json = begin_report("info");
  json["file"] = report.file;
  if (report.notes.frames) {
    json["first_frame"] = report.notes.frames->first;
    json["last_frame"] = report.notes.frames->last;
  }
  if (!report.notes.not_shown.empty()) json["not_shown"] = report.notes.not_shown;
  if (report.is_plain) {
    if (report.clouds.empty()) {
      add_shape(json, report.shapes.front());
    } else {
      add_cloud(json, report.clouds.front());
    }
    json["threads"] = report.threads;
    add_build(json, report);
    return json;
  }
  json["kind"] = "scene";
  json["threads"] = report.threads;
  add_build(json, report);
  json["shapes"] = Json::array();
  for (const ShapeReport& shape : report.shapes) {
    Json& added = json["shapes"].emplace_back(Json{{"name", shape.name}, {"shown", shape.shown}});
    add_shape(added, shape);
  }
  if (!report.clouds.empty()) json["clouds"] = Json::array();
  for (const CloudReport& cloud : report.clouds)
    add_cloud(json["clouds"].emplace_back(Json{{"name", cloud.name}}), cloud);
  json["scene_tree"] = make_objects(report.whole);
  json["groups"] = Json::array();
  for (const ObjectsReport& group : report.groups) {
    json["groups"].push_back(make_objects(group));
    json["groups"].back()["name"] = group.name;
  }
  json["bundles"] = Json::array();
  for (const BundleReport& bundle : report.bundles) json["bundles"].push_back(make_bundle(bundle));
  return json;
}
