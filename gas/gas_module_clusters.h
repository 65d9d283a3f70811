// gas/gas_module_clusters.h
//
// How the host's scene objects let their structures be cut: the table for objects over structures of this library.
#pragma once
#include "vq_module/module_scene_object.h"

/// For objects whose structure is a GasClusterable: forwards to it. Other structures stay whole; an object without a
/// structure has no clusters. Lives as long as the program.
const ModuleClusterFunctions& gas_get_cluster_functions(const GasObject* structure);
