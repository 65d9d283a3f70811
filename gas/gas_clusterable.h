// gas/gas_clusterable.h
//
// Structures that can be divided into clusters. A cluster is a subtree; the clusters of a structure together hold every
// primitive once. A structure one level up (a scene) takes them as its leaves. A handle has the size of a pointer and
// is valid for its own structure until that is rebuilt. The null handle is the whole structure.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_object.h"

class VQ_EXPORT GasClusterable : public GasObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  // Threads: any number at once, but not during a build. None throws. Boxes are in the space of the structure's
  // geometry. To restrict a ray query to one cluster, set its `cluster` to the handle's value.

  /// Appends handles that together hold every primitive once: one null handle if the structure is not worth dividing,
  /// none if it is empty or there is no memory. Cost: O(handles).
  /// @param count  number of clusters requested; the result is often smaller
  /// @param ratio  a subtree is divided if its children fill less than this share of it; ignored by this library's
  ///               structures
  virtual void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const = 0;
  /// Writes one box per handle. Cost: O(handles).
  /// @param boxes  [clusters.get_count()]; inverted for a handle that is not of this structure
  virtual void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const = 0;
  /// The same at `time` under the motion blur of `ctx`; the static boxes without one. The first call for a motion-blur
  /// description refits the tree.
  virtual void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                                      GMathBbox3<float>* boxes) const = 0;
  /// Writes one weight per handle: the expected cost of testing a ray against its primitives, in triangle tests.
  /// Cost: O(nodes of the tree), once for all handles.
  /// @param weights  [clusters.get_count()]; 0 for a handle that is not of this structure, 1 if there is no memory
  virtual void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const = 0;
};
