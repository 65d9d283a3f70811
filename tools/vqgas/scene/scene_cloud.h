#pragma once
#include <memory>

#include "gas/gas_point.h"
#include "tools/vqgas/source/point_source.h"
#include "vq_particle/particle_cloud.h"

/// Points with their structure, which any number of objects show. Beams and frustums find them, rays do not.
struct SceneCloud {
  std::string name;
  std::shared_ptr<const ParticleCloud> particles;
  std::shared_ptr<const GasPoint> structure;
  std::vector<u32> colors;  ///< [point] 0xRRGGBB on the sRGB curve; empty: none
  bool has_radii = false;
  uint finite_count = 0;  ///< points in the structure

  uint get_count() const { return particles->get_primitive_count(); }
  const GMathVec3<float>& get_position(uint point) const { return particles->get_point_cloud()->get_position(point); }
  u64 get_color_bytes() const { return colors.capacity() * sizeof(u32); }
};

/// Builds the structure. Throws InputError when the source is invalid; a cloud without a finite point has an empty
/// structure.
SceneCloud make_cloud(const AppBase& app, const CtxEval& ctx, PointSource&& source, AppProgressBar* progress);
