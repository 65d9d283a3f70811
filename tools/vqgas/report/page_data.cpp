#include "tools/vqgas/report/page_data.h"

#include <algorithm>
#include <bit>
#include <functional>

#include "gas/gas_geometry_bvh4.h"
#include "tools/vqgas/report/page_geometry.h"
#include "tools/vqgas/report/tree_measure.h"
#include "tools/vqgas/support/base64.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_module/module_combiner.h"

namespace {

using Json = nlohmann::ordered_json;

/// A tree of the scene and what it is built over.
struct PageTree {
  std::string name;
  const char* kind;   ///< "mesh", "hair", "points", "scene", "group" or "bundle"
  const char* items;  ///< what the tree is built over, in the plural
  std::unique_ptr<TreeSource> source;
  std::vector<PlacedShape> placed;
  bool is_in_world = false;                 ///< else in the space of the shape, group or bundle
  std::function<uint(uint)> get_primitive;  ///< of an item; null: items are clusters of objects
  std::function<uint(uint)> get_owner;      ///< of an item: number of the object or instance; null: of a shape
  std::vector<std::string> owner_names;     ///< [object] for the list of visits
  std::vector<ArrayBytes> memory;
  const GasClusterable* structure = nullptr;  ///< null: clusters are not asked for
  uint parts = 0, built_parts = 0;            ///< of a grid
  TreeMeasures measures;
  u64 all_node_bytes = 0;
};

constexpr uint wanted_clusters = 1024;  // as many as a scene asks an object for at most

std::unique_ptr<TreeSource> make_wide(const GasBvh<4>& tree, bool has_places) {
  if (tree.is_empty()) return nullptr;
  return std::make_unique<WideTree>(tree, has_places);
}

std::unique_ptr<TreeSource> make_grid(const GasGridTree& grid) {
  if (grid.is_empty()) return nullptr;
  return std::make_unique<GridTree>(grid);
}

std::vector<std::string> list_names(const std::vector<std::shared_ptr<ModuleSceneObject>>& objects) {
  constexpr std::size_t most_names = 4096;
  std::vector<std::string> names;
  for (std::size_t k = 0; k < std::min(objects.size(), most_names); ++k)
    names.emplace_back(objects[k]->get_name().get_data());
  return names;
}

/// Lists the trees of a scene: that over the objects, groups, bundles, shapes, clouds.
class TreeLister {
 public:
  TreeLister(const QueryScene& scene, const SceneReport& report) : scene_(scene), report_(report) {}

  std::vector<PageTree> list() {
    const SceneObjects& objects = scene_.get_objects();
    if (!report_.is_plain) {
      add_objects("scene tree", "scene", objects.objects, *objects.tree);
      add_groups(objects.objects);
      for (const SceneBundle& bundle : objects.bundles) add_bundle(bundle);
    }
    for (std::size_t k = 0; k < report_.shapes.size(); ++k) add_shape(scene_.get_shapes()[k], report_.shapes[k]);
    for (std::size_t k = 0; k < report_.clouds.size(); ++k) add_cloud(scene_.get_clouds()[k], report_.clouds[k]);
    return std::move(trees_);
  }

 private:
  void add(PageTree&& tree) {
    if (tree.source != nullptr) trees_.push_back(std::move(tree));
  }

  void add_objects(const std::string& name, const char* kind,
                   const std::vector<std::shared_ptr<ModuleSceneObject>>& objects, const GasSceneTree& structure) {
    PageTree tree;
    tree.name = name;
    tree.kind = kind;
    tree.items = "clusters of objects";
    tree.source = make_wide(structure.get_tree(), true);
    tree.placed = list_placed(scene_, objects);
    tree.is_in_world = &objects == &scene_.get_objects().objects;
    tree.get_owner = [&structure](uint place) { return structure.get_instance_index(place); };
    tree.owner_names = list_names(objects);
    tree.memory = list_array_bytes(structure.get_tree(), structure);
    add(std::move(tree));
  }

  void add_groups(const std::vector<std::shared_ptr<ModuleSceneObject>>& objects) {
    for (const auto& object : objects) {
      const auto* group = dynamic_cast<const ModuleCombiner*>(object.get());
      if (group == nullptr || std::find(groups_.begin(), groups_.end(), group->get_structure()) != groups_.end())
        continue;
      groups_.push_back(group->get_structure());
      add_objects(group->get_name().get_data(), "group", group->get_objects(),
                  static_cast<const GasSceneTree&>(*group->get_structure()));
      add_groups(group->get_objects());
    }
  }

  void add_bundle(const SceneBundle& bundle) {
    const GasGeometryBundle& structure = *bundle.structure;
    PageTree tree;
    tree.name = "bundle of " + std::to_string(structure.get_instance_count()) + " instances";
    tree.kind = "bundle";
    tree.items = "clusters of instances";
    tree.source = make_wide(structure.get_tree(), true);
    tree.placed = list_placed(scene_, bundle);
    tree.get_owner = [&structure](uint place) { return structure.get_instance_index(place); };
    tree.memory = list_array_bytes(structure.get_tree(), structure);
    add(std::move(tree));
  }

  void add_shape(const SceneShape& shape, const ShapeReport& report) {
    PageTree tree;
    tree.name = report.name;
    tree.kind = shape.hair != nullptr ? "hair" : "mesh";
    tree.items = shape.hair != nullptr ? "segments" : "polygons";
    tree.placed = {{&shape, nullptr, {}, 0}};
    tree.is_in_world = report_.is_plain;
    tree.get_primitive = [](uint item) { return item; };
    tree.memory = report.tree.arrays;
    if (shape.tree != nullptr) {
      tree.source = make_wide(*shape.tree, false);
      if (const auto* mesh = dynamic_cast<const GasGeometryBvh4*>(shape.structure.get()))
        tree.get_primitive = [mesh](uint item) { return mesh->get_primitive(item); };
    } else if (shape.grid != nullptr) {
      tree.source = make_grid(shape.grid->get_grid());
      tree.get_primitive = [&grid = *shape.grid](uint item) { return grid.get_primitive(item); };
      tree.parts = shape.grid->get_grid().get_part_count();
      tree.built_parts = shape.grid->get_grid().get_built_part_count();
    }
    tree.structure = shape.structure.get();
    add(std::move(tree));
  }

  void add_cloud(const SceneCloud& cloud, const CloudReport& report) {
    PageTree tree;
    tree.name = cloud.name.empty() ? "points" : cloud.name;
    tree.kind = "points";
    tree.items = "points";
    tree.source = make_grid(cloud.structure->get_grid());
    tree.placed = {{nullptr, &cloud, {}, 0}};
    tree.is_in_world = report_.is_plain;
    tree.get_primitive = [](uint item) { return item; };
    tree.memory = report.arrays;
    tree.parts = cloud.structure->get_grid().get_part_count();
    tree.built_parts = cloud.structure->get_grid().get_built_part_count();
    add(std::move(tree));
  }

  const QueryScene& scene_;
  const SceneReport& report_;
  std::vector<PageTree> trees_;
  std::vector<const GasObject*> groups_;
};

/// Keeps most_page_trees: the first of each kind, then the second of each, and so on. Their order stays.
void choose_trees(std::vector<PageTree>& trees) {
  std::map<std::string, uint> kinds;
  std::vector<std::pair<uint, std::size_t>> ranks;  // among those of its kind, and place
  for (std::size_t k = 0; k < trees.size(); ++k) ranks.emplace_back(kinds[trees[k].kind]++, k);
  std::sort(ranks.begin(), ranks.end());
  ranks.resize(std::min(ranks.size(), most_page_trees));
  std::sort(ranks.begin(), ranks.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  std::vector<PageTree> chosen;
  chosen.reserve(ranks.size());
  for (const auto& [rank, place] : ranks) chosen.push_back(std::move(trees[place]));
  trees = std::move(chosen);
}

/// Bytes of the nodes of a level on the page, at most: every box may be oriented.
u64 get_level_bytes(const PageTree& tree, std::size_t level) {
  const u64 count = tree.measures.levels[level].get_node_count();
  const bool is_below_oriented =
      level > 0 && tree.measures.levels[level - 1].nodes[static_cast<uint>(TreeNodeKind::oriented)] > 0;
  return count * (PageNodes::node_bytes + (is_below_oriented ? PageNodes::frame_bytes : 0));
}

void measure(PageTree& tree) {
  if (tree.structure != nullptr) {
    CoreVector<void*> handles;
    tree.structure->get_clusters(handles, wanted_clusters, 0.5f);
    tree.source->set_clusters(handles);
  }
  tree.measures = measure_tree(*tree.source);
  for (std::size_t level = 0; level < tree.measures.levels.size(); ++level)
    tree.all_node_bytes += get_level_bytes(tree, level);
}

/// Divides `whole` among those who want so much: none gets more than it wants, and none that wants more gets less than
/// another.
std::vector<u64> share_out(const std::vector<u64>& wanted, u64 whole) {
  std::vector<std::size_t> order(wanted.size());
  for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return wanted[a] < wanted[b]; });
  std::vector<u64> shares(wanted.size());
  std::size_t left = order.size();
  for (const std::size_t k : order) {
    shares[k] = std::min(wanted[k], whole / left--);
    whole -= shares[k];
  }
  return shares;
}

/// Whole levels within `most_bytes`; the root at least.
uint count_shown_levels(const PageTree& tree, u64 most_bytes) {
  u64 bytes = 0;
  uint count = 0;
  while (count < tree.measures.levels.size()) {
    bytes += get_level_bytes(tree, count);
    if (count > 0 && bytes > most_bytes) break;
    ++count;
  }
  return count;
}

Json list_levels(const TreeMeasures& measures) {
  Json levels = Json::array();
  for (const TreeLevel& level : measures.levels) {
    Json row = {{"nodes", level.nodes}, {"items", level.items}, {"cost", level.cost}};
    row["overlap"] = level.overlap_boxes > 0 ? Json(level.overlap / double(level.overlap_boxes)) : Json();
    levels.push_back(row);
  }
  return levels;
}

/// Clusters by powers of two of their items: [smallest size, number] pairs.
Json list_cluster_sizes(const std::vector<u64>& cluster_items) {
  std::map<u64, u64> sizes;
  for (const u64 items : cluster_items) ++sizes[std::bit_floor(items)];
  return sizes;
}

Json make_nodes_json(const PageNodes& nodes) {
  return {{"count", nodes.kinds.size()},
          {"kinds", print_base64(nodes.kinds)},
          {"boxes", print_base64(nodes.boxes)},
          {"frames", print_base64(nodes.frames)},
          {"items", print_base64(nodes.items)},
          {"overlap_unit", PageNodes::overlap_unit},
          {"overlaps", print_base64(nodes.overlaps)},
          {"clusters", print_base64(nodes.clusters)}};
}

Json make_pieces_json(const PagePieces& pieces) {
  return {{"values", print_base64(pieces.values)},
          {"places", print_base64(pieces.places)},
          {"primitives", print_base64(pieces.primitives)}};
}

Json make_geometry_json(const PageGeometry& geometry) {
  return {{"shown", geometry.shown},
          {"total", geometry.total},
          {"stride", geometry.stride},
          {"triangles", make_pieces_json(geometry.triangles)},
          {"strands", make_pieces_json(geometry.strands)},
          {"points", make_pieces_json(geometry.points)}};
}

/// [place in the item order] of a scene or a bundle: object or instance.
std::vector<u32> list_owners(const PageTree& tree) {
  std::vector<u32> owners;
  owners.reserve(tree.measures.items.size());
  for (const uint place : tree.measures.items) owners.push_back(tree.get_owner(place));
  return owners;
}

/// Tables and charts of one tree.
Json make_tree_json(const PageTree& tree) {
  Json json = {{"name", tree.name},
               {"kind", tree.kind},
               {"items", tree.items},
               {"item_count", tree.measures.items.size()},
               {"is_in_world", tree.is_in_world},
               {"is_over_objects", tree.get_owner != nullptr},
               {"levels", list_levels(tree.measures)},
               {"leaf_sizes", tree.measures.leaf_sizes}};
  if (tree.structure != nullptr)
    json["clusters"] = {{"wanted", wanted_clusters},
                        {"made", tree.measures.cluster_items.size()},
                        {"sizes", list_cluster_sizes(tree.measures.cluster_items)}};
  if (tree.parts > 0) json["parts"] = {{"all", tree.parts}, {"built", tree.built_parts}};
  json["is_displaced"] = std::any_of(tree.placed.begin(), tree.placed.end(), [](const PlacedShape& placed) {
    return placed.shape != nullptr && placed.shape->displaced != nullptr;
  });
  for (const ArrayBytes& array : tree.memory) json["memory"].push_back({{"name", array.name}, {"bytes", array.bytes}});
  return json;
}

Json make_heading_json(const SceneReport& report, const PageHeading& heading) {
  Json json = {{"name", heading.name},      {"settings", heading.settings},          {"trace", heading.command},
               {"threads", report.threads}, {"build_seconds", report.build_seconds}, {"kept", report.get_kept_count()}};
  json["stages"] = Json::array();
  for (const TaskSeconds& stage : report.stages) json["stages"].push_back({stage.task, stage.seconds});
  return json;
}

/// The tree of the scene, which shows all geometry, gets half of the bytes if there are others.
std::vector<u64> share_out_geometry(const std::vector<PageTree>& trees, std::vector<u64> wanted, u64 whole) {
  if (trees.empty() || std::string(trees.front().kind) != "scene") return share_out(wanted, whole);
  const u64 of_scene = std::min(wanted.front(), whole / 2);
  wanted.front() = 0;
  std::vector<u64> shares = share_out(wanted, whole - of_scene);
  shares.front() = of_scene;
  return shares;
}

/// Arrays of all trees: about half of the bytes for nodes, more if the geometry leaves some, and the rest for geometry.
void add_arrays(const std::vector<PageTree>& trees, u64 most_bytes, AppProgressBar* progress, Json& json) {
  std::vector<u64> node_bytes, owner_bytes, geometry_bytes;
  u64 all_geometry = 0;
  for (const PageTree& tree : trees) {
    owner_bytes.push_back(tree.get_owner ? sizeof(u32) * tree.measures.items.size() : 0);
    node_bytes.push_back(tree.all_node_bytes + owner_bytes.back());
    geometry_bytes.push_back(estimate_geometry_bytes(tree.placed));
    all_geometry += geometry_bytes.back();
  }
  const u64 most_nodes = std::max(most_bytes / 2, most_bytes - std::min(most_bytes, all_geometry));
  const std::vector<u64> node_shares = share_out(node_bytes, most_nodes);
  std::vector<uint> level_counts;
  u64 left = most_bytes;
  for (std::size_t k = 0; k < trees.size(); ++k) {
    // Owners of leaves that the page lacks serve nothing.
    const bool has_all = node_shares[k] >= node_bytes[k];
    if (!has_all) owner_bytes[k] = 0;
    level_counts.push_back(count_shown_levels(trees[k], node_shares[k] - owner_bytes[k]));
    for (uint level = 0; level < level_counts[k]; ++level) left -= std::min(left, get_level_bytes(trees[k], level));
    left -= std::min(left, owner_bytes[k]);
  }
  const std::vector<u64> geometry_shares = share_out_geometry(trees, geometry_bytes, left);
  for (std::size_t k = 0; k < trees.size(); ++k) {
    const PageTree& tree = trees[k];
    const AppProgressScope stage(progress, "Thin trees", 1.0 / double(trees.size()));
    Json& out = json["trees"][k];
    out["shown_levels"] = level_counts[k];
    out["nodes"] = make_nodes_json(collect_nodes(*tree.source, level_counts[k]));
    if (owner_bytes[k] > 0) out["owners"] = print_base64(list_owners(tree));
    if (!tree.owner_names.empty()) out["owner_names"] = tree.owner_names;
    if (tree.get_owner) {
      out["geometry"] = make_geometry_json(collect_geometry(tree.placed, geometry_shares[k]));
      continue;
    }
    std::vector<uint> primitives = tree.measures.items;
    for (uint& item : primitives) item = tree.get_primitive(item);
    out["geometry"] = make_geometry_json(collect_geometry(tree.placed.front(), primitives, geometry_shares[k]));
  }
}

}  // namespace

nlohmann::ordered_json make_page_data(const QueryScene& scene, const SceneReport& report, const PageHeading& heading,
                                      u64 most_bytes, AppProgressBar* progress) {
  Json json = make_heading_json(report, heading);
  std::vector<PageTree> trees = TreeLister(scene, report).list();
  json["tree_count"] = trees.size();
  choose_trees(trees);
  {
    const AppProgressScope all(progress, "Measure trees", 0.5);
    for (PageTree& tree : trees) {
      const AppProgressScope stage(progress, "Measure trees", 1.0 / double(trees.size()));
      measure(tree);
      throw_if_interrupted();
      json["trees"].push_back(make_tree_json(tree));
    }
  }
  const AppProgressScope all(progress, "Thin trees", 0.5);
  add_arrays(trees, most_bytes, progress, json);
  return json;
}
