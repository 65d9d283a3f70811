// gas/gas_module_clusters.h
//
// Connects the host's scene objects to the clusters of this library's structures.
#pragma once
#include "vq_core/core_export.h"
#include "vq_module/module_scene_object.h"

/// How many clusters an object has in a scene that asks for `count` of them.
enum class GasClusterDetail {
  by_size,  ///< at most one per 4096 primitives: enough to separate what lies on a large object from what is in it
  full      ///< `count`: for objects of few primitives that many others reach into
};

/// The cluster functions for an object over `structure`: those of the structure if it is a GasClusterable or a
/// GasGeometryBundle, else those that make it one cluster. An object without a structure has no clusters. The result
/// lives as long as the program. Thread-safe, O(1).
VQ_EXPORT const ModuleClusterFunctions& gas_get_cluster_functions(const GasObject* structure,
                                                                  GasClusterDetail detail = GasClusterDetail::by_size);
