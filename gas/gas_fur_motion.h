// gas/gas_fur_motion.h
//
// What the curve structure keeps per motion-blur slot. Only its own sources include this.
#pragma once
#include "gas/gas_fur.h"
#include "gas/gas_refit.h"

struct GasFur::MotionData : GasRefitRecord<GasFur> {
  using GasRefitRecord::GasRefitRecord;
};
