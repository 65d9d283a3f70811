// tests/support/hit_check.h
//
// Compares what a structure answers with what an oracle knows of every ray and primitive.
#pragma once
#include <set>

#include "support/ray_query.h"
#include "support/sure_answer.h"

/// What a ray surely does with a primitive; `close`: nobody can say.
struct SureHit {
  SureAnswer answer = SureAnswer::missed;
  double low = 0.0, high = 0.0;  ///< between what distances a hit lies; NaN: anywhere
  uint most_reports = 1;         ///< in a query for all hits; the diagonals of a polygon belong to two triangles of it
};

class HitCheck {
 public:
  std::vector<TestRay> rays;
  std::vector<std::vector<SureHit>> truth;     ///< [ray][primitive]
  const CtxMotionBlur* motion_blur = nullptr;  ///< set: rays carry times and the motion functions are asked
  uint group_offset = 0;
  std::string name = {};  ///< told when something disagrees
  uint reported = 0;

  uint count_sure_hits() const {
    uint count = 0;
    for (const std::vector<SureHit>& of_ray : truth)
      for (const SureHit& hit : of_ray) count += hit.answer == SureAnswer::hit;
    return count;
  }

  /// @param all_complete  whether queries for all hits must find every one
  void check(QueryWorld& world, const GasObject& structure, bool all_complete = true) {
    GeometryRayPacket packet;
    ask(world, structure, packet, true);
    for (uint ray = 0; ray < rays.size(); ++ray) check_nearest(packet.get_nearest(ray), ray);
    ask(world, structure, packet, false);
    std::vector<std::multiset<uint>> found(rays.size());
    for (const GeometryHit& hit : packet.get_hits().get_hits()) {
      check_hit(hit.hit, hit.ray);
      found[hit.ray].insert(hit.hit.primitive);
    }
    for (uint ray = 0; ray < rays.size() && all_complete; ++ray) {
      for (uint primitive = 0; primitive < truth[ray].size(); ++primitive) {
        if (truth[ray][primitive].answer != SureAnswer::hit) continue;
        const std::size_t count = found[ray].count(primitive);
        EXPECT_TRUE(count >= 1 && count <= truth[ray][primitive].most_reports)
            << say(ray) << " reported " << primitive << " " << count << " times";
      }
    }
  }

  void ask(QueryWorld& world, const GasObject& structure, GeometryRayPacket& packet, bool nearest) const {
    ask_rays(world, structure, packet, rays, {nearest, motion_blur, [&](GeometryRaytraceCtx& query) {
                                                query.shading_group_offset = group_offset;
                                                query.instance = 5;
                                              }});
  }

 private:
  void check_nearest(const GeometryIntersection& hit, uint ray) {
    double nearest = HUGE_VAL;
    for (const SureHit& sure : truth[ray])
      if (sure.answer == SureAnswer::hit) nearest = std::min(nearest, sure.high);
    EXPECT_LE(hit.distance, std::min(nearest, rays[ray].tfar)) << say(ray);
    if (hit.geometry != nullptr) return check_hit(hit, ray);
    EXPECT_EQ(hit.distance, rays[ray].tfar) << say(ray);
    EXPECT_EQ(nearest, HUGE_VAL) << say(ray) << " lost its hit";
  }

  void check_hit(const GeometryIntersection& hit, uint ray) {
    ++reported;
    ASSERT_LT(hit.primitive, truth[ray].size());
    const SureHit& sure = truth[ray][hit.primitive];
    EXPECT_NE(sure.answer, SureAnswer::missed) << say(ray) << " hit " << hit.primitive;
    EXPECT_FALSE(hit.distance < sure.low || hit.distance > sure.high)
        << say(ray) << " hit " << hit.primitive << " at " << hit.distance;
    EXPECT_EQ(hit.instance, 5u);
    EXPECT_GE(hit.distance, rays[ray].tnear);
    EXPECT_LT(hit.distance, rays[ray].tfar);
  }

  std::string say(uint ray) const { return name + " ray " + std::to_string(ray) + ": " + describe(rays[ray]); }
};
