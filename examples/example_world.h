// examples/example_world.h
//
// Shared by the examples after 01_nearest_hit.cpp, which writes it out in full: an application, contexts, one opaque
// material for shading group 0, and a function that adds a box to a mesh.
#pragma once
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "gas/gas_geometry_bvh4.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object_factory.h"

struct ExampleWorld {
  OfApp app;
  OfObjectFactory factory{app};
  CtxEval ctx{factory};
  CtxShader shader;
  Material material;
  ShadingGroupLinks links{&material, nullptr, nullptr};
  const ShadingGroupLinks* entries[1] = {&links};
  ShadingGroupTable shading{entries};
};

/// Each example is also a test: it ends with status 1 if a result is not as stated.
inline void expect(bool is_true, const char* what) {
  if (is_true) return;
  std::printf("failed: %s\n", what);
  std::exit(1);
}

/// Appends six squares, wound so that their normals point out of the box.
inline void add_box(PolyMeshData& mesh, const GMathVec3<float>& min, const GMathVec3<float>& max) {
  static constexpr u32 corners[6][4] = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4},
                                        {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
  const u32 first = static_cast<u32>(mesh.positions.size());
  for (uint corner = 0; corner < 8; ++corner) mesh.positions.push_back(GMathBbox3<float>(min, max).get_corner(corner));
  for (const auto& square : corners) {
    mesh.polygon_sizes.push_back(4);
    for (const u32 corner : square) mesh.polygon_vertices.push_back(first + corner);
  }
}

/// A sheet of quadrilaterals, `side` along x and y, each a unit square seen from above; get_height(x, y) is z.
template <class GetHeight>
PolyMeshData make_sheet(uint side, const GetHeight& get_height) {
  PolyMeshData data;
  for (uint y = 0; y <= side; ++y)
    for (uint x = 0; x <= side; ++x) data.positions.emplace_back(float(x), float(y), get_height(x, y));
  for (uint y = 0; y < side; ++y) {
    for (uint x = 0; x < side; ++x) {
      const u32 corner = y * (side + 1) + x;
      data.polygon_sizes.push_back(4);
      for (const u32 step : {0u, 1u, side + 2, side + 1}) data.polygon_vertices.push_back(corner + step);
    }
  }
  return data;
}

/// Creates a mesh from valid data.
inline void create_mesh(PolyMesh& mesh, PolyMeshData&& data) {
  CoreString error;
  const bool is_valid = mesh.create(std::move(data), error);
  expect(is_valid, error.get_data());
}
