// tools/vqgas/demo/demo_relief.h
//
// What the landscapes of the demos are made of.
#pragma once
#include <algorithm>

#include "vq_geometry/displaced_mesh_height.h"

/// 0 up to `low`, 1 from `high` on, smooth between.
inline double demo_ease(double low, double high, double x) {
  const double t = std::clamp((x - low) / (high - low), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

inline GeometryNoiseSettings demo_make_noise(u64 seed, uint octaves, double frequency, double amplitude) {
  GeometryNoiseSettings settings;
  settings.seed = seed;
  settings.octaves = octaves;
  settings.frequency = frequency;
  settings.amplitude = amplitude;
  return settings;
}
