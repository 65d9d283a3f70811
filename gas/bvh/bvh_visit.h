// gas/bvh/bvh_visit.h
//
// Reading a built tree from outside of the kernels: the root and the children of a node, with their boxes as traversal
// decodes them. For statistics and reports; kernels decode four lanes at once.
//
//   bvh_get_root()   --> BvhVisit          one child reference, its box, its depth
//   bvh_get_child()  --> of each lane in [0, ref.get_count()) of an inner node
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "vq_core/core_export.h"

/// A node or leaf of a tree and where it is.
struct BvhVisit {
  BvhChildRef ref;
  uint depth = 0;            ///< inner nodes above it; 0: the root
  GMathBbox3<float> box;     ///< its own; below an oriented node: of the last node above that has one
  bool is_oriented = false;  ///< its own box is the parallelepiped of `origin` and `edges`
  /// One corner of its own box, and the edges that meet there, in the space of the items.
  GMathVec3<double> origin, edges[3];

  /// Half the surface of its own box.
  double get_half_area() const {
    if (!is_oriented) return GMathBbox3<double>(box).get_half_area();
    return edges[0].cross(edges[1]).get_length() + edges[1].cross(edges[2]).get_length() +
           edges[2].cross(edges[0]).get_length();
  }
};

/// The root. `tree` must not be empty.
VQ_EXPORT BvhVisit bvh_get_root(const GasBvh<4>& tree);
/// Child `lane`, below parent.ref.get_count(). `parent` must be a node of `tree`, not a leaf. Thread-safe while nobody
/// builds the tree. O(1), without an allocation.
VQ_EXPORT BvhVisit bvh_get_child(const GasBvh<4>& tree, const BvhVisit& parent, uint lane);
