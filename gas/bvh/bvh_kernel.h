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
class GeometryObject;
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

/// A tree to be walked, and in whose name.
struct BvhTarget {
  const GasBvh<4>& tree;
  const GasBvhMotion<4>* motion;  ///< refitted samples of the tree, or null for the boxes at rest
  const BvhLeafFunctions& leaf;
  const GeometryObject* base_geometry;  ///< becomes the query's current geometry; null leaves that as it is
};

/// Walks every ray of the query's active range through the tree and calls the leaf function for each leaf reached, with
/// the active range narrowed to the ray. A tree that is one leaf has it called once, for the whole range. Starts at the
/// query's cluster when that names a node of this tree; a handle that is tagged as one but names none hits nothing.
/// Wireframes are filtered when the geometry asks for them. Leaves the active range as it was.
///
/// Boxes are tested in single precision, the ray rounded outwards, so that none slips between two boxes that meet; an
/// interval's end is at most the largest finite float. In a nearest
/// query subtrees behind the recorded hit are skipped, one at the very distance is not. Does not allocate once the
/// thread's scratch has grown to the tree's depth. Sources: Kay, Kajiya 1986 (slabs); Dammertz, Hanika, Keller 2008
/// (four-wide, nearest first).
template <BvhHits hits>
void bvh_ray_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query);

extern template void bvh_ray_hit<BvhHits::all>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
extern template void bvh_ray_hit<BvhHits::nearest>(const BvhTarget&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);

/// Calls the frustum leaf function for every leaf whose box is not wholly behind one of the query's planes. Boxes
/// wholly inside have their subtrees taken without further tests. Mode any ends when the query says it has seen enough;
/// mode all marks the query when something was left out, and covers the whole tree whatever cluster the query names.
void bvh_frustum_hit(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
