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
#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/gas_bvh.h"
#include "gas/bvh/gas_bvh_motion.h"
#include "gas/frame/gas_motion_container.h"
#include "gas/gas_geometry_base.h"

class CtxMotionBlur;

class GasGeometryBvh4 : public GasGeometryBase {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasGeometryBvh4();
  /// A copy has a deep copy of the tree and no motion data; it answers queries as the source does.
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
  /// @return false, and the structure as it was, when group_flags has the wrong size
  /// Threads: one call at a time, and not while queries run. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time. The tree takes 66 bytes a triangle on a mesh of 70 thousand and 35 on one of 870 thousand:
  /// only nodes from the tenth level on are stored in the small form. Under motion blur each sample adds its boxes.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
              const CoreBasicArray<uint>& group_flags, AppProgressBar* progress);
  /// The same with one geometry for all groups. An ordinary mesh is passed as both.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);

  /// The tree's box; inverted when it is empty.
  GMathBbox3<double> get_bbox() const override;
  /// The box at `time` under the context's motion blur, blended between the samples around it; the first call for a
  /// motion-blur description refits the tree. Without motion, or without a description, get_bbox(). Thread-safe.
  GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const override;
  /// To be called when the geometry's motion changed: the next query under each description refits the tree anew. No
  /// query may be running.
  void dirty_motion_blur() override;
  /// Bytes of the object, its arrays and its motion data. Waits for a refit that is going on. Thread-safe.
  u64 get_memory_size() const override;

  void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const override;
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const override;
  void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) const override;
  void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const override;

  // What the doors of the base (ray_hit_static() and so on) call once the structure is built. Frustum queries see the
  // geometry at rest.
  static void ray_hit_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_static_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void ray_hit_nearest_motion_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  static void frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryFrustumCtx&);

  /// For reports and tests.
  const GasBvh<4>& get_tree() const { return tree; }

 private:
  struct MotionData;
  /// A leaf's primitive and whose it is. Each layout looks up only what it must.
  template <bool indexed, bool many_owners, bool one_group>
  struct Leaf;

  // Not named like the doors of the base, which they would hide.
  template <BvhHits hits>
  static void answer_static(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);
  template <BvhHits hits>
  static void answer_motion(const GasObject*, const CtxEval&, CtxShader&, GeometryRaytraceCtx&);

  void build_tree(CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress);
  bool is_one_group() const;
  void choose_leaf_functions();
  void install_callbacks();

  /// The refitted record of the description's slot; refits it first when it is stale.
  const MotionData& get_motion_data(const CtxEval& ctx, const CtxMotionBlur& motion_blur) const;
  void update_motion_blur(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  void compute_bboxes_at(const CtxEval& ctx, double time, GMathBbox3<float>* boxes) const;
  GMathBbox3<float> compute_bbox_at(const CtxEval& ctx, double time, uint position) const;

  GasBvh<4> tree;
  BvhLeafFunctions leaf_functions;
  /// Queries that only read the structure fill this lazily; the container and its records have their own locks.
  mutable GasMotionContainer<MotionData, GasGeometryBvh4> motion_data;
};
