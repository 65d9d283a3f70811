#include "tools/vqgas/scene/scene_cloud.h"

#include <utility>

#include "tools/vqgas/support/input_error.h"
#include "vq_gmath/gmath_scalar.h"

SceneCloud make_cloud(const AppBase& app, const CtxEval& ctx, PointSource&& source, AppProgressBar* progress) {
  SceneCloud cloud;
  cloud.name = source.name;
  cloud.colors = std::move(source.colors);
  cloud.has_radii = !source.radii.empty();
  for (const GMathVec3<float>& p : source.positions)
    if (gmath_isfinited(p.x) && gmath_isfinited(p.y) && gmath_isfinited(p.z)) ++cloud.finite_count;
  ParticleData data;
  data.positions = std::move(source.positions);
  data.radii = std::move(source.radii);
  const auto particles = std::make_shared<ParticleCloud>();
  CoreString fault;
  if (!particles->create(std::move(data), fault)) throw InputError(source.name, fault.get_data());
  const auto structure = std::make_shared<GasPoint>();
  structure->create(app, ctx, particles.get(), progress);
  cloud.particles = particles;
  cloud.structure = structure;
  return cloud;
}
