// gas/structure/gas_bvh_geometry.h
//
// Shared by the structures over the primitives of geometries, in addition to gas_bvh_structure.h: clusters, frustum
// modes, the current geometry of a query, records of primitives, and a refit from the boxes of all primitives.
//
// `Self` has the fields base_geometry, geometry, group_primitive_counts and has_motion. `Base` is derived from
// GasClusterable. The bodies are in gas_bvh_geometry_impl.h. For the records, `Self` supplies
//
//   const GeometryObject* get_recorded_geometry() const     null: none owns all items
//   const uint* get_item_primitives() const                 [item] its primitive; null: the item itself
//   void choose_ray_functions()                             those of the leaves, with or without `records`
#pragma once
#include <span>

#include "gas/structure/gas_bvh_structure.h"
#include "gas/structure/gas_leaf_records.h"
#include "gas/structure/gas_wireframe_filter.h"
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"

class AppProgressBar;

template <class Self, class Base>
class VQ_EXPORT GasBvhGeometry : public GasBvhStructure<Self, Base> {
 public:
  using MotionData = GasRefitRecord<Self>;

  void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const override;
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const override;
  void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) const override;
  void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const override;

  /// As that of GasStructure. Also copies what the geometry's tests read anew, O(primitives), if the structure keeps
  /// such records.
  void dirty_motion_blur() override;

  /// Bytes of the records of primitives, a part of get_memory_size().
  u64 get_record_bytes() const { return records.get_bytes(); }

 protected:
  friend class GasStructure<Self, Base, GasRefitRecord<Self>>;
  friend class GasBvhStructure<Self, Base>;
  using GasBvhStructure<Self, Base>::GasBvhStructure;
  GasBvhGeometry(const GasBvhGeometry& other, Self* self)
      : GasBvhStructure<Self, Base>(other, self), records(other.records) {}

  /// During a ray query: makes base_geometry the current geometry and filters it if it is a wireframe.
  struct QueryScope {
    QueryScope(const Self& structure, CtxShader& /*shader*/, GeometryRaytraceCtx& query, BvhHits hits)
        : wireframes(structure.base_geometry, query, hits) {}
    GasWireframeScope wireframes;
  };

  bool can_move() const { return static_cast<const Self&>(*this).has_motion; }
  const BvhLeafFunctions& get_leaf_functions(const MotionData* /*record*/, GeometryRaytraceCtx&) const {
    return this->leaf_functions;
  }
  BvhLeafRecords get_leaf_records() const { return {records.get_first(), records.get_size()}; }
  /// Takes the records of `work` and chooses the leaf functions that read them, or those without records.
  void make_records(GasLeafRecordWork& work);
  void report_growth(u64 old_size, u64 new_size) const { this->memory_account.update(old_size, new_size, *this); }
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;

  /// Refits every sample of a description. Throws std::bad_alloc or AppStopped.
  /// @param box_count       number of item boxes
  /// @param box_share       share of a sample's time that the boxes take, for the progress bar
  /// @param compute_bboxes  (time, boxes): writes the item boxes at `time`
  /// @param update_sample   (sample, boxes, progress) -> bool: refits one sample
  template <class ComputeBboxes, class UpdateSample>
  void refit_from_boxes(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data, uint box_count,
                        double box_share, const ComputeBboxes& compute_bboxes, const UpdateSample& update_sample) const;

  GasLeafRecords records;  ///< in the order of the tree
};
