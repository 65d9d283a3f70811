// bench/bench_rays.h
//
// Ray sets that every program of this folder measures with. Single precision, so that each library is asked exactly the
// same question; the order of the rays is the order of the pixels they come from.
#pragma once
#include <cfloat>
#include <string>
#include <vector>

#include "bench/bench_mesh.h"

struct BenchRay {
  GMathVec3<float> origin, direction;  ///< the direction is of unit length up to rounding
  float tnear = 0.0f;
  float tfar = FLT_MAX;
};

/// The answer to one ray.
struct BenchHit {
  static constexpr float miss = -1.0f;
  float distance = miss;
  u32 primitive = 0;  ///< not told by queries for any hit

  bool is_hit() const { return distance >= 0.0f; }
};

struct BenchRaySet {
  std::string name;
  bool any_hit = false;  ///< asks only whether something is hit
  std::vector<BenchRay> rays;
};

/// `size` x `size` rays of a camera that looks at the whole mesh in a three-quarter view, row by row.
BenchRaySet bench_make_primary_rays(const BenchMesh& mesh, uint size);
/// From random points of the bounding sphere to random points of the bounding box.
BenchRaySet bench_make_random_rays(const BenchMesh& mesh, uint count, u64 seed);
/// One ray from each hit of `rays`, cosine-distributed about the normal on the side that the ray came from.
BenchRaySet bench_make_bounce_rays(const BenchMesh& mesh, const BenchRaySet& rays, const std::vector<BenchHit>& hits,
                                   u64 seed);
/// The same rays, ended at a random distance of up to half the mesh's diagonal, any hit.
BenchRaySet bench_make_shadow_rays(const BenchMesh& mesh, const BenchRaySet& bounce, u64 seed);
