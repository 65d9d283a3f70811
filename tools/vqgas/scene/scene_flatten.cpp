#include "tools/vqgas/scene/scene_flatten.h"

#include <algorithm>

#include "tools/vqgas/scene/scene_objects.h"
#include "tools/vqgas/source/groom.h"
#include "tools/vqgas/support/input_error.h"

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
  Flattener(const SceneSource& scene, double frame, std::vector<FlatPart>* parts)
      : scene_(scene), frame_(frame), parts_(parts) {}

  void add(const std::vector<ObjectSource>& objects, const Matrix& around) {
    for (const ObjectSource& object : objects) {
      ModuleSceneItem item((CoreString()));
      set_matrix(item, object, frame_);
      if (!has_invertible_matrix(item)) continue;
      const Matrix matrix = around * item.get_global_matrix();
      if (object.shape != core_invalid_index) {
        add_shape(object.shape, matrix);
      } else if (object.bundle != core_invalid_index) {
        add_bundle(scene_.bundles[object.bundle], matrix);
      } else if (object.group != core_invalid_index) {
        add(scene_.groups[object.group], matrix);
      }
    }
  }

  MeshSource finish() { return builder_.finish(); }

 private:
  void add_bundle(const BundleSource& bundle, const Matrix& around) {
    std::vector<Matrix> matrices = bundle.matrices;
    if (bundle.motion != nullptr) bundle.motion->get_matrices(frame_, matrices.data());
    for (std::size_t k = 0; k < matrices.size(); ++k)
      if (is_invertible(matrices[k])) add_shape(bundle.shapes[k], around * matrices[k]);
  }

  void add_shape(uint shape, const Matrix& matrix) {
    const MeshSource* mesh = std::get_if<MeshSource>(&scene_.shapes[shape]);
    if (mesh == nullptr) return;
    if (parts_ != nullptr) parts_->push_back({shape, matrix, polygon_count_});
    polygon_count_ += static_cast<uint>(mesh->data.polygon_sizes.size());
    add_mesh(*mesh, matrix);
  }

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
  std::vector<FlatPart>* parts_;
  uint polygon_count_ = 0;
  MeshBuilder builder_;
};

}  // namespace

void make_surface_mesh(const SceneSource& scene, const std::string& name, const char* use, PolyMesh& mesh,
                       std::vector<FlatPart>* parts) {
  MeshSource source = flatten_scene(scene, 0.0, parts);
  if (source.data.polygon_sizes.empty()) throw InputError(name, std::string("holds no mesh that ") + use);
  source.name = name;
  create_groom_mesh(std::move(source), crease_degrees, mesh);
}

MeshSource flatten_scene(const SceneSource& scene, double frame, std::vector<FlatPart>* parts) {
  Flattener flattener(scene, frame, parts);
  flattener.add(scene.objects, Matrix());
  return flattener.finish();
}
