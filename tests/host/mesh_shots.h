// tests/host/mesh_shots.h
//
// Small meshes, and rays that test the primitives of any geometry one by one, without a structure.
#pragma once
#include <gtest/gtest.h>

#include <cfloat>
#include <vector>

#include "support/query_world.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"

/// Polygons of `size` corners each, of their own.
inline PolyMeshData make_polygons(const std::vector<GMathVec3<float>>& positions, u32 size) {
  PolyMeshData data;
  data.positions = positions;
  data.polygon_sizes.assign(positions.size() / size, size);
  for (u32 k = 0; k < positions.size(); ++k) data.polygon_vertices.push_back(k);
  return data;
}

inline void create(PolyMesh& mesh, PolyMeshData data) {
  CoreString error;
  ASSERT_TRUE(mesh.create(std::move(data), error)) << error.get_data();
}

/// Geometries with records are tested with them.
inline void test_primitives(QueryWorld& world, const GeometryObject& mesh, GeometryRaytraceCtx& query) {
  query.geometry = &mesh;
  std::vector<u32> record(mesh.get_record_size() / sizeof(u32));
  for (uint p = 0; p < mesh.get_primitive_count(); ++p) {
    query.shading_group = mesh.get_primitive_shading_group(p);
    if (record.empty()) {
      mesh.ray_hit_primitive(world.ctx, world.shader, query, p);
    } else {
      mesh.write_record(p, record.data());
      mesh.ray_hit_record(world.ctx, world.shader, query, p, record.data());
    }
  }
}

/// The nearest hit of one ray among all primitives.
inline GeometryIntersection shoot(QueryWorld& world, const GeometryObject& mesh, const GMathVec3<double>& origin,
                                  const GMathVec3<double>& direction, double tnear = 0.0, double tfar = DBL_MAX) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction, tnear, tfar);
  test_primitives(world, mesh, packet.begin_nearest(world.shading));
  return packet.get_nearest(0);
}

/// How many hits one ray has, of which `stop_rule` bits say which end it.
inline std::size_t count_hits(QueryWorld& world, const GeometryObject& mesh, const GMathVec3<double>& origin,
                              const GMathVec3<double>& direction, uint max_hits = 0xFFFFFFFFu) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction);
  packet.set_stop_rule(max_hits);
  test_primitives(world, mesh, packet.begin_all_hits(world.shading));
  return packet.get_hits().get_hits().size();
}
