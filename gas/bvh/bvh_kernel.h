// gas/bvh/bvh_kernel.h
//
// How rays walk a tree. One loop, compiled for each way a query can differ:
//
//   hits     all: every leaf in the ray's interval        nearest: nearer children first, the interval shrinks
//   time     still: boxes as built                        moving: boxes blended between two motion samples
//   visits   uncounted                                    counted: nodes and leaves per ray, for pictures and tuning
//   kinds    aligned nodes alone                          8-bit nodes among them, oriented ones too
//
// A kernel knows planes and references; what a leaf holds is its leaf function's affair. Queries only read the tree, so
// any number of threads may run kernels at once, each with its own CtxShader and query.
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "vq_core/core_array.h"

class CtxEval;
class CtxShader;
class GeometryFrustumCtx;
class GeometryRaytraceCtx;

/// Called with the items of a leaf that the query's active rays reach.
using BvhRayLeafFunction = void (*)(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, const CoreBasicArray<uint>& leaf,
                                    void* user);
using BvhFrustumLeafFunction = void (*)(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<uint>& leaf, void* user);

/// What a structure does with its leaves, in this order.
struct BvhLeafFunctions {
  BvhRayLeafFunction ray = nullptr;
  BvhRayLeafFunction nearest = nullptr;
  void* ray_user = nullptr;
  BvhFrustumLeafFunction frustum = nullptr;
  void* frustum_user = nullptr;
};

enum class BvhHits { all, nearest };

/// What one query traverses.
struct BvhTarget {
  const GasBvh<4>& tree;
  const GasBvhMotion<4>* motion;  ///< refitted samples of the tree, or null for the boxes at rest
  const BvhLeafFunctions& leaf;
};

/// Walks every ray of the query's active range through the tree and calls the leaf function for each leaf reached, with
/// the active range narrowed to the ray. A tree that is one leaf has it called once, for the whole range. Starts at the
/// query's cluster when that names a node of this tree; a handle that is tagged as one but names none hits nothing, and
/// neither does a query that was begun for the other kind of hits. Leaves the active range as it was, also when a leaf
/// function throws.
///
/// Boxes are tested in single precision, the ray rounded outwards, so that none slips between two boxes that meet; an
/// interval's end is at most the largest finite float. In a nearest
/// query subtrees behind the recorded hit are skipped, one at the very distance is not. Does not allocate once the
/// thread's scratch has grown to the tree's depth; before, it may throw std::bad_alloc. Sources: Kay, Kajiya 1986
/// (slabs); Dammertz, Hanika, Keller 2008 (four-wide, nearest first).
template <BvhHits hits>
void bvh_ray_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query);

extern template void bvh_ray_hit<BvhHits::all>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
extern template void bvh_ray_hit<BvhHits::nearest>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);

/// Calls the frustum leaf function for every leaf whose box is not wholly behind one of the query's planes. Boxes
/// wholly inside have their subtrees taken without further tests. Mode any ends when the query says it has seen enough.
/// Mode all covers the whole tree whatever cluster the query names, and goes on into subtrees behind a plane until the
/// query is marked: only the leaf function knows whether an item there counts.
void bvh_frustum_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
