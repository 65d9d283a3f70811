#include "vq_gas_base/gas_tree_motion.h"

const CoreClassInfo& GasTreeMotion::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GasTreeMotion", core_destroy_object, CoreBaseObject::class_info(), nullptr);
  return info;
}

u64 GasTreeMotion::get_sample_bytes() const {
  u64 bytes = samples.capacity() * sizeof(GasBinarySample);
  for (const GasBinarySample& sample : samples) bytes += sample.planes.get_bytes();
  return bytes;
}

u64 GasTreeMotion::get_memory_size() const { return sizeof(GasTreeMotion) + get_sample_bytes(); }
