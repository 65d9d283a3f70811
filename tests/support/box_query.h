// tests/support/box_query.h
//
// Ray queries over trees whose leaves hold nothing but boxes: the leaf functions write down what they are given, and
// slabs in double precision tell what they should have been given.
#pragma once
#include <algorithm>
#include <functional>
#include <optional>
#include <ostream>
#include <vector>

#include "gas/bvh/bvh_kernel.h"
#include "support/query_world.h"
#include "support/test_tree.h"
#include "vq_geometry/geometry_ray_packet.h"

struct BoxRay {
  GMathVec3<double> origin, direction;
  double tnear = 0.0, tfar = DBL_MAX;
};

inline std::ostream& operator<<(std::ostream& out, const GMathVec3<double>& v) {
  return out << "(" << v.x << ", " << v.y << ", " << v.z << ")";
}
inline std::ostream& operator<<(std::ostream& out, const BoxRay& ray) {
  return out << "ray " << ray.origin << " along " << ray.direction << " in [" << ray.tnear << ", " << ray.tfar << "]";
}

/// Where the ray enters the closed box; nothing when it misses. A component of 0 must lie within the slab.
inline std::optional<double> find_entry(const GMathBbox3<double>& box, const BoxRay& ray) {
  double entry = ray.tnear, exit = ray.tfar;
  for (uint axis = 0; axis < 3; ++axis) {
    if (box.min[axis] > box.max[axis]) return std::nullopt;
    const double origin = ray.origin[axis], direction = ray.direction[axis];
    if (direction == 0.0) {
      if (origin < box.min[axis] || origin > box.max[axis]) return std::nullopt;
      continue;
    }
    const double a = (box.min[axis] - origin) / direction, b = (box.max[axis] - origin) / direction;
    entry = std::max(entry, std::min(a, b));
    exit = std::min(exit, std::max(a, b));
  }
  return entry <= exit ? std::optional(entry) : std::nullopt;
}

/// Whether the ray meets the box when both are larger by what single precision may lose of coordinates and distances up
/// to about ten: without that nobody may say hit, with it nobody miss. `sign` -1: smaller by as much.
inline bool meets_box(const GMathBbox3<double>& box, const BoxRay& ray, double sign) {
  const double band = sign * 2e-5;
  const GMathVec3<double> margin(band, band, band);
  BoxRay moved = ray;
  moved.tnear -= band * 10.0;
  moved.tfar += band * 10.0;
  return find_entry({box.min - margin, box.max + margin}, moved).has_value();
}

/// Rays of every kind around the scene: at boxes from outside, from inside, along the axes, through corners, in planes.
inline std::vector<BoxRay> make_box_rays(const BoxScene& scene, uint count, uint seed) {
  RandomValues random(seed);
  std::vector<BoxRay> rays;
  for (uint k = 0; k < count; ++k) {
    const GMathBbox3<double> box(scene.boxes[random.get_index(static_cast<uint>(scene.boxes.size()))]);
    BoxRay ray{random.get_vec(4.0), {}};
    ray.direction = box.get_center() - ray.origin;
    if (k % 5 == 1) ray = {box.get_center(), random.get_vec()};
    if (k % 5 == 2) ray.direction = box.get_corner(random.get_index(8)) - ray.origin;
    if (k % 5 >= 3) {  // along an axis, half of them in a face of the box; one of the two zeros is negative
      const uint axis = random.get_index(3);
      ray.origin = k % 5 == 3 ? box.get_center() : box.get_corner(random.get_index(8));
      ray.direction = {0.0, 0.0, 0.0};
      ray.direction[(axis + 1) % 3] = -0.0;
      ray.direction[axis] = random.get() < 0.0 ? -1.5 : 1.5;
      ray.origin[axis] -= ray.direction[axis] * random.get(-1.0, 3.0);
    }
    if (random.get_index(3) == 0) ray.tnear = random.get(-1.0, 1.0);
    if (random.get_index(3) == 0) ray.tfar = random.get(-0.5, 2.0);
    rays.push_back(ray);
  }
  return rays;
}

/// One call of a leaf function.
struct LeafVisit {
  uint first_ray, last_ray;
  std::vector<uint> items;
};

class BoxQuery {
 public:
  /// What a leaf does besides being written down.
  using Action = std::function<void(GeometryRaytraceCtx&, const LeafVisit&)>;
  /// Changes the query before it starts.
  using Adjust = std::function<void(GeometryRaytraceCtx&)>;

  explicit BoxQuery(const std::vector<BoxRay>& rays) {
    packet.resize(static_cast<uint>(rays.size()));
    for (uint k = 0; k < packet.get_count(); ++k)
      packet.set_ray(k, rays[k].origin, rays[k].direction, rays[k].tnear, rays[k].tfar);
  }

  template <BvhHits hits>
  GeometryRaytraceCtx& run(const GasBvh<4>& tree, const GasBvhMotion<4>* motion = nullptr, const Adjust& adjust = {}) {
    constexpr bool is_nearest = hits == BvhHits::nearest;
    GeometryRaytraceCtx& query =
        is_nearest ? packet.begin_nearest(world.shading) : packet.begin_all_hits(world.shading);
    query.object_distance = -DBL_MAX;  // intervals may begin behind the origin
    if (adjust) adjust(query);
    visits.clear();
    const BvhLeafFunctions leaf{is_nearest ? nullptr : record, is_nearest ? record : nullptr, this, nullptr, nullptr};
    bvh_ray_hit<hits>({tree, motion, leaf}, world.ctx, world.shader, query);
    return query;
  }

  /// Items visited for `ray`, in the order of the visits.
  std::vector<uint> get_items(uint ray) const {
    std::vector<uint> items;
    for (const LeafVisit& visit : visits)
      if (visit.first_ray <= ray && ray <= visit.last_ray)
        items.insert(items.end(), visit.items.begin(), visit.items.end());
    return items;
  }
  std::vector<uint> get_sorted_items(uint ray) const {
    std::vector<uint> items = get_items(ray);
    std::sort(items.begin(), items.end());
    return items;
  }

  /// Sorted items visited for each ray by one query per lane of the root, taken as a cluster.
  std::vector<std::vector<uint>> unite_root_lanes(const GasBvh<4>& tree, const GasBvhMotion<4>* motion,
                                                  const Adjust& adjust) {
    std::vector<std::vector<uint>> united(packet.get_count());
    for (uint lane = 0; lane < tree.root.get_count(); ++lane) {
      run<BvhHits::all>(tree, motion, [&](GeometryRaytraceCtx& query) {
        if (adjust) adjust(query);
        query.cluster = make_cluster(0, lane);
      });
      for (uint ray = 0; ray < united.size(); ++ray)
        for (const uint item : get_items(ray)) united[ray].push_back(item);
    }
    for (std::vector<uint>& items : united) std::sort(items.begin(), items.end());
    return united;
  }

  QueryWorld world;
  GeometryRayPacket packet;
  std::vector<LeafVisit> visits;
  Action on_leaf;

 private:
  static void record(const CtxEval&, CtxShader&, GeometryRaytraceCtx& query, const CoreBasicArray<uint>& leaf,
                     void* user) {
    auto& self = *static_cast<BoxQuery*>(user);
    self.visits.push_back({query.first_ray, query.last_ray, {leaf.begin(), leaf.end()}});
    if (self.on_leaf) self.on_leaf(query, self.visits.back());
  }
};
