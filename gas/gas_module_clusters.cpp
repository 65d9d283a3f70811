#include "gas/gas_module_clusters.h"

#include "gas/gas_clusterable.h"
#include "gas/gas_geometry_bundle.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

/// The cluster functions of structures of class Structure.
template <class Structure>
struct StructureClusters {
  static const Structure& get(const ModuleSceneObject* object) {
    return *static_cast<const Structure*>(object->get_structure());
  }
  static void get_clusters(ModuleSceneObject* object, GeometryOverride*, CoreVector<void*>& clusters,
                           const unsigned int& count, const float& ratio) {
    get(object).get_clusters(clusters, count, ratio);
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
                                                    get_clusters_weights};
};

}  // namespace

const ModuleClusterFunctions& gas_get_cluster_functions(const GasObject* structure) {
  // A bundle has the class record of GasObject.
  if (dynamic_cast<const GasGeometryBundle*>(structure) != nullptr)
    return StructureClusters<GasGeometryBundle>::functions;
  const bool can_be_cut = structure != nullptr && structure->is_kindof(GasClusterable::class_info());
  return can_be_cut ? StructureClusters<GasClusterable>::functions : ModuleSceneObject::get_whole_functions();
}
