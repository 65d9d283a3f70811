// gas/gas_fur.h
//
// The structure over curves: a four-wide tree whose nodes may hold oriented boxes, since the axis-aligned box of a
// slanted segment is nearly empty. The geometry supplies boxes, in the world and in any space, and tests its
// primitives; gas/bvh supplies the tree and its kernels. Here they are connected:
//
//   leaf -> primitives -> shading of the group -> geometry's ray test -> the query's push_intersection
//
// Queries for the nearest hit test oriented boxes. Queries for all hits do not: they may miss primitives below oriented
// nodes. To see every curve along a ray, query the nearest hit again behind each hit.
#pragma once
#include "gas/gas_clusterable.h"
#include "gas/structure/gas_bvh_geometry.h"
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_linear_space.h"

class AppProgressBar;
class GeometryObject;
class SysThreadManager;

class VQ_EXPORT GasFur : public GasBvhGeometry<GasFur, GasClusterable> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasFur();
  /// Copies the tree, but no motion data; the copy answers queries as the source does. Empty if there is no memory.
  GasFur(const GasFur& other);
  GasFur& operator=(const GasFur& other);
  ~GasFur() override;

  class StaticBboxTask;
  class MotionBboxTask;

  /// Builds the structure over the primitives of a geometry and replaces its former content. Primitives whose static
  /// box is not finite are left out. Without primitives the structure is empty: queries find nothing.
  ///
  /// @param ctx            evaluates the boxes, on the threads of its application
  /// @param base_geometry  the current geometry of queries; not null, must outlive the structure
  /// @param geometry       supplies primitives, boxes, spaces and tests; usually the same as `base_geometry`; not null,
  ///                       must outlive the structure
  /// @param progress       gets the tasks "Compute primitives AABB" (0.2) and "Build BVH" (0.8); the tree is built on
  ///                       the threads of its application. Null: no progress, the tree is built on the calling thread
  /// @return always true. The structure is empty if there was no memory (a warning is logged) or the application
  ///         requested a stop
  /// Threads: one call at a time, no query meanwhile. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time; every set that may be split obliquely is measured again in its own space. The tree takes
  /// 89 bytes a segment on fur of 200 thousand segments, 54 without oriented nodes. Records of primitives, if the
  /// geometry has them, are added (GeometryObject::get_record_size()).
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);
  /// Sets whether the next create() may make oriented nodes; initially true. Without them queries for all hits find
  /// every curve, but queries for the nearest hit are slower.
  void set_oriented_nodes(bool allowed) { oriented_nodes_allowed = allowed; }

  // Boxes of primitives. Threads: any number at once, each with its own context. Cost: O(1) per primitive.

  /// Computes the static boxes of primitives first .. end - 1, rounded to single precision.
  /// @param boxes     [end], written from `first` on
  /// @param valid     the primitives with finite boxes are appended, in increasing order; reserve memory before the
  ///                  call, since without memory primitives are missing
  /// @param progress  stepped to primitive + 1 after each; may be null
  static void compute_bboxes(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                             const unsigned int& end, GMathBbox3<float>* boxes, CoreVector<unsigned int>& valid,
                             AppProgressBar* progress);
  /// The same, with the primitives' preferred spaces.
  /// @param spaces  [end], written from `first` on
  static void compute_bboxes_and_spaces(const CtxEval& ctx, const GeometryObject* geometry, const unsigned int& first,
                                        const unsigned int& end, GMathBbox3<float>* boxes,
                                        GMathLinearSpace3<float>* spaces, CoreVector<unsigned int>& valid,
                                        AppProgressBar* progress);
  /// Computes the boxes of primitives first .. end - 1 at `time`. A box that is not finite or inverted is replaced by
  /// the static one: every primitive stays in the tree.
  static void compute_bboxes_at(const CtxEval& ctx, const GeometryObject* geometry, const double& time,
                                const unsigned int& first, const unsigned int& end, GMathBbox3<float>* boxes,
                                AppProgressBar* progress);

  /// The primitives to measure, and at what time.
  struct ComputeSpaceBboxesData {
    const CtxEval* ctx = nullptr;  ///< top-level; each thread uses its own context from this one's table
    const GeometryObject* geometry = nullptr;
    double time = 0.0;  ///< used by the ..._at() functions
  };
  /// The box around `items` (primitives), measured along the axes of `space`. Inverted if there are no items; the
  /// largest finite box if there is no memory or the application requested a stop.
  /// @param threads  runs tasks for 16384 and more items; null: the calling thread measures all
  static GMathBbox3<float> compute_space_bbox(const CoreBasicArray<unsigned int>& items,
                                              const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                              SysThreadManager* threads);
  /// Measures each of `items` separately; failures as above.
  /// @param boxes  [items.get_count()], written
  static void compute_space_bboxes(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                   GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data, SysThreadManager* threads);
  /// The same at data->time.
  static GMathBbox3<float> compute_space_bbox_at(const CoreBasicArray<unsigned int>& items,
                                                 const GMathLinearSpace3<float>& space, ComputeSpaceBboxesData* data,
                                                 SysThreadManager* threads);
  static void compute_space_bboxes_at(const CoreBasicArray<unsigned int>& items, const GMathLinearSpace3<float>& space,
                                      GMathBbox3<float>* boxes, ComputeSpaceBboxesData* data,
                                      SysThreadManager* threads);

  // Leaf callbacks of the kernels; `user` is the structure.
  static void single_primitive_ray_hit_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                                const CoreBasicArray<unsigned int>& leaf, void* user);
  static void multi_primitive_ray_hit_callback(const CtxEval&, CtxShader&, GeometryRaytraceCtx&,
                                               const CoreBasicArray<unsigned int>& leaf, void* user);
  static void leaf_frustum_hit_callback(const CtxEval&, CtxShader&, GeometryFrustumCtx&,
                                        const CoreBasicArray<unsigned int>& leaf, void* user);

  /// Number of primitives in the tree. Thread-safe between builds, O(1).
  uint get_kept_count() const { return tree.item_count; }

 private:
  friend GasBvhGeometry;
  friend GasStructure;
  friend GasBvhStructure;

  template <bool has_records>
  void test_item(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint* item) const;
  template <bool has_records, bool is_single>
  static void ray_hit(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, const CoreBasicArray<uint>& leaf, void* user);

  /// Input of the tree build.
  struct Primitives;
  void compute_primitives(const CtxEval& ctx, Primitives& primitives, AppProgressBar* progress) const;
  void build_tree(const CtxEval& ctx, const Primitives& primitives, AppProgressBar* progress, BvhOrderWork& order_work);
  void count_groups();
  const GeometryObject* get_recorded_geometry() const { return geometry; }
  static const uint* get_item_primitives() { return nullptr; }
  void choose_ray_functions();
  /// Those of this class. Empties the structure if an array could not be copied.
  void copy_fields(const GasFur& other);
  void clear();
  u64 get_array_bytes() const { return u64{group_primitive_counts.get_count()} * sizeof(uint) + records.get_bytes(); }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction) {
    return GMathBbox3<double>(bvh_blend_boxes(a, b, static_cast<float>(fraction)));
  }

  /// The context of the last create(). Never used: it may no longer exist.
  const CtxEval* ctx = nullptr;
  const GeometryObject* base_geometry = nullptr;
  const GeometryObject* geometry = nullptr;
  uint primitive_count = 0;
  bool has_motion = false;
  bool oriented_nodes_allowed = true;
  bool has_large_leaves = false;                ///< a leaf has more than one primitive
  CoreBasicArray<uint> group_primitive_counts;  ///< [shading group] primitives in the tree
};

extern template class GasStructure<GasFur, GasClusterable, GasRefitRecord<GasFur>>;
extern template class GasBvhStructure<GasFur, GasClusterable>;
extern template class GasBvhGeometry<GasFur, GasClusterable>;
