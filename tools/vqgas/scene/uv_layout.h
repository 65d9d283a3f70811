// tools/vqgas/scene/uv_layout.h
//
// UV layouts of the meshes of a scene, flat: one UV map of each mesh, with the polygons that it places.
#pragma once
#include <array>
#include <compare>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/vqgas/source/scene_source.h"

/// Coordinates beyond are taken for damage.
inline constexpr float most_uv_coordinate = 1e6f;

struct UvLayout {
  uint shape = 0;                      ///< of the scene
  std::string name;                    ///< of the mesh
  std::vector<std::string> map_names;  ///< of all its UV maps
  uint map = 0;                        ///< the one that is laid out
  std::shared_ptr<const PolyMesh>
      mesh;           ///< the placed polygons at rest; its only UV map has w = 0 and no equal positions
  uint unplaced = 0;  ///< polygons without UV positions
  uint invalid = 0;   ///< polygons with one that is not finite or beyond most_uv_coordinate

  const GeometryUvMap& get_map() const { return *mesh->get_uv_map(0); }
};

/// Gives meshes without UV maps a projected one. Polygons of more than four corners must be flat. Throws
/// Interrupted.
void project_uvs(SceneSource& scene, PolyMeshProjection projection);

/// Lays out map `map` of a mesh. Throws InputError when the mesh is invalid, Interrupted.
UvLayout make_uv_layout(const MeshSource& mesh, uint map);

/// Lays out the map of that name (empty: the first) of all meshes that have it, each once, in the order of the files.
/// Throws InputError when there is none, Interrupted.
std::vector<UvLayout> make_uv_layouts(const SceneSource& scene, const std::string& map_name);

/// A triangle of a polygon in UV space.
using UvPoint = GMathVec2<double>;
using UvTriangle = std::array<UvPoint, 3>;
UvTriangle get_uv_triangle(const UvLayout& layout, uint polygon, uint part);

/// Twice the area; negative where the corners run clockwise.
inline double get_doubled_area(const UvTriangle& t) {
  return (t[1].x - t[0].x) * (t[2].y - t[0].y) - (t[2].x - t[0].x) * (t[1].y - t[0].y);
}

/// The unit square whose lower left corner is (u, v).
struct UvTile {
  int v = 0, u = 0;  ///< compared in this order
  bool operator==(const UvTile&) const = default;
  bool operator<(const UvTile& other) const { return v != other.v ? v < other.v : u < other.u; }
};

/// The number of a tile in file names (UDIM): 1001 + u + 10 v; uU_vV for tiles without a number.
std::string get_tile_name(const UvTile& tile);

/// Shapes closer than this touch, and do not overlap.
inline constexpr double uv_touching = 1e-6;

/// The tiles in use: those whose inside a triangle of positive area enters by more than uv_touching. By v, then u.
/// Throws Interrupted.
/// @param most  stops beyond so many
std::vector<UvTile> find_uv_tiles(std::span<const UvLayout> layouts, std::size_t most);
