#include "tools/vqgas/scene_part.h"

#include "gas/gas_fur.h"
#include "gas/gas_geometry_bvh4.h"
#include "tools/vqgas/input_error.h"
#include "vq_geometry/poly_mesh.h"

namespace {

class MeshPart final : public ScenePart {
 public:
  MeshPart(const CtxEval& ctx, MeshSource&& source, AppProgressBar* progress) {
    CoreString fault;
    if (!mesh_.create(std::move(source.data), fault)) throw InputError(source.name, fault.get_data());
    motion_sampling_ = mesh_.get_motion_sampling();
    if (!structure_.create(ctx, &mesh_, &mesh_, progress) || structure_.get_tree().is_empty())
      throw InputError(source.name, "holds no polygon with finite corners");
  }
  const GeometryObject& get_geometry() const override { return mesh_; }
  const GasClusterable& get_structure() const override { return structure_; }
  const GasBvh<4>& get_tree() const override { return structure_.get_tree(); }
  uint get_point_count() const override { return mesh_.get_vertex_count(); }

 private:
  PolyMesh mesh_;
  GasGeometryBvh4 structure_;
};

class HairPart final : public ScenePart {
 public:
  HairPart(const CtxEval& ctx, HairSource&& source, const HairSettings& settings, AppProgressBar* progress) {
    CurveData& data = source.data;
    if (data.basis == CurveBasis::linear && !settings.is_linear) make_smooth(data);
    const uint samples = static_cast<uint>(data.motion_points.size());
    if (samples > 0) motion_sampling_ = {data.motion_begin, data.motion_step, samples};
    CoreString fault;
    if (!hair_.create(std::move(data), fault)) throw InputError(source.name, fault.get_data());
    structure_.set_oriented_nodes(!settings.is_aligned_only);
    if (!structure_.create(ctx, &hair_, &hair_, progress) || structure_.get_tree().is_empty())
      throw InputError(source.name, "holds no segment with finite points");
    if (!settings.is_asked_all_hits || structure_.get_tree().oriented_count == 0) return;
    all_hits_structure_.emplace().set_oriented_nodes(false);
    all_hits_structure_->create(ctx, &hair_, &hair_, progress);
  }
  const GeometryObject& get_geometry() const override { return hair_; }
  const GasClusterable& get_structure() const override { return structure_; }
  const GasClusterable& get_all_hits_structure() const override {
    return all_hits_structure_ ? *all_hits_structure_ : structure_;
  }
  const GasBvh<4>& get_tree() const override { return structure_.get_tree(); }
  const TubeMeshFast* get_hair() const override { return &hair_; }
  uint get_point_count() const override { return hair_.get_curves().get_point_count(); }

 private:
  TubeMeshFast hair_;
  GasFur structure_;
  std::optional<GasFur> all_hits_structure_;
};

}  // namespace

std::unique_ptr<ScenePart> make_mesh_part(const CtxEval& ctx, MeshSource&& source, AppProgressBar* progress) {
  return std::make_unique<MeshPart>(ctx, std::move(source), progress);
}

std::unique_ptr<ScenePart> make_hair_part(const CtxEval& ctx, HairSource&& source, const HairSettings& settings,
                                          AppProgressBar* progress) {
  return std::make_unique<HairPart>(ctx, std::move(source), settings, progress);
}
