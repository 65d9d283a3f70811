#include "vq_module/module_particle.h"

#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_particle/particle_cloud.h"

const CoreClassInfo& ModuleParticle::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ModuleParticle", core_destroy_object, ModuleGeometry::class_info(), nullptr);
  return info;
}

ModuleParticle::ModuleParticle(const CoreString& name, std::shared_ptr<const ParticleCloud> cloud,
                               std::shared_ptr<const GasObject> structure)
    : ModuleGeometry(name, std::move(cloud), std::move(structure), get_whole_functions()) {}
