// tests/support/mesh_check.h
//
// What testing every polygon of a mesh gives, to hold a structure's answers against.
#pragma once
#include <map>

#include "support/hit_check.h"
#include "support/mesh_oracle.h"

/// @param is_hidden  whether a polygon is not to be hit
inline HitCheck make_mesh_check(const PolyMeshData& data, std::vector<TestRay> rays,
                                const CtxMotionBlur* motion_blur = nullptr,
                                const std::function<bool(uint)>& is_hidden = {}) {
  HitCheck check{std::move(rays), {}, motion_blur};
  std::map<double, std::vector<std::vector<Long3>>> at_time;
  for (const TestRay& ray : check.rays) {
    auto& moved = at_time[motion_blur != nullptr ? ray.time : 0.0];
    if (moved.empty()) moved = motion_blur != nullptr ? get_all_corners(data, ray.time) : get_all_corners(data);
    // A ray begins at its origin even if its interval begins before it.
    const OracleRay asked{Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
    std::vector<SureHit>& truth = check.truth.emplace_back(moved.size());
    for (uint p = 0; p < moved.size(); ++p) {
      if (is_hidden && is_hidden(p)) continue;
      const OracleHit hit = oracle_intersect(asked, moved[p]);
      truth[p] = {hit.answer, static_cast<double>(hit.t - hit.tolerance), static_cast<double>(hit.t + hit.tolerance),
                  data.polygon_sizes[p] > 3 ? 2u : 1u};
    }
  }
  return check;
}
