// gas/structure/gas_bvh_structure.h
//
// Shared by every structure on the four-wide tree; a structure class adds boxes, leaf functions and create().
//
//   GasStructure <-- GasBvhStructure <-- GasBvhGeometry <-- GasGeometryBvh4, GasFur      clusters, frustum modes
//                           ^----------------------------- GasSceneTree
//
//   tree            written by create(), constant afterwards
//   leaf_functions  the leaf callbacks of the kernels
//   motion_data     [slot] the tree refitted to the samples of a motion-blur description
//
// The definitions are in gas_bvh_structure_impl.h; the source of each structure instantiates them once. `Self`, the
// structure class, has this class and GasStructure as friends. It supplies what GasStructure needs, except for what is
// here, and
//
//   u64 get_array_bytes() const                             arrays other than the tree and the motion data
//   auto get_leaf_functions(const Record*, query) const     null record: a static query; may set the query's current
//                                                           primitive
#pragma once
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "gas/structure/gas_structure.h"
#include "vq_core/core_export.h"

/// The tree refitted to one motion-blur description.
template <class Owner>
struct VQ_EXPORT GasRefitRecord {
  explicit GasRefitRecord(Owner* owner) : owner(owner) {}
  void clear() { refit.clear(); }
  u64 get_array_bytes() const { return refit.get_array_bytes(); }
  uint get_sample_count() const { return refit.get_sample_count(); }
  const GMathBbox3<float>& get_bbox(uint sample) const { return refit.get_bbox(sample); }

  SysThreadLock lock;     ///< held by the thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample; no samples if there was no memory
  Owner* owner;
  std::atomic<uint> stamp{0};  ///< stamp of the description that `refit` belongs to; 0: stale
};

template <class Self, class Base, class Record = GasRefitRecord<Self>>
class VQ_EXPORT GasBvhStructure : public GasStructure<Self, Base, Record> {
 public:
  /// For reports and tests.
  const GasBvh<4>& get_tree() const { return tree; }

 protected:
  friend class GasStructure<Self, Base, Record>;
  /// @param self  as for GasStructure
  explicit GasBvhStructure(Self* self);
  /// Copies the tree, but no motion data.
  GasBvhStructure(const GasBvhStructure& other, Self* self);
  GasBvhStructure(const GasBvhStructure& other) = delete;
  GasBvhStructure& operator=(const GasBvhStructure& other);
  ~GasBvhStructure() override;

  bool has_tree() const { return !tree.is_empty(); }
  const GMathBbox3<float>& get_tree_bbox() const { return tree.box; }
  u64 get_own_bytes() const { return static_cast<const Self&>(*this).get_array_bytes() + tree.get_array_bytes(); }
  template <BvhHits hits>
  void traverse(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const Record* record) const;

  GasBvh<4> tree;
  BvhLeafFunctions leaf_functions;
};
