#include "gas/gas_module_clusters.h"

#include <algorithm>

#include "gas/gas_clusterable.h"
#include "gas/gas_geometry_bundle.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

/// Each cluster is a leaf of the scene, and a ray that enters it pays for the set-up of a nested query. With the 1024
/// that a scene asks for, objects of 5 000 triangles side by side take 70 times the memory of whole ones, and their
/// rays are 1.5 times slower. With one cluster for each object, rays cost 17 % more instructions where small objects
/// stand on a large one.
constexpr double primitives_per_cluster = 4096.0;

uint limit_by_size(const ModuleSceneObject& object, uint count) {
  const double most = object.get_primitive_count() / primitives_per_cluster;
  return most < count ? std::max(1u, static_cast<uint>(most)) : count;
}

/// The cluster functions of structures of class Structure.
template <class Structure, GasClusterDetail detail>
struct StructureClusters {
  static const Structure& get(const ModuleSceneObject* object) {
    return *static_cast<const Structure*>(object->get_structure());
  }
  static void get_clusters(ModuleSceneObject* object, GeometryOverride*, CoreVector<void*>& clusters,
                           const unsigned int& count, const float& ratio) {
    get(object).get_clusters(clusters, detail == GasClusterDetail::full ? count : limit_by_size(*object, count), ratio);
  }
  static void get_clusters_bboxes(ModuleSceneObject* object, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                                  GMathBbox3<float>* boxes) {
    get(object).get_clusters_bboxes(clusters, boxes);
  }
  static void get_clusters_bboxes_at(ModuleSceneObject* object, GeometryOverride*, const CtxEval& ctx,
                                     const double& time, const CoreBasicArray<void*>& clusters,
                                     GMathBbox3<float>* boxes) {
    get(object).get_clusters_bboxes_at(ctx, time, clusters, boxes);
  }
  static void get_clusters_weights(ModuleSceneObject* object, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                                   float* weights) {
    get(object).get_clusters_weights(clusters, weights);
  }
  static constexpr ModuleClusterFunctions functions{get_clusters, get_clusters_bboxes, get_clusters_bboxes_at,
                                                    get_clusters_weights, true};
};

template <GasClusterDetail detail>
const ModuleClusterFunctions& get_functions(const GasObject* structure) {
  // A bundle has the class record of GasObject.
  if (dynamic_cast<const GasGeometryBundle*>(structure) != nullptr)
    return StructureClusters<GasGeometryBundle, detail>::functions;
  const bool can_be_cut = structure != nullptr && structure->is_kindof(GasClusterable::class_info());
  return can_be_cut ? StructureClusters<GasClusterable, detail>::functions : ModuleSceneObject::get_whole_functions();
}

}  // namespace

const ModuleClusterFunctions& gas_get_cluster_functions(const GasObject* structure, GasClusterDetail detail) {
  return detail == GasClusterDetail::full ? get_functions<GasClusterDetail::full>(structure)
                                          : get_functions<GasClusterDetail::by_size>(structure);
}
