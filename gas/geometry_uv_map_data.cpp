#include "gas/geometry_uv_map_data.h"

#include <algorithm>
#include <utility>

#include "gas/frame/gas_rebuild.h"
#include "vq_geometry/geometry_fragment.h"
#include "vq_geometry/geometry_uv_map.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_app.h"

namespace {

/// The context of the calling thread, of the application that a module belongs to.
class ModuleThreadCtx {
 public:
  explicit ModuleThreadCtx(const OfApp& app) : top_(app.get_factory()) {
    const uint index = SysThreadManager::get_current_thread_index();
    thread_ = index < top_.get_thread_ctx_count() ? &top_.get_or_create_thread_ctx(index) : &top_;
  }
  const CtxEval& get() const { return *thread_; }

 private:
  CtxEval top_;
  const CtxEval* thread_;
};

/// The index of each corner's UV position: as the geometry stores them, or counted where each corner has its own.
class CornerUvs {
 public:
  CornerUvs(const GeometryObject& geometry, uint map) : geometry_(geometry), map_(geometry.get_uv_map(map)) {
    u64 corners = 0;
    for (uint polygon = 0; polygon < geometry.get_polygon_count(); ++polygon)
      corners += geometry.get_polygon_vertex_count(polygon);
    corner_count_ = corners;
    if (map_ != nullptr && (map_->positions.empty() || map_->corner_positions.size() < corners)) map_ = nullptr;
  }
  bool is_indexed() const { return map_ != nullptr; }
  const GeometryUvMap& get_map() const { return *map_; }
  u64 get_corner_count() const { return corner_count_; }
  /// True if the polygon has UV positions.
  bool has_uvs(uint polygon) const {
    if (!geometry_.is_polygon_valid(polygon)) return false;
    const uint count = geometry_.get_polygon_vertex_count(polygon);
    return count >= 3 && (is_indexed() || count <= 4);
  }
  /// The next polygon; polygons must be visited in order, each once.
  void enter(uint polygon) {
    first_ = next_;
    if (is_indexed() || has_uvs(polygon)) next_ += geometry_.get_polygon_vertex_count(polygon);
  }
  uint get(uint corner) const {
    return is_indexed() ? map_->corner_positions[first_ + corner] : static_cast<uint>(first_ + corner);
  }

 private:
  const GeometryObject& geometry_;
  const GeometryUvMap* map_;
  u64 corner_count_ = 0, first_ = 0, next_ = 0;
};

/// The directed edges so far. Each is in the list of its first vertex, newest first, and in the list of its second: a
/// search walks both lists at once, so that a vertex with very many edges (the center of a fan) costs little.
class EdgeLists {
 public:
  EdgeLists(uint vertex_count, u64 most_edges) : heads_(vertex_count) {
    if (most_edges >= GeometryUvMapData::invalid_index) throw std::bad_alloc();
    gas_need(heads_.get_count() == vertex_count && entries_.reserve(static_cast<uint>(most_edges)));
  }
  bool contains(uint first, uint second) const {
    uint out = heads_[first].out, in = heads_[second].in;
    while (out != GeometryUvMapData::invalid_index && in != GeometryUvMapData::invalid_index) {
      if (entries_[out].edge.second == second || entries_[in].edge.first == first) return true;
      out = entries_[out].next_out;
      in = entries_[in].next_in;
    }
    return false;
  }
  void add(uint first, uint second) {
    const uint entry = entries_.get_count();
    entries_.add({{first, second}, std::exchange(heads_[first].out, entry), std::exchange(heads_[second].in, entry)});
  }
  /// Ordered by first vertex, the newest edge of a vertex first.
  void write(CoreBasicArray<GeometryUvEdge>& edges) const {
    gas_need(edges.resize(entries_.get_count()));
    GeometryUvEdge* to = edges.get_items();
    for (const Heads& head : heads_)
      for (uint entry = head.out; entry != GeometryUvMapData::invalid_index; entry = entries_[entry].next_out)
        *to++ = entries_[entry].edge;
  }

 private:
  struct Heads {
    uint out = GeometryUvMapData::invalid_index;
    uint in = GeometryUvMapData::invalid_index;
  };
  struct Entry {
    GeometryUvEdge edge;
    uint next_out, next_in;
  };
  CoreBasicArray<Heads> heads_;  ///< [UV position]
  CoreVector<Entry> entries_;
};

void check_stop(const AppBase* app, uint index) {
  if (app != nullptr) gas_check_stop(*app, index);
}

/// One UV position per corner of the triangles and quadrilaterals.
void evaluate_uvs(const OfApp& module_app, const GeometryObject& geometry, const CornerUvs& corners, uint map,
                  const AppBase* app, CoreBasicArray<GMathVec3<float>>& uvs) {
  u64 count = 0;
  for (uint polygon = 0; polygon < geometry.get_polygon_count(); ++polygon)
    if (corners.has_uvs(polygon)) count += geometry.get_polygon_vertex_count(polygon);
  gas_need(count < GeometryUvMapData::invalid_index && uvs.resize(static_cast<uint>(count)));
  const ModuleThreadCtx ctx(module_app);
  GeometryFragment fragment(ctx.get(), geometry);
  GMathVec3<float>* to = uvs.get_items();
  for (uint polygon = 0; polygon < geometry.get_polygon_count(); ++polygon) {
    check_stop(app, polygon);
    if (!corners.has_uvs(polygon)) continue;
    fragment.set_polygon(polygon);
    const uint corner_count = geometry.get_polygon_vertex_count(polygon);
    for (uint corner = 0; corner < corner_count; ++corner) {
      fragment.set_corner(corner_count, corner);
      *to++ = fragment.get_uv(map);
    }
  }
}

CoreBasicArray<u8> get_group_visibility(const ModuleGeometry& module) {
  CoreBasicArray<u8> visible(module.get_shading_group_count());
  gas_need(visible.get_count() == module.get_shading_group_count());
  for (uint group = 0; group < visible.get_count(); ++group)
    visible[group] = module.get_shading_group_visibility(group) ? 1 : 0;
  return visible;
}

/// The edges of visible polygons between UV positions, of which there are `uv_count`.
void collect_edges(const ModuleGeometry& module, const GeometryObject& geometry, CornerUvs& corners, uint uv_count,
                   const AppBase* app, CoreBasicArray<GeometryUvEdge>& edges) {
  const CoreBasicArray<u8> visible = get_group_visibility(module);
  EdgeLists lists(uv_count, corners.get_corner_count());
  for (uint polygon = 0; polygon < geometry.get_polygon_count(); ++polygon) {
    check_stop(app, polygon);
    corners.enter(polygon);
    if (!corners.has_uvs(polygon)) continue;
    const uint group = geometry.get_polygon_shading_group(polygon);
    if (group >= visible.get_count() || visible[group] == 0) continue;
    const uint corner_count = geometry.get_polygon_vertex_count(polygon);
    for (uint corner = 0; corner < corner_count; ++corner) {
      if (!geometry.is_edge_visible(polygon, corner)) continue;
      const uint a = corners.get(corner), b = corners.get(corner + 1 < corner_count ? corner + 1 : 0);
      if (a >= uv_count || b >= uv_count || lists.contains(b, a)) continue;
      lists.add(a, b);
    }
  }
  lists.write(edges);
}

}  // namespace

void GeometryUvMapData::load() {
  const AppBase* app = geometry != nullptr ? geometry->get_application() : nullptr;
  const auto clear = [&] {
    uvs.remove_all();
    edges.remove_all();
  };
  gas_rebuild(
      "GeometryUvMapData.load", [&] { load_checked(app); }, clear);
}

void GeometryUvMapData::load_checked(const AppBase* app) {
  uvs.remove_all();
  edges.remove_all();
  const GeometryObject* object = geometry != nullptr ? geometry->get_geometry() : nullptr;
  if (object == nullptr || object->get_polygon_count() == 0) return;
  CornerUvs corners(*object, uv_map_index);
  if (corners.is_indexed()) {
    const auto& positions = corners.get_map().positions;
    gas_need(positions.size() < invalid_index && uvs.assign(positions.data(), static_cast<uint>(positions.size())));
  } else if (const OfApp* module_app = geometry->get_application()) {
    evaluate_uvs(*module_app, *object, corners, uv_map_index, app, uvs);
  }
  if (!uvs.is_empty()) collect_edges(*geometry, *object, corners, uvs.get_count(), app, edges);
}

void GeometryUvMapData::get_bboxes(CoreVector<GMathBbox3<float>>& boxes) const {
  gas_need(boxes.resize_for_overwrite(edges.get_count()));
  for (uint edge = 0; edge < edges.get_count(); ++edge) {
    const GMathVec3<float>&a = uvs[edges[edge].first], &b = uvs[edges[edge].second];
    for (uint axis = 0; axis < 3; ++axis) {
      boxes[edge].min[axis] = std::min(a[axis], b[axis]);
      boxes[edge].max[axis] = std::max(a[axis], b[axis]);
    }
  }
}

u64 GeometryUvMapData::get_memory_size() const {
  return sizeof(GeometryUvMapData) + u64{uvs.get_count()} * sizeof(GMathVec3<float>) +
         u64{edges.get_count()} * sizeof(GeometryUvEdge);
}

void GeometryUvMapDataTask::work(const uint& /*thread_index*/) { data->load_checked(app); }
