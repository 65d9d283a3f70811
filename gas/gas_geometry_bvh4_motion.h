// gas/gas_geometry_bvh4_motion.h
//
// What the mesh structure keeps per motion-blur slot. Only its own sources include this.
#pragma once
#include "gas/gas_geometry_bvh4.h"
#include "gas/gas_refit.h"

struct GasGeometryBvh4::MotionData : GasRefitRecord<GasGeometryBvh4> {
  using GasRefitRecord::GasRefitRecord;
};
