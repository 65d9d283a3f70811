// tests/support/ray_query.h
//
// Puts rays to a structure as a renderer does: at rest, or at their times under motion blur.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "support/query_world.h"
#include "support/ray_sets.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_ray_packet.h"

struct RayQuery {
  bool nearest = true;                                    ///< or all hits
  const CtxMotionBlur* motion_blur = nullptr;             ///< set: the motion functions are asked
  std::function<void(GeometryRaytraceCtx&)> adjust = {};  ///< changes the query before it starts
};

/// The answers are in the packet.
inline void ask_rays(QueryWorld& world, const GasObject& structure, GeometryRayPacket& packet,
                     const std::vector<TestRay>& rays, const RayQuery& how = {}) {
  packet.resize(static_cast<uint>(rays.size()));
  for (uint k = 0; k < rays.size(); ++k)
    packet.set_ray(k, rays[k].origin, rays[k].direction, rays[k].tnear, rays[k].tfar, rays[k].time, rays[k].type);
  GeometryRaytraceCtx& query = how.nearest ? packet.begin_nearest(world.shading) : packet.begin_all_hits(world.shading);
  if (how.adjust) how.adjust(query);
  world.shader.motion_blur = how.motion_blur;
  world.ctx.set_motion_blur(how.motion_blur);
  const uint filters = query.get_filter_count();
  const auto at_rest = how.nearest ? &GasObject::ray_hit_nearest_static : &GasObject::ray_hit_static;
  const auto moving = how.nearest ? &GasObject::ray_hit_nearest_motion : &GasObject::ray_hit_motion;
  (structure.*(how.motion_blur != nullptr ? moving : at_rest))(world.ctx, world.shader, query);
  EXPECT_EQ(query.get_filter_count(), filters);
  EXPECT_EQ(world.shader.nested_current, nullptr);
}

/// The nearest hit of one ray.
inline GeometryIntersection shoot(QueryWorld& world, const GasObject& structure, const TestRay& ray,
                                  const CtxMotionBlur* motion_blur = nullptr) {
  GeometryRayPacket packet;
  ask_rays(world, structure, packet, {ray}, {true, motion_blur});
  return packet.get_nearest(0);
}
