#include "tools/vqgas/scene/scene_flatten.h"

#include <algorithm>

#include "tools/vqgas/scene/scene_objects.h"

namespace {

using Matrix = GMathMatrix4x4<double>;

/// Reverses the winding of all polygons, for mirrored objects.
void reverse_polygons(PolyMeshData& data) {
  std::size_t first = 0;
  const auto reverse = [&](std::vector<u32>& corners, std::size_t size) {
    if (corners.empty()) return;
    const auto begin = corners.begin() + static_cast<std::ptrdiff_t>(first);
    std::reverse(begin, begin + static_cast<std::ptrdiff_t>(size));
  };
  for (const u32 size : data.polygon_sizes) {
    reverse(data.polygon_vertices, size);
    reverse(data.corner_normals, size);
    for (GeometryUvMap& map : data.uv_maps) reverse(map.corner_positions, size);
    first += size;
  }
}

class Flattener {
 public:
  Flattener(const SceneSource& scene, double frame) : scene_(scene), frame_(frame) {}

  void add(const std::vector<ObjectSource>& objects, const Matrix& around) {
    for (const ObjectSource& object : objects) {
      ModuleSceneItem item((CoreString()));
      set_matrix(item, object, frame_);
      if (!has_invertible_matrix(item)) continue;
      const Matrix matrix = around * item.get_global_matrix();
      if (object.shape == core_invalid_index) {
        add(scene_.groups[object.group], matrix);
      } else if (const MeshSource* mesh = std::get_if<MeshSource>(&scene_.shapes[object.shape])) {
        add_mesh(*mesh, matrix);
      }
    }
  }

  MeshSource finish() { return builder_.finish(); }

 private:
  void add_mesh(MeshSource mesh, const Matrix& matrix) {
    mesh.data.motion_positions.clear();
    const Matrix inverse = matrix.get_inverse();
    for (GMathVec3<float>& position : mesh.data.positions)
      position = GMathVec3<float>(matrix.transform_point(GMathVec3<double>(position)));
    for (GMathVec3<float>& normal : mesh.data.normals)
      normal = GMathVec3<float>(inverse.transform_normal_transposed(GMathVec3<double>(normal)).get_normalized());
    if (matrix.get_determinant() < 0.0) reverse_polygons(mesh.data);
    builder_.append(mesh);
  }

  const SceneSource& scene_;
  const double frame_;
  MeshBuilder builder_;
};

}  // namespace

MeshSource flatten_scene(const SceneSource& scene, double frame) {
  Flattener flattener(scene, frame);
  flattener.add(scene.objects, Matrix());
  return flattener.finish();
}
