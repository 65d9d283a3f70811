// tools/vqgas/source/mesh_builder.h
//
// Builds a mesh polygon by polygon, for importers and built-in scenes.
#pragma once
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/poly_mesh.h"

/// A mesh before its structure is built, with the surface colors of its groups.
struct MeshSource {
  PolyMeshData data;
  std::vector<Color> group_colors;
  std::optional<DisplacedMeshSettings> displacement;
  bool prefers_grid = false;  ///< on a grid, unless another structure is chosen
  std::string name;           ///< of the file, and of the mesh if the file has several; for errors
};

class MeshBuilder {
 public:
  uint add_group(const std::string& name, const Color& color);
  uint add_vertex(const GMathVec3<double>& position);
  uint add_normal(const GMathVec3<float>& normal);
  /// Adds a position to UV map `map`; maps appear as they are used.
  uint add_uv(const GMathVec3<float>& uv, uint map = 0);
  /// Maps without a name are called uv, uv2, uv3 and so on. The first name of a map is kept.
  void name_uv_map(uint map, const std::string& name);
  uint get_vertex_count() const { return static_cast<uint>(source_.data.positions.size()); }

  /// Appends a polygon. `normals` and `uvs` are indices from add_normal() and add_uv(), one a corner. Without normals
  /// the polygon is flat unless complete_normals() smooths it; without uvs its texture coordinates are 0: entry 0 of
  /// the map, which no other corner has.
  void add_polygon(std::span<const u32> vertices, uint group, std::span<const u32> normals = {},
                   std::span<const u32> uvs = {});
  void add_polygon(std::initializer_list<u32> vertices, uint group) { add_polygon(std::span(vertices), group); }
  /// Sets the indices of the last polygon's corners into a UV map other than the first.
  void set_uvs(uint map, std::span<const u32> uvs);

  /// Appends another mesh. Returns false and does nothing when both move with different sample times.
  bool append(const MeshSource& other);

  /// Returns the mesh; static vertices with equal positions become one.
  MeshSource finish();
  /// Returns the mesh with each vertex as it was added, for meshes whose motion is computed per vertex.
  MeshSource finish_unwelded();

 private:
  bool append_motion(const MeshSource& other);
  GeometryUvMap& get_uv_map(uint map);
  void append_uvs(const std::vector<GeometryUvMap>& maps, std::size_t first_corner);

  MeshSource source_;
  std::vector<GeometryUvMap> uv_maps_;  ///< corners of the last polygons may be missing; some may have no positions
  bool has_normals_ = false;
};

/// Makes static vertices with equal positions one.
void weld_vertices(PolyMeshData& data);

/// Polygons that meet at a smaller angle are shaded as one smooth surface.
inline constexpr double crease_degrees = 40.0;

/// Gives each corner without a normal the mean normal of the polygons around its vertex that meet its own polygon at no
/// more than `crease_degrees`. Does nothing to a moving mesh.
void complete_normals(PolyMeshData& data, double crease_degrees);
