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
  uint add_uv(const GMathVec3<float>& uv);
  uint get_vertex_count() const { return static_cast<uint>(source_.data.positions.size()); }

  /// Appends a polygon. `normals` and `uvs` are indices from add_normal() and add_uv(), one a corner. Without normals
  /// the polygon is flat unless complete_normals() smooths it; without uvs its texture coordinates are 0.
  void add_polygon(std::span<const u32> vertices, uint group, std::span<const u32> normals = {},
                   std::span<const u32> uvs = {});
  void add_polygon(std::initializer_list<u32> vertices, uint group) { add_polygon(std::span(vertices), group); }

  /// Appends another mesh. Returns false and does nothing when both move with different sample times.
  bool append(const MeshSource& other);

  /// Returns the mesh; static vertices with equal positions become one.
  MeshSource finish();
  /// Returns the mesh with each vertex as it was added, for meshes whose motion is computed per vertex.
  MeshSource finish_unwelded();

 private:
  bool append_motion(const MeshSource& other);

  MeshSource source_;
  GeometryUvMap uv_map_;
  bool has_uvs_ = false;
  bool has_normals_ = false;
};

/// Polygons that meet at a smaller angle are shaded as one smooth surface.
inline constexpr double crease_degrees = 40.0;

/// Gives each corner without a normal the mean normal of the polygons around its vertex that meet its own polygon at no
/// more than `crease_degrees`. Does nothing to a moving mesh.
void complete_normals(PolyMeshData& data, double crease_degrees);
