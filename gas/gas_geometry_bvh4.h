// gas/gas_geometry_bvh4.h
//
// The structure over a mesh: an axis-aligned four-wide tree with one primitive a leaf. This file is wiring: boxes from
// gas_geometry_base.h, the tree and its kernels from gas/bvh, and leaf functions that find a leaf's primitive and let
// its geometry test it.
//
//   leaf -> position -> primitive, owner -> shading of its group -> owner's ray test -> the query's push_intersection
//
// Under motion blur the tree is refitted to the boxes at the description's sample times and rays see them blended in
// between. A primitive is surely found while it moves in a straight line from sample to sample, and at times within
// the shutter.
#pragma once
#include "gas/gas_geometry_base.h"
#include "gas/structure/gas_bvh_geometry.h"

class GasGeometryBvh4 : public GasBvhGeometry<GasGeometryBvh4, GasGeometryBase> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasGeometryBvh4();
  /// A copy has a deep copy of the tree and no motion data; it answers queries as the source does. Without memory it is
  /// empty.
  GasGeometryBvh4(const GasGeometryBvh4& other);
  GasGeometryBvh4& operator=(const GasGeometryBvh4& other);
  ~GasGeometryBvh4() override;

  class GetLeafBboxesAtTask;

  /// Builds the structure over the primitives of up to three geometries, replacing whatever it held. The geometries
  /// must outlive it. Primitives without a usable box (not finite, or inverted) are left out; a build by
  /// a top-level context reports them once through the log. A structure of which nothing is left is empty and answers
  /// every query with nothing.
  ///
  /// @param ctx             asks the geometries for their boxes, on the threads of its application
  /// @param base_geometry   defines the primitives and their shading groups; not null
  /// @param geometry        supplies boxes and tests of the groups whose flag bit 0 is clear; not null
  /// @param alt_geometry    supplies the groups whose flag bit 0 is set; may be null
  /// @param extra_geometry  supplies a second copy of the groups whose flag bit 1 is set; may be null
  /// @param group_flags     one word per shading group; must have that size when there is a third or fourth geometry
  /// @param progress        gets two tasks of weight 0.5 and lends the threads of its application to the tree's build;
  ///                        null: no progress, and the tree is built on the calling thread
  /// @return false, and the structure as it was, when group_flags has the wrong size. True otherwise: also when memory
  ///         ran out (reported through the log) or the application asked to stop, and the structure is then empty
  /// Threads: one call at a time, and not while queries run. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time. The tree takes 66 bytes a triangle on a mesh of 70 thousand and 35 on one of 870 thousand:
  /// only nodes from the tenth level on are stored in the small form. Under motion blur each sample adds its boxes.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
              const CoreBasicArray<uint>& group_flags, AppProgressBar* progress);
  /// The same with one geometry for all groups. An ordinary mesh is passed as both.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);

 private:
  friend GasBvhGeometry;
  friend GasBvhStructure;
  /// A leaf's primitive and the geometry that owns it. Each layout looks up only what it must.
  template <bool indexed, bool many_owners, bool one_group>
  struct Leaf;

  void build_tree(const CtxEval& ctx, CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress);
  bool is_one_group(const CtxEval& ctx) const;
  void choose_leaf_functions(const CtxEval& ctx);
  void clear();
  u64 get_own_bytes() const { return get_primitive_array_bytes(); }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  GMathBbox3<float> compute_bbox_at(const CtxEval& ctx, double time, uint position) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);
};

extern template class GasBvhStructure<GasGeometryBvh4, GasGeometryBase>;
extern template class GasBvhGeometry<GasGeometryBvh4, GasGeometryBase>;
