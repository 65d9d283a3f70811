// gas/gas_fur.h
//
// The structure over curves: a four-wide tree whose nodes may hold oriented boxes, because a slanted fibre leaves its
// axis-aligned box nearly empty. This file is wiring: the geometry answers for boxes, in the world and in any space,
// and tests its primitives; the tree and its kernels are those of gas/bvh.
//
//   leaf -> primitives -> shading of the group -> geometry's ray test -> the query's push_intersection
//
// Queries for the nearest hit see oriented boxes. Queries for all hits carry no oriented test: what lies below an
// oriented node they may miss, so callers that must see every fibre ask for the nearest hit and go on behind it.
#pragma once
#include "gas/gas_clusterable.h"
#include "gas/structure/gas_bvh_geometry.h"
#include "vq_core/core_array.h"
#include "vq_gmath/gmath_linear_space.h"

class AppProgressBar;
class GeometryObject;
class SysThreadManager;

class GasFur : public GasBvhGeometry<GasFur, GasClusterable> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasFur();
  /// A copy has a deep copy of the tree and no motion data; it answers queries as the source does. Without memory it is
  /// empty.
  GasFur(const GasFur& other);
  GasFur& operator=(const GasFur& other);
  ~GasFur() override;

  class StaticBboxTask;
  class MotionBboxTask;

  /// Builds the structure over the primitives of a geometry, replacing whatever it held. The geometries must outlive
  /// it. Primitives whose box at rest is not finite are left out. Without primitives the structure is empty and answers
  /// every query with nothing.
  ///
  /// @param ctx            asks the geometry for its boxes, on the threads of its application
  /// @param base_geometry  becomes the current geometry of queries; not null
  /// @param geometry       supplies primitives, boxes, spaces and tests; an ordinary geometry is passed as both; not
  ///                       null
  /// @param progress       gets the tasks "Compute primitives AABB" (0.2) and "Build BVH" (0.8) and lends the threads
  ///                       of its application to the tree's build; null: no progress, and the tree is built on the
  ///                       calling thread
  /// @return true: also when memory ran out (reported through the log) or the application asked to stop, and the
  ///         structure is then empty
  /// Threads: one call at a time, and not while queries run. Same input, same tree, for any number of threads.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);
  /// Whether the next create() may make oriented nodes; it may unless told otherwise. Without them queries for all hits
  /// find everything, and nearest hits take longer.
  void set_oriented_nodes(bool allowed) { oriented_nodes_allowed = allowed; }

  // --- measuring primitives. All may be called from many threads at once, each with its own context. ---

  /// The boxes at rest of primitives first .. end - 1, rounded to single precision, and which of them are finite.
  /// @param boxes     [end], written from `first` on
  /// @param valid     the finite ones are appended, in increasing order
  /// @param progress  stepped to each primitive + 1; may be null
  static void compute_bboxes(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                             const unsigned int& end, GMathBbox3<float>* boxes, CoreVector<unsigned int>& valid,
                             AppProgressBar* progress);
  /// The same, and the primitives' preferred spaces.
  /// @param spaces  [end], written from `first` on
  static void compute_bboxes_and_spaces(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                                        const unsigned int& end, GMathBbox3<float>* boxes,
                                        GMathLinearSpace3<float>* spaces, CoreVector<unsigned int>& valid,
                                        AppProgressBar* progress);
  /// The boxes of primitives first .. end - 1 at `time`. One that is then not finite or inverted stands in with its box
  /// at rest, for no primitive drops out for what it does later.
  static void compute_bboxes_at(const CtxEval& ctx, const GeometryObject* geometry, const double& time,
                                const unsigned int& first, const unsigned int& end, GMathBbox3<float>* boxes,
                                AppProgressBar* progress);

  /// Which primitives are measured, and when.
  struct ComputeSpaceBboxesData {
    const CtxEval* ctx = nullptr;  ///< top-level: the running thread's own context is taken from its table
    const GeometryObject* geometry = nullptr;
    double time = 0.0;  ///< used by the ..._at() functions
  };
  /// The box around all `items` (primitives), measured along the axes of `space`; inverted without items, the largest
  /// box that there is without memory.
  static GMathBbox3<float> compute_space_bbox(const CoreBasicArray<unsigned int>& items,
                                              const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                              SysThreadManager* threads);
  /// One box for each of `items`.
  /// @param boxes  [items.get_count()], written
  static void compute_space_bboxes(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                   GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data, SysThreadManager* threads);
  /// The same at the data's time.
  static GMathBbox3<float> compute_space_bbox_at(const CoreBasicArray<unsigned int>& items,
                                                 const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                                 SysThreadManager* threads);
  static void compute_space_bboxes_at(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                      GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data,
                                      SysThreadManager* threads);

  // What the kernels call at a leaf; `user` is the structure.
  static void single_primitive_ray_hit_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                const CoreBasicArray<unsigned int>& leaf, void* user);
  static void multi_primitive_ray_hit_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                               const CoreBasicArray<unsigned int>& leaf, void* user);
  static void leaf_frustum_hit_callback(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<unsigned int>& leaf, void* user);

  /// How many primitives are in the tree.
  uint get_kept_count() const { return tree.item_count; }

 private:
  friend GasBvhGeometry;
  friend GasBvhStructure;

  void test_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint primitive) const;

  /// What create() gathers of the primitives.
  struct Primitives;
  void compute_primitives(const CtxEval& ctx, Primitives& primitives, AppProgressBar* progress) const;
  void build_tree(const CtxEval& ctx, const Primitives& primitives, AppProgressBar* progress);
  void count_groups();
  void choose_leaf_functions();
  void clear();
  u64 get_own_bytes() const { return u64{group_primitive_counts.get_count()} * sizeof(uint); }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
    return GMathBbox3<double>(bvh_blend_boxes(a, b, static_cast<float>(fraction)));
  }

  /// The context of the last create(). Whoever passed it may be gone: it is kept, not used.
  const CtxEval* ctx = nullptr;
  const GeometryObject* base_geometry = nullptr;
  const GeometryObject* geometry = nullptr;
  uint primitive_count = 0;
  bool has_motion = false;
  bool oriented_nodes_allowed = true;
  CoreBasicArray<uint> group_primitive_counts;  ///< [shading group] primitives in the tree
};

extern template class GasBvhStructure<GasFur, GasClusterable>;
extern template class GasBvhGeometry<GasFur, GasClusterable>;
