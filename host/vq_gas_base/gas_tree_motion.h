// host/vq_gas_base/gas_tree_motion.h
//
// The boxes of a GasTree's nodes at the samples of a motion-blur description.
#pragma once
#include <vector>

#include "vq_core/core_base_type.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_binary_tree.h"

class VQ_EXPORT GasTreeMotion : public CoreBaseObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasTreeMotion() = default;
  GasTreeMotion(const GasTreeMotion&) = delete;
  GasTreeMotion& operator=(const GasTreeMotion&) = delete;

  /// 0 before the samples were computed.
  uint get_sample_count() const { return static_cast<uint>(samples.size()); }
  /// The box of the whole tree at one sample, below get_sample_count().
  const GMathBbox3<float>& get_bbox(const uint& sample) const { return samples[sample].box; }
  /// Bytes held, this object included.
  u64 get_memory_size() const override;

 protected:
  u64 get_sample_bytes() const;

  std::vector<GasBinarySample> samples;
};
