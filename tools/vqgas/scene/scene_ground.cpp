#include "tools/vqgas/scene/scene_ground.h"

#include <algorithm>
#include <cmath>

#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_geometry/geometry_ray_packet.h"

namespace {

using Root = GroomSurface::Root;

constexpr uint points_per_packet = 128;

/// Two rays a point: outwards, then inwards.
void set_rays(GeometryRayPacket& packet, const Root* points, uint count) {
  packet.resize(2 * count);
  for (uint k = 0; k < count; ++k) {
    packet.set_ray(2 * k, points[k].position, points[k].normal);
    packet.set_ray(2 * k + 1, points[k].position, points[k].normal * -1.0);
  }
}

void move_point(const QueryScene& ground, const SceneHit& hit, Root& point) {
  const GeometrySurfacePoint surface = ground.get_surface_point(hit, ground.get_shape_time(0.0));
  point.position = surface.position;
  point.normal = surface.normal.dot(point.normal) < 0.0 ? surface.normal * -1.0 : surface.normal;
}

}  // namespace

void move_to_displaced(const QueryScene& ground, std::vector<Root>& points) {
  CtxShader shader;
  ground.prepare(shader);
  GeometryRayPacket packet;
  for (std::size_t first = 0; first < points.size(); first += points_per_packet) {
    throw_if_interrupted();
    const auto count = static_cast<uint>(std::min<std::size_t>(points_per_packet, points.size() - first));
    set_rays(packet, &points[first], count);
    ground.find_nearest(shader, packet);
    for (uint k = 0; k < count; ++k) {
      const bool is_outside = packet.get_nearest(2 * k).distance <= packet.get_nearest(2 * k + 1).distance;
      if (const auto hit = ground.get_nearest(packet, is_outside ? 2 * k : 2 * k + 1))
        move_point(ground, *hit, points[first + k]);
    }
  }
}
