#include "gas/gas_module_clusters.h"

#include "gas/gas_clusterable.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

const GasClusterable& get_clusterable(const ModuleSceneObject* object) {
  return *static_cast<const GasClusterable*>(object->get_structure());
}

void get_clusters(ModuleSceneObject* object, GeometryOverride*, CoreVector<void*>& clusters, const unsigned int& count,
                  const float& ratio) {
  get_clusterable(object).get_clusters(clusters, count, ratio);
}

void get_clusters_bboxes(ModuleSceneObject* object, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                         GMathBbox3<float>* boxes) {
  get_clusterable(object).get_clusters_bboxes(clusters, boxes);
}

void get_clusters_bboxes_at(ModuleSceneObject* object, GeometryOverride*, const CtxEval& ctx, const double& time,
                            const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) {
  get_clusterable(object).get_clusters_bboxes_at(ctx, time, clusters, boxes);
}

void get_clusters_weights(ModuleSceneObject* object, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                          float* weights) {
  get_clusterable(object).get_clusters_weights(clusters, weights);
}

}  // namespace

const ModuleClusterFunctions& gas_get_cluster_functions(const GasObject* structure) {
  static const ModuleClusterFunctions functions{get_clusters, get_clusters_bboxes, get_clusters_bboxes_at,
                                                get_clusters_weights};
  const bool can_be_cut = structure != nullptr && structure->is_kindof(GasClusterable::class_info());
  return can_be_cut ? functions : ModuleSceneObject::get_whole_functions();
}
