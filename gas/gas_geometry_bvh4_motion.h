// gas/gas_geometry_bvh4_motion.h
//
// What the mesh structure keeps per motion-blur slot. Only its own sources include this.
#pragma once
#include "gas/gas_geometry_bvh4.h"

struct GasGeometryBvh4::MotionData {
  explicit MotionData(GasGeometryBvh4* owner) : owner(owner) {}
  void clear() { refit.clear(); }

  SysThreadLock lock;     ///< held by the one thread that refits
  GasBvhMotion<4> refit;  ///< the tree's boxes at each sample
  GasGeometryBvh4* owner;
  std::atomic<uint> stamp{0};  ///< of the description that `refit` was computed for; 0: stale
};
