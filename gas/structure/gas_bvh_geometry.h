// gas/structure/gas_bvh_geometry.h
//
// What structures over the primitives of geometries add to gas_bvh_structure.h: clusters of the tree, the modes of a
// frustum query, the base geometry as the query's current one, and a refit from boxes of all primitives.
//
// `Self` has the fields base_geometry, geometry, group_primitive_counts and has_motion. `Base` is derived from
// GasClusterable. The bodies are in gas_bvh_geometry_impl.h.
#pragma once
#include <span>

#include "gas/structure/gas_bvh_structure.h"
#include "gas/structure/gas_wireframe_filter.h"
#include "vq_core/core_array.h"

class AppProgressBar;

template <class Self, class Base>
class GasBvhGeometry : public GasBvhStructure<Self, Base> {
 public:
  using MotionData = GasRefitRecord<Self>;

  void get_clusters(CoreVector<void*>& clusters, const unsigned int& count, const float& ratio) const override;
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const override;
  void get_clusters_bboxes_at(const CtxEval& ctx, const double& time, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) const override;
  void get_clusters_weights(const CoreBasicArray<void*>& clusters, float* weights) const override;

 protected:
  friend class GasBvhStructure<Self, Base>;
  using GasBvhStructure<Self, Base>::GasBvhStructure;
  GasBvhGeometry(const GasBvhGeometry& other, Self* self) : GasBvhStructure<Self, Base>(other, self) {}

  /// The structure's base geometry is the query's current one, its wireframes filtered.
  struct QueryScope {
    QueryScope(const Self& structure, CtxShader& /*shader*/, GeometryRaytraceCtx& query, BvhHits hits)
        : wireframes(structure.base_geometry, query, hits) {}
    GasWireframeScope wireframes;
  };

  bool can_move() const { return static_cast<const Self&>(*this).has_motion; }
  const BvhLeafFunctions& get_leaf_functions(const MotionData* /*record*/, const GeometryRaytraceCtx&) const {
    return this->leaf_functions;
  }
  void report_growth(u64 old_size, u64 new_size) const { this->memory_account.update(old_size, new_size, *this); }
  void answer_frustum(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;

  /// Refits every sample of a description. Throws when it cannot.
  /// @param box_count       items of the tree's box arrays
  /// @param box_share       how much of a sample's work the boxes are, for the progress bar
  /// @param compute_bboxes  (time, boxes): writes the item boxes at a time
  /// @param update_sample   (sample, boxes, progress) -> bool: refits one sample
  template <class ComputeBboxes, class UpdateSample>
  void refit_from_boxes(const CtxEval& ctx, const CtxMotionBlur& motion_blur, MotionData& data, uint box_count,
                        double box_share, const ComputeBboxes& compute_bboxes, const UpdateSample& update_sample) const;
};
