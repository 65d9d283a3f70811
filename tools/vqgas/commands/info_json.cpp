#include <nlohmann/json.hpp>

#include "tools/vqgas/commands/info_report.h"

namespace {

using Json = nlohmann::ordered_json;

void add_tree(Json& json, const TreeReport& tree, const char* bytes_name) {
  json["box"] = {{"min", {tree.bbox.min.x, tree.bbox.min.y, tree.bbox.min.z}},
                 {"max", {tree.bbox.max.x, tree.bbox.max.y, tree.bbox.max.z}}};
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
  Json& bytes = json[bytes_name];
  for (const ArrayBytes& array : tree.arrays) bytes[array.name] = double(array.bytes) / std::max(tree.kept, 1u);
  bytes["sum"] = double(get_sum(tree.arrays)) / std::max(tree.kept, 1u);
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
  if (shape.grid) {
    const GridReport& grid = *shape.grid;
    json["grid"] = {{"parts", grid.parts},
                    {"built_before_rays", grid.built_before},
                    {"built_after_rays", grid.built_after},
                    {"bytes_before_rays", grid.bytes_before},
                    {"bytes_after_rays", grid.bytes_after}};
  }
  if (shape.displaced.micro_triangles > 0)
    json["displaced"] = {{"micro_triangles", shape.displaced.micro_triangles},
                         {"cache_bytes", shape.displaced.cache_bytes},
                         {"peak_cache_bytes", shape.displaced.peak_cache_bytes},
                         {"cache_limit_bytes", shape.displaced.cache_limit}};
  add_tree(json, shape.tree, "bytes_per_primitive");
  for (const ClusterCount& clusters : shape.clusters)
    json["clusters"].push_back({{"wanted", clusters.requested}, {"made", clusters.made}});
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
  Json json = {{"file", report.file}};
  if (report.is_plain) {
    add_shape(json, report.shapes.front());
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
