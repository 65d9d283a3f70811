#include "tools/vqgas/commands/info_report.h"

#include <algorithm>
#include <map>

#include "gas/gas_fur.h"
#include "gas/gas_geometry_bvh4.h"
#include "tools/vqgas/render/render.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_module/module_bundle.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"
#include "vq_module/module_particle.h"

std::vector<ArrayBytes> list_array_bytes(const GasBvh<4>& tree, const GasObject& structure) {
  const auto* mesh = dynamic_cast<const GasGeometryBvh4*>(&structure);
  const auto* fur = dynamic_cast<const GasFur*>(&structure);
  const u64 records = mesh != nullptr ? mesh->get_record_bytes() : fur != nullptr ? fur->get_record_bytes() : 0;
  return {{"aligned nodes", u64{tree.aligned_count} * sizeof(BvhNodeAligned)},
          {"quantized nodes", u64{tree.quantized_count} * sizeof(BvhNodeQuantized)},
          {"oriented nodes", u64{tree.oriented_count} * sizeof(BvhNodeOriented)},
          {"item order", tree.order != nullptr ? u64{tree.item_count} * sizeof(u32) : 0},
          {"item weights", tree.item_weight_bits != nullptr ? u64{tree.item_count} * sizeof(u32) : 0},
          {"records of primitives", records},
          {"tables and object", structure.get_memory_size() - tree.get_array_bytes() - records}};
}

namespace {

TreeReport make_tree_report(const GasBvh<4>& tree, const GasObject& structure) {
  return {bvh_compute_statistics(tree), tree.item_count, list_array_bytes(tree, structure), structure.get_bbox()};
}

TreeReport make_grid_report(const GasGeometry& structure) {
  return {std::nullopt,
          structure.get_primitive_count(),
          {{"grid and object", structure.get_memory_size()}},
          structure.get_bbox()};
}

/// Rays and beams that build what they reach.
void render_small_picture(const QueryScene& scene) {
  RenderSettings settings;
  settings.width = settings.height = 64;
  settings.layers = {Layer::depth};
  settings.camera = frame_boxes("three-quarter", 1, scene.get_tight_boxes(), 1.0);
  RayCounts counts;
  render_picture(scene, settings, nullptr, counts);
}

template <class Structure>
GridReport begin_grid_report(const Structure& structure) {
  const GasGridTree& grid = structure.get_grid();
  return {grid.get_part_count(), grid.get_built_part_count(), 0, structure.get_memory_size(), 0};
}

template <class Structure>
void complete_grid_report(const Structure& structure, GridReport& report) {
  report.built_after = structure.get_grid().get_built_part_count();
  report.bytes_after = structure.get_memory_size();
}

struct GridReports {
  std::vector<std::optional<GridReport>> shapes;  ///< [shape] none for those without a grid
  std::vector<GridReport> clouds;                 ///< [cloud]
};

/// Renders the picture, once for all: it builds parts of shapes and of clouds.
GridReports examine_grids(const QueryScene& scene) {
  GridReports reports;
  bool has_grid = !scene.get_clouds().empty();
  for (const SceneShape& shape : scene.get_shapes()) {
    reports.shapes.emplace_back();
    if (shape.grid == nullptr) continue;
    has_grid = true;
    reports.shapes.back() = begin_grid_report(*shape.grid);
  }
  for (const SceneCloud& cloud : scene.get_clouds()) reports.clouds.push_back(begin_grid_report(*cloud.structure));
  if (has_grid) render_small_picture(scene);
  for (std::size_t k = 0; k < reports.shapes.size(); ++k)
    if (reports.shapes[k]) complete_grid_report(*scene.get_shapes()[k].grid, *reports.shapes[k]);
  for (std::size_t k = 0; k < reports.clouds.size(); ++k)
    complete_grid_report(*scene.get_clouds()[k].structure, reports.clouds[k]);
  return reports;
}

/// After the beams.
CloudReport make_cloud_report(const SceneCloud& cloud, const GridReport& grid) {
  return {cloud.name,
          cloud.get_count(),
          cloud.finite_count,
          !cloud.colors.empty(),
          cloud.has_radii,
          grid,
          {{"positions and radii", cloud.particles->get_memory_size()},
           {"colors", cloud.get_color_bytes()},
           {"structure", cloud.structure->get_memory_size()}},
          cloud.structure->get_bbox()};
}

ShapeReport make_shape_report(const SceneShape& shape) {
  ShapeReport report = {};
  report.name = shape.name;
  report.primitives = shape.geometry->get_primitive_count();
  report.points = shape.point_count;
  report.groups = shape.geometry->get_shading_groups().get_count();
  if (shape.hair != nullptr) {
    report.is_hair = true;
    report.is_cubic = shape.hair->get_curves().get_shape() == CurveShape::cubic;
    report.strands = shape.hair->get_curves().get_curve_count();
  }
  report.displaced = shape.get_displaced_memory();
  if (shape.structure == nullptr) return report;  // not shown
  if (shape.tree != nullptr) {
    report.tree = make_tree_report(*shape.tree, *shape.structure);
  } else {
    report.tree = make_grid_report(*shape.grid);
  }
  for (const uint requested : {16u, 64u, 1024u}) {
    CoreVector<void*> clusters;
    shape.structure->get_clusters(clusters, requested, 0.5f);
    report.clusters.push_back({requested, clusters.get_count()});
  }
  return report;
}

/// Why the trees left out an object: their own checks, in their order. Null for one that is in its tree.
const char* get_reason(const ModuleSceneObject& object, uint clusters) {
  if (clusters > 0) return nullptr;
  if (object.get_primitive_count() == 0.0) return "empty";
  if (!has_invertible_matrix(object)) return "singular matrix";
  return object.is_kindof(ModuleParticle::class_info()) ? nullptr : "no clusters";
}

class SceneExaminer {
 public:
  SceneExaminer(const QueryScene& scene, SceneReport& report) : scene_(scene), report_(report) {}

  ObjectsReport examine(const std::vector<std::shared_ptr<ModuleSceneObject>>& objects, const GasSceneTree& tree) {
    ObjectsReport found = {};
    found.tree = make_tree_report(tree.get_tree(), tree);
    found.geometries = tree.get_geometry_count();
    found.primitives = tree.get_primitive_count();
    for (uint index = 0; index < objects.size(); ++index) {
      const ModuleSceneObject& object = *objects[index];
      const uint clusters = tree.get_cluster_count(index);
      found.objects.push_back({object.get_name().get_data(), clusters, get_reason(object, clusters), examine(object),
                               (object.get_flags() & ModuleSceneObject::moving) != 0, object.get_primitive_count()});
    }
    return found;
  }

  struct Shown {
    uint count = 0;
    std::string name;  // of the first object
  };
  std::map<const GeometryObject*, Shown> shown;

 private:
  /// Returns the kind of the object.
  const char* examine(const ModuleSceneObject& object) {
    if (const auto* group = dynamic_cast<const ModuleCombiner*>(&object)) {
      examine_group(*group);
      return "group";
    }
    if (const auto* bundle = dynamic_cast<const ModuleBundle*>(&object)) {
      examine_bundle(*bundle);
      return "bundle";
    }
    if (object.is_kindof(ModuleParticle::class_info())) return "points";
    add_shown(static_cast<const ModuleGeometry&>(object).get_geometry(), object);
    return "geometry";
  }

  void add_shown(const GeometryObject* geometry, const ModuleSceneObject& object) {
    Shown& entry = shown[geometry];
    if (entry.count++ == 0) entry.name = object.get_name().get_data();
  }

  void examine_bundle(const ModuleBundle& object) {
    const SceneBundle& bundle = scene_.get_objects().get_bundle(object);
    const GasGeometryBundle& structure = *bundle.structure;
    if (std::find(bundles_.begin(), bundles_.end(), &structure) != bundles_.end()) return;
    bundles_.push_back(&structure);
    BundleReport found = {};
    found.name = object.get_name().get_data();
    found.instances = structure.get_instance_count();
    found.valid_instances = structure.get_valid_instance_count();
    found.geometries = structure.get_slot_count();
    found.primitives = structure.get_primitive_count();
    found.tree = make_tree_report(structure.get_tree(), structure);
    for (uint slot = 0; slot < found.geometries; ++slot) {
      if (structure.get_slot_structure(slot) == nullptr) continue;
      ++found.built;
      found.structure_bytes += structure.get_slot_structure(slot)->get_memory_size();
    }
    for (uint instance = 0; instance < found.instances; ++instance) {
      const SceneShape& shape = scene_.get_shapes()[bundle.get_shape(instance)];
      add_shown(shape.geometry.get(), object);
      if (structure.get_cluster_count(instance) > 0)
        found.flat_bytes +=
            static_cast<double>(structure.get_slot_structure(bundle.slots[instance])->get_memory_size());
    }
    report_.bundles.push_back(std::move(found));
  }

  void examine_group(const ModuleCombiner& group) {
    const auto* tree = static_cast<const GasSceneTree*>(group.get_structure());
    if (std::find(trees_.begin(), trees_.end(), tree) != trees_.end()) return;
    trees_.push_back(tree);
    ObjectsReport found = examine(group.get_objects(), *tree);
    found.name = group.get_name().get_data();
    report_.groups.push_back(std::move(found));
  }

  const QueryScene& scene_;
  SceneReport& report_;
  std::vector<const GasSceneTree*> trees_;
  std::vector<const GasGeometryBundle*> bundles_;
};

}  // namespace

SceneReport make_scene_report(const std::string& file, const QueryScene& scene, std::vector<TaskSeconds>&& stages) {
  SceneReport report = {};
  report.file = file;
  report.threads = scene.get_application().get_thread_count();
  report.stages = std::move(stages);
  report.build_seconds = scene.get_build_seconds();
  const GridReports grids = examine_grids(scene);
  for (const SceneShape& shape : scene.get_shapes()) {
    throw_if_interrupted();
    report.shapes.push_back(make_shape_report(shape));
    report.shapes.back().grid = grids.shapes[report.shapes.size() - 1];
  }
  for (std::size_t k = 0; k < grids.clouds.size(); ++k)
    report.clouds.push_back(make_cloud_report(scene.get_clouds()[k], grids.clouds[k]));
  SceneExaminer examiner(scene, report);
  report.whole = examiner.examine(scene.get_objects().objects, *scene.get_objects().tree);
  for (uint k = 0; k < report.whole.objects.size(); ++k) report.whole.objects[k].is_moving |= scene.is_animated(k);
  const std::string prefix = file + ":";
  for (std::size_t k = 0; k < report.shapes.size(); ++k) {
    ShapeReport& shape = report.shapes[k];
    const SceneExaminer::Shown& shown = examiner.shown[scene.get_shapes()[k].geometry.get()];
    shape.shown = shown.count;
    shape.name = shape.name.starts_with(prefix) ? shape.name.substr(prefix.size()) : shown.name;
  }
  const ModuleSceneObject& first = *scene.get_objects().objects.front();
  report.is_plain = report.shapes.size() + report.clouds.size() == 1 && report.whole.objects.size() == 1 &&
                    !first.is_keyframed() && !scene.is_animated(0) &&
                    first.get_global_matrix() == GMathMatrix4x4<double>();
  return report;
}

uint SceneReport::get_kept_count() const {
  uint count = 0;
  for (const ShapeReport& shape : shapes) count += shape.tree.kept;
  for (const CloudReport& cloud : clouds) count += cloud.finite;
  return count;
}

u64 get_sum(const std::vector<ArrayBytes>& arrays) {
  u64 sum = 0;
  for (const ArrayBytes& array : arrays) sum += array.bytes;
  return sum;
}

double get_rate(uint primitives, double seconds) { return seconds > 0.0 ? 1e-6 * primitives / seconds : 0.0; }
