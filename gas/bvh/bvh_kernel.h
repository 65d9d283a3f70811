// gas/bvh/bvh_kernel.h
//
// Ray traversal. One loop, compiled for each variant of a query:
//
//   hits     all: every leaf in the ray's interval        nearest: nearer children first, the interval shrinks
//            any: larger children first, until something is hit
//   time     still: static boxes, as built                moving: boxes blended between two motion samples
//   visits   uncounted                                    counted: nodes and leaves per ray, for pictures and tuning
//   kinds    aligned nodes alone                          8-bit nodes among them, oriented ones too
//
// A kernel knows only planes and references; leaf callbacks test the items. Queries only read the tree, so that any
// number of threads may run kernels at once, each with its own CtxShader and query.
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "vq_core/core_array.h"

class CtxEval;
class CtxShader;
class GeometryFrustumCtx;
class GeometryRaytraceCtx;

/// Leaf callback: receives the items of a leaf that the query's active rays reach. `user` is the pointer given with it.
using BvhRayLeafFunction = void (*)(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, const CoreBasicArray<uint>& leaf,
                                    void* user);
using BvhFrustumLeafFunction = void (*)(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<uint>& leaf, void* user);

/// The leaf callbacks of one structure, in this order.
struct BvhLeafFunctions {
  BvhRayLeafFunction ray = nullptr;      ///< all-hits queries
  BvhRayLeafFunction nearest = nullptr;  ///< nearest-hit queries
  void* ray_user = nullptr;              ///< passed to both
  BvhFrustumLeafFunction frustum = nullptr;
  void* frustum_user = nullptr;
};

enum class BvhHits {
  all,
  nearest,
  any,  ///< of kernels alone: a query for the nearest hits whose settings ask for any
};

/// What the callback of a leaf reads first, to be prefetched: a record for each place in the tree's order.
struct BvhLeafRecords {
  const void* first = nullptr;  ///< null: the item's index in the order
  u32 size = 0;                 ///< bytes of a record
};

/// What one query traverses: tree, motion samples, leaf callbacks.
struct BvhTarget {
  const GasBvh<4>& tree;
  const GasBvhMotion<4>* motion;  ///< refitted samples of the tree, or null for static boxes
  const BvhLeafFunctions& leaf;
  BvhLeafRecords records = {};
};

/// Traverses the tree with every ray of the query's active range and calls the leaf callback for each leaf reached,
/// with the active range narrowed to that ray. If the start is a leaf, the callback is called once, for the whole
/// range. Starts at the query's cluster, or at the root. No hits for a cluster handle that names no node of this tree,
/// and for a query that was begun for the other kind of hits. The active range is restored, also when a callback
/// throws.
///
/// Boxes are tested in single precision with the ray rounded outwards, so that no ray passes between two boxes that
/// meet. The end of an interval is clamped to the largest finite float. A nearest query skips subtrees behind the
/// recorded hit, but not those at the same distance; one for any hit ends a ray at its first. Allocates only while the
/// thread's scratch is smaller than the tree's depth requires, and may then throw std::bad_alloc. Sources: Kay, Kajiya
/// 1986 (slabs); Dammertz, Hanika, Keller 2008 (four-wide, nearest first).
template <BvhHits hits>
void bvh_ray_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query);

extern template void bvh_ray_hit<BvhHits::all>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
extern template void bvh_ray_hit<BvhHits::nearest>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);

/// Calls the frustum leaf function for every leaf whose box is not wholly behind one of the query's planes. A
/// subtree whose box is inside all planes is visited without further tests. Mode any ends when result.finished is set.
/// Mode all ignores the query's cluster and visits subtrees behind a plane too, until result.outside is set: only the
/// leaf callback knows whether an item there is visible to the query.
void bvh_frustum_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
