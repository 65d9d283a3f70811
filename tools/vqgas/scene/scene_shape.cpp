#include "tools/vqgas/scene/scene_shape.h"

#include <utility>

#include "gas/gas_fur.h"
#include "gas/gas_geometry_bvh4.h"
#include "tools/vqgas/support/input_error.h"
#include "vq_geometry/poly_mesh.h"

namespace {

/// A displaced mesh with its base mesh, which must outlive it.
struct DisplacedPair {
  std::shared_ptr<const PolyMesh> base;
  DisplacedMesh displaced;
};

/// Builds the structure over a mesh and stores it in the shape.
void add_mesh_structure(const CtxEval& ctx, const GeometryObject& mesh, MeshStructure kind, AppProgressBar* progress,
                        SceneShape& shape) {
  if (kind == MeshStructure::grid) {
    const auto grid = std::make_shared<GasGeometry>();
    grid->create(ctx, &mesh, &mesh, progress);
    shape.grid = grid.get();
    shape.structure = shape.all_hits_structure = grid;
    return;
  }
  const auto structure = std::make_shared<GasGeometryBvh4>();
  structure->create(ctx, &mesh, &mesh, progress);
  shape.tree = &structure->get_tree();
  shape.structure = shape.all_hits_structure = structure;
}

SceneShape make_mesh_shape(MeshSource&& source) {
  const std::optional<DisplacedMeshSettings> displacement = std::move(source.displacement);
  const auto mesh = std::make_shared<PolyMesh>();
  CoreString fault;
  if (!mesh->create(std::move(source.data), fault)) throw InputError(source.name, fault.get_data());
  SceneShape shape;
  shape.name = source.name;
  shape.geometry = mesh;
  shape.mesh = displacement ? nullptr : mesh.get();
  if (displacement) {
    const auto pair = std::make_shared<DisplacedPair>();
    pair->base = mesh;
    if (!pair->displaced.create(*mesh, *displacement, fault)) throw InputError(source.name, fault.get_data());
    shape.displaced = &pair->displaced;
    shape.geometry = std::shared_ptr<const GeometryObject>(pair, shape.displaced);
  }
  shape.point_count = mesh->get_vertex_count();
  shape.motion_sampling = mesh->get_motion_sampling();
  return shape;
}

std::shared_ptr<GasFur> make_fur(const CtxEval& ctx, const TubeMeshFast& hair, bool has_oriented_nodes,
                                 AppProgressBar* progress) {
  auto fur = std::make_shared<GasFur>();
  fur->set_oriented_nodes(has_oriented_nodes);
  fur->create(ctx, &hair, &hair, progress);
  return fur;
}

void add_hair_structure(const CtxEval& ctx, const HairSettings& settings, AppProgressBar* progress, SceneShape& shape) {
  const auto fur = make_fur(ctx, *shape.hair, settings.has_nearest_queries && !settings.is_aligned_only, progress);
  shape.structure = shape.all_hits_structure = fur;
  shape.tree = &fur->get_tree();
  if (settings.has_all_hits_queries && shape.tree->oriented_count > 0)
    shape.all_hits_structure = make_fur(ctx, *shape.hair, false, progress);
}

SceneShape make_hair_shape(HairSource&& source, const HairSettings& settings) {
  CurveData& data = source.data;
  if (data.basis == CurveBasis::linear && !settings.is_linear) make_smooth(data);
  SceneShape shape;
  shape.name = source.name;
  const uint samples = static_cast<uint>(data.motion_points.size());
  if (samples > 0) shape.motion_sampling = {data.motion_begin, data.motion_step, samples};
  const auto hair = std::make_shared<TubeMeshFast>();
  CoreString fault;
  if (!hair->create(std::move(data), fault)) throw InputError(source.name, fault.get_data());
  shape.geometry = hair;
  shape.hair = hair.get();
  shape.point_count = hair->get_curves().get_point_count();
  return shape;
}

}  // namespace

DisplacedMemory SceneShape::get_displaced_memory() const {
  if (displaced == nullptr) return {};
  return {displaced->get_micro_triangle_count(), displaced->get_cache_bytes(), displaced->get_peak_cache_bytes(),
          displaced->get_cache_limit()};
}

void SceneShape::set_bundle_structure(std::shared_ptr<const GasClusterable> built) {
  tree = hair != nullptr ? &static_cast<const GasFur&>(*built).get_tree()
                         : &static_cast<const GasGeometryBvh4&>(*built).get_tree();
  structure = all_hits_structure = std::move(built);
}

SceneShape make_shape(const CtxEval& ctx, ShapeSource&& source, const ShapeSettings& settings, bool has_structure,
                      AppProgressBar* progress) {
  if (HairSource* hair = std::get_if<HairSource>(&source)) {
    SceneShape shape = make_hair_shape(std::move(*hair), settings.hair);
    if (has_structure) add_hair_structure(ctx, settings.hair, progress, shape);
    return shape;
  }
  MeshSource& mesh = std::get<MeshSource>(source);
  const MeshStructure structure = settings.choose_structure(mesh);
  SceneShape shape = make_mesh_shape(std::move(mesh));
  if (has_structure) add_mesh_structure(ctx, *shape.geometry, structure, progress, shape);
  return shape;
}
