#include "tools/vqgas/scene/scene_displace.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "tools/vqgas/image/image_png.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/number_list.h"

namespace {

/// Of the box of the finite vertices; 0 if there are none.
double get_diagonal(const MeshSource& mesh) {
  GMathBbox3<double> box;
  box.set_empty();
  for (const GMathVec3<float>& position : mesh.data.positions)
    if (std::isfinite(position.x) && std::isfinite(position.y) && std::isfinite(position.z))
      box.add(GMathVec3<double>(position));
  return box.min.x <= box.max.x ? box.get_extent().get_length() : 0.0;
}

std::shared_ptr<const GeometryHeight> make_noise(double bound, double diagonal) {
  constexpr double cells_per_diagonal = 12.0;
  GeometryNoiseSettings settings;
  settings.seed = 1;
  settings.octaves = 5;
  settings.frequency = diagonal > 0.0 ? cells_per_diagonal / diagonal : 1.0;
  settings.amplitude = bound;
  return std::make_shared<GeometryNoiseHeight>(settings);
}

/// Black is -bound, white +bound. The first row of the heights is the last one of the picture.
std::shared_ptr<const GeometryHeight> make_image_height(const GrayImage& image, double bound) {
  std::vector<float> heights;
  heights.reserve(image.values.size());
  for (uint row = image.height; row-- > 0;)
    for (uint column = 0; column < image.width; ++column)
      heights.push_back(
          static_cast<float>(bound * (2.0 * double(image.values[std::size_t{row} * image.width + column]) - 1.0)));
  return std::make_shared<GeometryImageHeight>(image.width, image.height, std::move(heights));
}

/// Height functions by their bound, so that meshes of one size share an image.
class HeightMaker {
 public:
  explicit HeightMaker(const DisplaceOptions& options) {
    if (options.is_file()) image_ = read_gray_png(options.height);
  }
  std::shared_ptr<const GeometryHeight> make(double bound, double diagonal) {
    if (!image_) return make_noise(bound, diagonal);
    auto& made = made_[bound];
    if (made == nullptr) made = make_image_height(*image_, bound);
    return made;
  }

 private:
  std::optional<GrayImage> image_;
  std::map<double, std::shared_ptr<const GeometryHeight>> made_;
};

void share_cache(SceneSource& scene, u64 bytes) {
  std::vector<MeshSource*> meshes;
  double corners = 0.0;
  for (ShapeSource& shape : scene.shapes) {
    MeshSource* mesh = std::get_if<MeshSource>(&shape);
    if (mesh == nullptr || !mesh->displacement) continue;
    meshes.push_back(mesh);
    corners += static_cast<double>(mesh->data.polygon_vertices.size());
  }
  for (MeshSource* mesh : meshes)
    mesh->displacement->cache_bytes = static_cast<u64>(
        static_cast<double>(bytes) * static_cast<double>(mesh->data.polygon_vertices.size()) / corners);
}

}  // namespace

void set_displacement(SceneSource& scene, const std::string& name, const DisplaceOptions& options) {
  if (options.height.empty()) return;
  HeightMaker heights(options);
  constexpr double default_share = 0.02, most_diagonals = 10.0;
  double largest = 0.0;
  bool has_mesh = false;
  for (ShapeSource& shape : scene.shapes) {
    MeshSource* mesh = std::get_if<MeshSource>(&shape);
    if (mesh == nullptr) continue;
    has_mesh = true;
    const double diagonal = get_diagonal(*mesh);
    largest = std::max(largest, diagonal);
    DisplacedMeshSettings& settings = mesh->displacement.emplace();
    settings.bound = options.bound.value_or(default_share * diagonal);
    settings.rate = options.rate;
    settings.height = heights.make(settings.bound, diagonal);
  }
  if (!has_mesh) throw InputError(name, "holds no mesh to displace");
  if (options.bound && *options.bound > most_diagonals * largest)
    throw InputError(name, "a displacement of " + print_number(*options.bound) +
                               " is more than ten times the diagonal of the mesh, which is " + print_number(largest));
}

void displace_meshes(SceneSource& scene, const DisplaceOptions& options) {
  set_displacement(scene, scene.files.front().name, options);
  share_cache(scene, options.cache ? u64{*options.cache} * 1000000 : get_machine_memory() / 4);
}
