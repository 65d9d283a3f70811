// gas/gas_clusterable.h
//
// Structures that can be cut into clusters: a few subtrees that together hold everything once, from which a structure
// one level up (a scene, a bundle) makes its own leaves. A cluster is a handle of pointer size that means something to
// its structure only, until that is built anew; null stands for the whole structure.
#pragma once
#include "vq_core/core_array.h"
#include "vq_gas_base/gas_object.h"

class GasClusterable : public GasObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  // All four may be called from many threads at once, and not while the structure is being built. Handles are valid
  // until then. Boxes are in the space of the structure's geometry. To keep a ray query within one cluster, set its
  // `cluster` to the handle's value.

  /// Appends handles that cover the structure: together they hold everything once. An empty structure appends none, one
  /// that is not worth cutting a single null handle.
  /// @param count  how many the caller would like; often there are fewer
  /// @param ratio  how little the children of a subtree must fill of it for it to be cut; only structures on the host's
  ///               trees use it
  virtual void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const = 0;
  /// One box per handle.
  /// @param boxes  [clusters.get_count()], written; inverted for a handle that names nothing in this structure
  virtual void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const = 0;
  /// One box per handle at `time`, under the context's motion blur; without one, the boxes at rest.
  virtual void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                                      GMathBbox3<float>* boxes) const = 0;
  /// One weight per handle: the expected cost of testing a ray against all that it holds, a triangle being 1.
  /// @param weights  [clusters.get_count()], written; 0 for a handle that names nothing in this structure
  virtual void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const = 0;
};
