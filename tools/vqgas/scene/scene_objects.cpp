#include "tools/vqgas/scene/scene_objects.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "gas/gas_module_clusters.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/module_bundle.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"
#include "vq_module/module_particle.h"
#include "vq_of/of_app.h"

bool is_invertible(const GMathMatrix4x4<double>& matrix) {
  const double determinant = matrix.get_determinant();
  return determinant != 0.0 && std::isfinite(determinant);
}

bool has_invertible_matrix(const ModuleSceneItem& item) { return is_invertible(item.get_global_matrix()); }

void set_matrix(ModuleSceneItem& item, const ObjectSource& source, double frame) {
  const std::vector<ModuleMatrixKey>& keys = source.keys;
  if (keys.size() == 1) item.set_global_matrix(keys.front().matrix);
  if (keys.size() < 2) return;
  item.set_global_matrix_keys(keys, frame);
  for (std::size_t k = 0; k < keys.size() && !has_invertible_matrix(item); ++k) item.evaluate(keys[k].time);
}

std::vector<GMathMatrix4x4<double>> SceneBundle::get_matrices_at(double time) const {
  std::vector<GMathMatrix4x4<double>> at = matrices;
  if (motion != nullptr) motion->get_matrices(time, at.data());
  return at;
}

const SceneBundle& SceneObjects::get_bundle(const ModuleBundle& object) const {
  return *std::find_if(bundles.begin(), bundles.end(),
                       [&](const SceneBundle& bundle) { return bundle.structure.get() == object.get_structure(); });
}

SceneObjects SceneObjectMaker::make(const SceneSource& source, bool for_all_hits, AppProgressBar* progress) const {
  std::size_t instance_count = source.objects.size();
  for (const std::vector<ObjectSource>& group : source.groups) instance_count += group.size();
  for (const BundleSource& bundle : source.bundles) instance_count += bundle.shapes.size();
  Parts parts{{}, {}, for_all_hits};
  const auto make_part = [&](const char* task, std::size_t count, const auto& make) {
    const AppProgressScope stage(progress, task, static_cast<double>(count) / static_cast<double>(instance_count));
    return make();
  };
  for (const BundleSource& bundle : source.bundles)
    parts.bundles.push_back(
        make_part("Build bundle", bundle.shapes.size(), [&] { return make_bundle(bundle, for_all_hits, progress); }));
  const auto make_tree = [&](const std::vector<ObjectSource>& objects) {
    return make_part("Build scene tree", objects.size(), [&] { return make_list(objects, parts, progress); });
  };
  for (const std::vector<ObjectSource>& group : source.groups) parts.groups.push_back(make_tree(group));
  SceneObjects made = make_tree(source.objects);
  made.particles = std::make_shared<GasParticleTree>();
  CoreVector<ModuleSceneObject*> objects;
  for (const auto& object : made.objects) objects.add(object.get());
  made.particles->create(application_, objects, progress);
  made.bundles = std::move(parts.bundles);
  return made;
}

SceneBundle SceneObjectMaker::make_bundle(const BundleSource& source, bool for_all_hits,
                                          AppProgressBar* progress) const {
  SceneBundle bundle{std::make_shared<GasGeometryBundle>(), {}, {}, source.matrices, source.motion};
  bundle.matrices = bundle.get_matrices_at(frame_);
  for (std::size_t k = 0; k < bundle.matrices.size(); ++k)
    if (!is_invertible(bundle.matrices[k])) bundle.matrices[k] = source.matrices[k];
  std::vector<GeometryObject*> geometries;
  std::vector<uint> first_groups = {0}, slot_of(shapes_.size(), core_invalid_index);
  for (const uint shape : source.shapes) {
    if (slot_of[shape] == core_invalid_index) {
      slot_of[shape] = static_cast<uint>(bundle.shapes.size());
      bundle.shapes.push_back(shape);
      geometries.push_back(const_cast<GeometryObject*>(shapes_[shape].geometry.get()));  // the bundle only reads it
      first_groups.push_back(first_groups.back() + shapes_[shape].geometry->get_shading_groups().get_count());
    }
    bundle.slots.push_back(slot_of[shape]);
  }
  const auto view = [](const auto& items) {
    return CoreBasicArray<typename std::decay_t<decltype(items)>::value_type>::make_view(
        items.data(), static_cast<uint>(items.size()));
  };
  GasGeometryBundle& structure = *bundle.structure;
  structure.set_oriented_nodes(!for_all_hits && hair_.has_nearest_queries && !hair_.is_aligned_only);
  structure.create(application_, view(geometries), view(geometries), view(bundle.slots), view(bundle.slots),
                   view(first_groups), view(bundle.matrices), {}, {}, {}, /*merge_shading_groups=*/true, progress);
  if (bundle.motion != nullptr)
    structure.set_matrices_callback(ModuleMatrixSource::callback, const_cast<ModuleMatrixSource*>(bundle.motion.get()));
  return bundle;
}

SceneObjects SceneObjectMaker::make_list(const std::vector<ObjectSource>& sources, const Parts& parts,
                                         AppProgressBar* progress) const {
  SceneObjects made;
  CoreBasicArray<ModuleSceneObject*> objects(static_cast<uint>(sources.size()));
  for (uint index = 0; index < sources.size(); ++index) {
    made.objects.push_back(make_object(sources[index], parts));
    if (sources[index].cloud >= clouds_.size()) objects[index] = made.objects.back().get();
  }
  made.tree = std::make_shared<GasSceneTree>();
  made.tree->create(application_, objects, progress);
  return made;
}

std::shared_ptr<ModuleSceneObject> SceneObjectMaker::make_object(const ObjectSource& source, const Parts& parts) const {
  const CoreString name(source.name.c_str());
  std::shared_ptr<ModuleSceneObject> object;
  if (source.shape < shapes_.size()) {
    object = make_geometry(name, shapes_[source.shape], parts.for_all_hits);
  } else if (source.bundle < parts.bundles.size()) {
    object = make_bundle_object(name, parts.bundles[source.bundle]);
  } else if (source.cloud < clouds_.size()) {
    const SceneCloud& cloud = clouds_[source.cloud];
    object = std::make_shared<ModuleParticle>(name, cloud.particles, cloud.structure);
  } else {
    const SceneObjects& group = parts.groups[source.group];
    object = std::make_shared<ModuleCombiner>(name, group.objects, group.tree);
  }
  set_matrix(*object, source, frame_);
  return object;
}

std::shared_ptr<ModuleSceneObject> SceneObjectMaker::make_geometry(const CoreString& name, const SceneShape& shape,
                                                                   bool for_all_hits) const {
  const auto& structure = for_all_hits ? shape.all_hits_structure : shape.structure;
  const auto made =
      std::make_shared<ModuleGeometry>(name, shape.geometry, structure, gas_get_cluster_functions(structure.get()));
  for (uint group = 0; group < made->get_shading_group_count(); ++group) made->set_shading_group(group, links_);
  return made;
}

std::shared_ptr<ModuleSceneObject> SceneObjectMaker::make_bundle_object(const CoreString& name,
                                                                        const SceneBundle& bundle) const {
  const GasGeometryBundle& structure = *bundle.structure;
  ModuleBundle::Contents contents{
      {}, bundle.motion, 0, double(structure.get_valid_instance_count()), structure.get_primitive_count()};
  for (const uint shape : bundle.shapes) {
    contents.geometries.push_back(shapes_[shape].geometry);
    contents.shading_group_count += shapes_[shape].geometry->get_shading_groups().get_count();
  }
  const auto made = std::make_shared<ModuleBundle>(name, std::move(contents), bundle.structure,
                                                   gas_get_cluster_functions(bundle.structure.get()));
  for (uint group = 0; group < made->get_shading_group_count(); ++group) made->set_shading_group(group, links_);
  return made;
}
