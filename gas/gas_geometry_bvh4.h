// gas/gas_geometry_bvh4.h
//
// The structure over a mesh: an axis-aligned four-wide tree with one primitive per leaf. gas_geometry_base.h supplies
// the boxes, gas/bvh the tree and its kernels, the geometry tests its primitives. Here they are connected:
//
//   leaf -> position -> primitive, owner -> shading of its group -> owner's ray test -> the query's push_intersection
//
// Under motion blur the tree is refitted to the boxes at the sample times of the description; rays see boxes blended
// between two samples. A primitive is always found if it moves in straight lines between samples and the ray's time is
// within the shutter.
#pragma once
#include "gas/gas_geometry_base.h"
#include "gas/structure/gas_bvh_geometry.h"
#include "vq_core/core_export.h"

class VQ_EXPORT GasGeometryBvh4 : public GasBvhGeometry<GasGeometryBvh4, GasGeometryBase> {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasGeometryBvh4();
  /// Copies the tree, but no motion data; the copy answers queries as the source does. Empty if there is no memory.
  GasGeometryBvh4(const GasGeometryBvh4& other);
  GasGeometryBvh4& operator=(const GasGeometryBvh4& other);
  ~GasGeometryBvh4() override;

  class GetLeafBboxesAtTask;

  /// Builds the structure over the primitives of up to three geometries and replaces its former content. The geometries
  /// must outlive it. Primitives whose box is not finite or inverted are left out; with a top-level context one warning
  /// is logged. Without primitives the structure is empty: queries find nothing.
  ///
  /// @param ctx             evaluates the boxes, on the threads of its application
  /// @param base_geometry   defines the primitives and their shading groups; not null
  /// @param geometry        supplies boxes and tests of the groups whose flag bit 0 is clear; not null
  /// @param alt_geometry    supplies the groups whose flag bit 0 is set; may be null
  /// @param extra_geometry  adds its own primitives of the groups whose flag bit 1 is set; may be null
  /// @param group_flags     [shading group]; read only if alt_geometry or extra_geometry is given
  /// @param progress        gets two tasks of weight 0.5; the tree is built on the threads of its application. Null: no
  ///                        progress, the tree is built on the calling thread
  /// @return false, and the structure unchanged, if group_flags has the wrong size; else true. The structure is empty
  ///         if there was no memory (a warning is logged) or the application requested a stop
  /// Threads: one call at a time, no query meanwhile. Same input, same tree, for any number of threads.
  /// Cost: O(n log n) time. The tree takes 52 bytes a triangle on a mesh of 70 thousand and 30 on one of 870 thousand:
  /// only nodes from the tenth level on are quantized. Records of primitives, if the geometry has them, are added
  /// (GeometryObject::get_record_size()). Under motion blur each sample adds its boxes.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
              const CoreBasicArray<uint>& group_flags, AppProgressBar* progress);
  /// The same with one geometry for all groups; usually the same as `base_geometry`.
  bool create(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
              AppProgressBar* progress);

  /// The primitive of the geometries at `position`, an item of the tree. For reports.
  uint get_primitive(const uint& position) const { return GasGeometryBase::get_primitive(position); }

 private:
  friend GasBvhGeometry;
  friend GasStructure;
  friend GasBvhStructure;
  template <bool indexed, bool many_owners, bool one_group>
  struct Leaf;
  /// Ray leaf functions, with and without lookups.
  struct RayFunctions {
    BvhRayLeafFunction lookup = nullptr;  ///< looks up the primitive's group and the query's filters
    BvhRayLeafFunction bare = nullptr;    ///< tests the primitive, which is of the current group; null: none such
  };

  void build_tree(const CtxEval& ctx, CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress,
                  BvhOrderWork& order_work);
  void choose_leaf_functions(const CtxEval& ctx);
  void clear();
  u64 get_array_bytes() const { return get_primitive_array_bytes() + records.get_bytes(); }
  /// Those of one query. If what `lookup` looks up is the same for all primitives, it is done here, once.
  BvhLeafFunctions get_leaf_functions(const MotionData* record, GeometryRaytraceCtx& query) const;
  const GeometryObject* get_recorded_geometry() const {
    return recorded_functions.lookup != nullptr ? geometry : nullptr;
  }
  const uint* get_item_primitives() const { return primitives.is_empty() ? nullptr : primitives.get_items(); }
  void choose_ray_functions();
  const RayFunctions& get_ray_functions() const {
    return records.get_size() != 0 ? recorded_functions : plain_functions;
  }

  void update_samples(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data) const;
  GMathBbox3<float> compute_bbox_at(const CtxEval& ctx, double time, uint position) const;
  static GMathBbox3<double> blend_bbox(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);

  RayFunctions plain_functions;     ///< without records
  RayFunctions recorded_functions;  ///< with records; null if several geometries own the items
};

extern template class GasStructure<GasGeometryBvh4, GasGeometryBase, GasRefitRecord<GasGeometryBvh4>>;
extern template class GasBvhStructure<GasGeometryBvh4, GasGeometryBase>;
extern template class GasBvhGeometry<GasGeometryBvh4, GasGeometryBase>;
