// tools/vqgas/source/mesh_builder.h
//
// Grows a mesh piece by piece, whether it comes from files or from code.
#pragma once
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_geometry/poly_mesh.h"

/// A mesh on its way into the structure, with the surface colours of its groups.
struct MeshSource {
  PolyMeshData data;
  std::vector<Color> group_colors;
  std::string name;  ///< of the file, and of the mesh in a file of several: stands in errors
};

class MeshBuilder {
 public:
  uint add_group(const std::string& name, const Color& color);
  uint add_vertex(const GMathVec3<double>& position);
  uint add_normal(const GMathVec3<float>& normal);
  uint add_uv(const GMathVec3<float>& uv);
  uint get_vertex_count() const { return static_cast<uint>(source_.data.positions.size()); }

  /// Appends a polygon. `normals` and `uvs` are indices from add_normal() and add_uv(), one a corner, or empty: then
  /// the polygon is flat unless smoothed, and its texture coordinates are 0.
  void add_polygon(std::span<const u32> vertices, uint group, std::span<const u32> normals = {},
                   std::span<const u32> uvs = {});
  void add_polygon(std::initializer_list<u32> vertices, uint group) { add_polygon(std::span(vertices), group); }

  /// Appends another mesh. False, and nothing is done, when both move with different sample times.
  bool append(const MeshSource& other);

  /// Hands out the mesh: vertices at the very same place become one, polygons without normals keep none.
  MeshSource finish();
  /// Hands out the mesh with each vertex as it was added, for meshes whose motion is computed per vertex.
  MeshSource finish_unwelded();

 private:
  bool append_motion(const MeshSource& other);

  MeshSource source_;
  GeometryUvMap uv_map_;
  bool has_uvs_ = false;
  bool has_normals_ = false;
};

/// Polygons that meet at a smaller angle are shown as one smooth surface.
inline constexpr double crease_degrees = 40.0;

/// Gives corners without a normal the mean normal of the polygons around their vertex that meet at no more than
/// `crease_degrees`: smooth surfaces without softened edges. Leaves meshes that move alone.
void complete_normals(PolyMeshData& data, double crease_degrees);
