// host/vq_module/module_particle.h
//
// A cloud of particles as an object of a scene: found by frustums and beams in a GasParticleTree.
#pragma once
#include "vq_core/core_export.h"
#include "vq_module/module_geometry.h"

class ParticleCloud;

class VQ_EXPORT ModuleParticle final : public ModuleGeometry {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// @param cloud      the particles of the structure; null: none
  /// @param structure  built over the cloud's points; null: the object is never found
  ModuleParticle(const CoreString& name, std::shared_ptr<const ParticleCloud> cloud,
                 std::shared_ptr<const GasObject> structure);
};
