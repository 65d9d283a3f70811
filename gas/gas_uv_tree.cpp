#include "gas/gas_uv_tree.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "gas/frame/gas_rebuild.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_object.h"

namespace {

/// Edges in a leaf of the tree: one a leaf would take 64 bytes of nodes an edge.
constexpr uint edges_per_leaf = 4;

/// Positions are tested, not boxes: the box of a position and a NaN may be that of the position alone.
bool is_measurable(const GMathVec3<float>& uv) {
  for (uint axis = 0; axis < 3; ++axis)
    if (!(std::fabs(uv[axis]) <= GasUvTree::most_coordinate)) return false;
  return true;
}

}  // namespace

GasUvTree::GasUvTree(const GasUvTree& other) : GasTree(other) { *this = other; }

GasUvTree& GasUvTree::operator=(const GasUvTree& other) {
  if (this == &other) return *this;
  GasTree::operator=(other);
  if (ray_leaf.function != nullptr) ray_leaf.user = this;
  app = other.app;
  use_first_uv_map = other.use_first_uv_map;
  dirty = other.dirty;
  bool is_whole = tree.is_empty() == other.tree.is_empty();
  const GasOutcome outcome = gas_try([&] {
    geometries = other.geometries;
    uv_map_name = other.uv_map_name;
    uv_maps = other.uv_maps;
    leaves = other.leaves;
  });
  is_whole = is_whole && outcome == GasOutcome::done && geometries.get_count() == other.geometries.get_count() &&
             uv_maps.get_count() == other.uv_maps.get_count() && leaves.get_count() == other.leaves.get_count();
  for (uint map = 0; is_whole && map < uv_maps.get_count(); ++map) {
    is_whole = uv_maps[map].uvs.get_count() == other.uv_maps[map].uvs.get_count() &&
               uv_maps[map].edges.get_count() == other.uv_maps[map].edges.get_count();
  }
  if (!is_whole) {
    geometries.remove_all();
    reset();
  }
  return *this;
}

GasUvTree::~GasUvTree() = default;

void GasUvTree::reset() {
  uv_maps = {};
  leaves = {};
  GasTree::clear();
  dirty = true;
}

void GasUvTree::update(AppBase& new_app, const CoreSet<OfObject*>& new_geometries, bool new_use_first_uv_map,
                       const CoreString& new_uv_map_name) {
  dirty = true;
  app = &new_app;
  use_first_uv_map = new_use_first_uv_map;
  const auto copy = [&] {
    uv_map_name = new_uv_map_name;
    if (&new_geometries == &geometries) return;
    CoreSet<OfObject*> copied;
    for (OfObject* item : new_geometries) copied.add(item);
    geometries = std::move(copied);
  };
  gas_rebuild("GasUvTree.update", copy, [&] { geometries.remove_all(); });
}

void GasUvTree::build() {
  reset();
  if (app == nullptr) return;
  const auto build_new = [&] {
    const uint count = geometries.get_count();
    const std::string title = "Building UV maps acceleration structure for " + std::to_string(count) +
                              (count == 1 ? " geometry" : " geometries");
    const AppOwnProgress progress(*app, title.c_str());
    build_maps(progress.get());
  };
  gas_rebuild("GasUvTree.build", build_new, [&] { reset(); });
}

void GasUvTree::build_maps(AppProgressBar* progress) {
  {
    const AppProgressScope stage(progress, "Loading UV maps data", 0.02);
    find_maps();
    load_maps();
    const auto end = std::remove_if(uv_maps.begin(), uv_maps.end(), [](const auto& map) { return map.is_empty(); });
    while (uv_maps.end() != end) uv_maps.remove_last();
  }
  CoreVector<GMathBbox3<float>> boxes;
  collect_boxes(boxes, progress);
  {
    const AppProgressScope stage(progress, "Building UV maps acceleration structure", 0.9, boxes.get_count());
    GasTree::create(boxes, progress, app, edges_per_leaf);
  }
  set_ray_leaf(leaf_raytrace_callback, this);
  dirty = false;
}

void GasUvTree::find_maps() {
  for (OfObject* item : geometries) {
    if (item == nullptr || !item->is_enabled()) continue;
    const ModuleBase* module = item->get_module();
    if (module == nullptr || !module->is_kindof(ModuleGeometry::class_info())) continue;
    const auto* geometry = static_cast<const ModuleGeometry*>(module);
    const GeometryObject* object = geometry->get_geometry();
    if (object == nullptr || object->get_uv_count() == 0) continue;
    uint index = 0;
    if (!use_first_uv_map && !uv_map_name.is_empty() && !object->get_uv_map_index(uv_map_name, index)) continue;
    gas_need(uv_maps.add(GeometryUvMapData(geometry, index)));
  }
}

void GasUvTree::load_maps() {
  std::vector<GeometryUvMapDataTask> tasks(uv_maps.get_count());
  for (uint map = 0; map < uv_maps.get_count(); ++map) {
    tasks[map].app = app;
    tasks[map].data = &uv_maps[map];
  }
  if (tasks.size() == 1) {
    tasks[0].run(SysThreadManager::get_current_thread_index());
  } else {
    SysThreadTaskManager manager(app->get_thread_manager());
    for (GeometryUvMapDataTask& task : tasks) {
      manager.add_task(&task);
      if (!app->is_stop_requested()) continue;
      manager.shutdown();
      break;
    }
    manager.wait_until_completed(true);
  }
  app->check_stop();
  for (const GeometryUvMapDataTask& task : tasks) gas_rethrow(task.get_outcome());
}

void GasUvTree::collect_boxes(CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress) {
  const AppProgressScope stage(progress, "Building bounding box list for UV maps acceleration structure", 0.08,
                               uv_maps.get_count());
  CoreVector<GMathBbox3<float>> map_boxes;
  for (uint map = 0; map < uv_maps.get_count(); ++map) {
    const GeometryUvMapData& data = uv_maps[map];
    data.get_bboxes(map_boxes);
    for (uint edge = 0; edge < map_boxes.get_count(); ++edge) {
      gas_check_stop(*app, edge);
      const GeometryUvEdge ends = data.edges[edge];
      const bool is_indexed = is_measurable(data.uvs[ends.first]) && is_measurable(data.uvs[ends.second]);
      gas_need(boxes.add(is_indexed ? map_boxes[edge] : GMathBbox3<float>()));  // the tree gives an empty box no leaf
      gas_need(leaves.add({map, edge}));
    }
    stage.step(map + 1);
  }
}

u64 GasUvTree::get_memory_size() const {
  u64 bytes = sizeof(GasUvTree) - sizeof(GasTree) + GasTree::get_memory_size() + geometries.get_extra_bytes() +
              uv_map_name.get_length() + u64{leaves.get_capacity()} * sizeof(GasUvLeaf) +
              u64{uv_maps.get_capacity() - uv_maps.get_count()} * sizeof(GeometryUvMapData);
  for (const GeometryUvMapData& map : uv_maps) bytes += map.get_memory_size();
  return bytes;
}

float GasUvTree::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& rays) const {
  if (dirty || rays.ray_count == 0) return 1.0f;
  rays.first_ray = 0;
  rays.last_ray = rays.ray_count - 1;
  rays.counter = 0;
  rays.ray_stride = sizeof(GMathRay);
  LeafData data{this, 1.0f};
  gas_try([&] { ray_hit_extent(ctx, shader, rays, &data); });
  return data.coverage;
}

float GasUvTree::get_distance_from_point_to_line(const GMathVec2<float>& point, const GMathVec3<float>& a,
                                                 const GMathVec3<float>& b) {
  if (a.x == b.x) return std::fabs(point.x - a.x);
  const float du = a.x - b.x, dv = b.y - a.y;
  return std::fabs(point.y * du + point.x * dv - (du * a.y + dv * a.x)) / std::sqrt(du * du + dv * dv);
}

void GasUvTree::leaf_raytrace_callback(void* user, const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                                       GeometryRaytraceCtx& rays) {
  LeafData& data = *static_cast<LeafData*>(user);
  const GasUvLeaf at = data.tree->leaves[leaf];
  const GeometryUvMapData& map = data.tree->uv_maps[at.map];
  const GeometryUvEdge edge = map.edges[at.edge];
  const GMathVec3<float>&a = map.uvs[edge.first], &b = map.uvs[edge.second];
  for (uint r = rays.first_ray; r <= rays.last_ray; ++r) {
    const GMathVec3<double>& origin = rays.get_ray(r).origin;
    const GMathVec2<float> point{static_cast<float>(origin.x), static_cast<float>(origin.y)};
    const float tolerance = static_cast<float>(rays.intervals[r].extent);
    if (!(std::min(a.x, b.x) - tolerance <= point.x && point.x <= std::max(a.x, b.x) + tolerance)) continue;
    if (!(std::min(a.y, b.y) - tolerance <= point.y && point.y <= std::max(a.y, b.y) + tolerance)) continue;
    const float distance = get_distance_from_point_to_line(point, a, b);
    data.coverage *= std::min(std::max(0.0f, distance / tolerance), 1.0f);  // NaN, for a tolerance of 0, becomes 0
    if (!(double{data.coverage} <= shader.hit_threshold)) continue;
    rays.geometry = map.geometry->get_geometry();
    rays.hit_weight = 1.0;
    const GeometryHitData behind;  // empty space, no custom data
    rays.push_intersection(ctx, shader, r, {0.0, 0.0, 0.0, GeometryUvMapData::invalid_index, 0}, &behind);
  }
}
