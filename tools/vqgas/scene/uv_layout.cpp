#include "tools/vqgas/scene/uv_layout.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <unordered_map>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_geometry/geometry_fragment.h"
#include "vq_of/of_app.h"

namespace {

using Vec = GMathVec3<double>;

constexpr uint check_interval = 16384;  // polygons between checks for a signal

/// Numbers the different UV positions of a map. Importers repeat a position for each polygon or vertex; then islands
/// would fall apart.
class UvWelder {
 public:
  explicit UvWelder(const GeometryUvMap& map) : map_(map), numbers_(map.positions.size(), core_invalid_index) {}

  /// The number of a position by its index in the map.
  u32 get(u32 index) {
    u32& number = numbers_[index];
    if (number != core_invalid_index) return number;
    const float u = map_.positions[index].x + 0.0f, v = map_.positions[index].y + 0.0f;  // -0 becomes 0
    const u64 bits = u64{std::bit_cast<u32>(u)} << 32 | std::bit_cast<u32>(v);
    const auto [place, is_new] = known_.try_emplace(bits, static_cast<u32>(positions_.size()));
    if (is_new) positions_.emplace_back(u, v, 0.0f);
    return number = place->second;
  }
  std::vector<GMathVec3<float>> take_positions() { return std::move(positions_); }

 private:
  struct Hash {
    std::size_t operator()(u64 bits) const {
      bits = (bits ^ bits >> 31) * 0x9e3779b97f4a7c15u;
      return static_cast<std::size_t>(bits ^ bits >> 29);
    }
  };
  const GeometryUvMap& map_;
  std::vector<u32> numbers_;
  std::unordered_map<u64, u32, Hash> known_;
  std::vector<GMathVec3<float>> positions_;
};

enum class Placing { placed, unplaced, invalid };

/// Entry 0 of a map is that of corners without a UV position.
Placing classify(const GeometryUvMap& map, std::span<const u32> corners) {
  bool has_uvs = false;
  for (const u32 corner : corners) {
    const GMathVec3<float>& uv = map.positions[corner];
    has_uvs |= corner != 0;
    if (!(std::fabs(uv.x) <= most_uv_coordinate && std::fabs(uv.y) <= most_uv_coordinate)) return Placing::invalid;
  }
  return has_uvs ? Placing::placed : Placing::unplaced;
}

/// Copies the placed polygons of a mesh with one of its maps.
PolyMeshData copy_placed(const MeshSource& mesh, const GeometryUvMap& map, UvLayout& layout) {
  const PolyMeshData& from = mesh.data;
  PolyMeshData to;
  to.positions = from.positions;
  to.group_names = from.group_names;
  GeometryUvMap& uvs = to.uv_maps.emplace_back();
  uvs.name = map.name;
  UvWelder welder(map);
  std::size_t first = 0;
  for (std::size_t polygon = 0; polygon < from.polygon_sizes.size(); ++polygon) {
    if (polygon % check_interval == 0) throw_if_interrupted();
    const u32 size = from.polygon_sizes[polygon];
    const std::span corners(map.corner_positions.data() + first, size);
    const Placing placing = size < 3 ? Placing::unplaced : classify(map, corners);
    if (placing == Placing::placed) {
      to.polygon_sizes.push_back(size);
      if (!from.polygon_groups.empty()) to.polygon_groups.push_back(from.polygon_groups[polygon]);
      for (u32 k = 0; k < size; ++k) {
        to.polygon_vertices.push_back(from.polygon_vertices[first + k]);
        uvs.corner_positions.push_back(welder.get(corners[k]));
        if (!from.edge_visible.empty()) to.edge_visible.push_back(from.edge_visible[first + k]);
      }
    }
    layout.unplaced += placing == Placing::unplaced;
    layout.invalid += placing == Placing::invalid;
    first += size;
  }
  uvs.positions = welder.take_positions();
  if (!from.motion_positions.empty()) weld_vertices(to);  // those of static meshes are
  return to;
}

std::shared_ptr<const PolyMesh> create_mesh(PolyMeshData&& data, const std::string& name) {
  auto mesh = std::make_shared<PolyMesh>();
  CoreString fault;
  if (!mesh->create(std::move(data), fault)) throw InputError(name, fault.get_data());
  return mesh;
}

/// Adds the projected UV position of each corner. The host evaluates three or four corners of a polygon; further ones
/// follow from the first three, since a projection is linear.
void add_projection(MeshSource& mesh, PolyMeshProjection projection) {
  PolyMeshData copy = mesh.data;
  copy.motion_positions.clear();
  copy.uv_projection = projection;
  const auto projected = create_mesh(std::move(copy), mesh.name);
  OfApp app(1);
  const CtxEval ctx(app.get_factory());
  GeometryFragment fragment(ctx, *projected);
  GeometryUvMap map;
  map.name = projection == PolyMeshProjection::planar ? "planar" : "cubic";
  map.positions.emplace_back();
  map.corner_positions.assign(mesh.data.polygon_vertices.size(), 0);
  for (uint polygon = 0; polygon < projected->get_polygon_count(); ++polygon) {
    if (polygon % check_interval == 0) throw_if_interrupted();
    if (!projected->is_polygon_valid(polygon)) continue;
    fragment.set_polygon(polygon);
    const uint count = projected->get_polygon_vertex_count(polygon), first = projected->get_first_corner(polygon);
    const auto get = [&](uint corner) {
      return Vec(projected->get_position(projected->get_polygon_vertex(polygon, corner)));
    };
    const Vec origin = get(0), x = get(1) - origin, y = get(2) - origin, normal = x.cross(y);
    for (uint corner = 0; corner < count; ++corner) {
      if (count <= 4) {
        fragment.set_corner(count, corner);
      } else {
        const Vec p = get(corner) - origin;
        const double scale = 1.0 / normal.dot(normal);
        fragment.set_uvw({p.cross(y).dot(normal) * scale, x.cross(p).dot(normal) * scale, 0.0});
      }
      map.corner_positions[first + corner] = static_cast<u32>(map.positions.size());
      map.positions.push_back(fragment.get_uv(0));
    }
  }
  mesh.data.uv_maps.push_back(std::move(map));
}

std::string list_names(const SceneSource& scene) {
  std::string list;
  for (const SceneFile& file : scene.files) list += (list.empty() ? "" : ", ") + file.name;
  return list;
}

[[noreturn]] void fail_without_maps(const SceneSource& scene, const std::string& map_name,
                                    const std::vector<std::string>& known) {
  const std::string name = list_names(scene);
  const auto is_mesh = [](const ShapeSource& shape) { return std::holds_alternative<MeshSource>(shape); };
  if (std::none_of(scene.shapes.begin(), scene.shapes.end(), is_mesh))
    throw InputError(name, "holds no mesh, and only meshes have UV maps");
  if (known.empty())
    throw InputError(name, "has no UV map; --project planar or --project cubic makes one from the positions");
  std::string list;
  for (const std::string& entry : known) list += (list.empty() ? "" : ", ") + entry;
  throw InputError(name, "has no UV map '" + map_name + "'; there are " + list);
}

}  // namespace

void project_uvs(SceneSource& scene, PolyMeshProjection projection) {
  for (ShapeSource& shape : scene.shapes) {
    MeshSource* mesh = std::get_if<MeshSource>(&shape);
    if (mesh != nullptr && mesh->data.uv_maps.empty()) add_projection(*mesh, projection);
  }
}

UvLayout make_uv_layout(const MeshSource& mesh, uint map) {
  UvLayout layout;
  layout.name = mesh.name;
  layout.map = map;
  for (const GeometryUvMap& entry : mesh.data.uv_maps) layout.map_names.emplace_back(entry.name.get_data());
  layout.mesh = create_mesh(copy_placed(mesh, mesh.data.uv_maps[map], layout), mesh.name);
  return layout;
}

std::vector<UvLayout> make_uv_layouts(const SceneSource& scene, const std::string& map_name) {
  std::vector<UvLayout> layouts;
  std::vector<std::string> known;
  for (uint shape = 0; shape < scene.shapes.size(); ++shape) {
    const MeshSource* mesh = std::get_if<MeshSource>(&scene.shapes[shape]);
    if (mesh == nullptr) continue;
    const auto& maps = mesh->data.uv_maps;
    for (const GeometryUvMap& map : maps)
      if (std::find(known.begin(), known.end(), map.name.get_view()) == known.end())
        known.emplace_back(map.name.get_data());
    for (uint map = 0; map < maps.size(); ++map) {
      if (!map_name.empty() && maps[map].name.get_view() != map_name) continue;
      layouts.push_back(make_uv_layout(*mesh, map));
      layouts.back().shape = shape;
      break;
    }
  }
  if (layouts.empty()) fail_without_maps(scene, map_name, known);
  return layouts;
}

UvTriangle get_uv_triangle(const UvLayout& layout, uint polygon, uint part) {
  const GeometryUvMap& map = layout.get_map();
  const GMathVec3<u32> corners = layout.mesh->get_part_corners(polygon, part);
  UvTriangle triangle;
  for (uint k = 0; k < 3; ++k) {
    const GMathVec3<float>& uv = map.positions[map.corner_positions[corners[k]]];
    triangle[k] = {uv.x, uv.y};
  }
  return triangle;
}
