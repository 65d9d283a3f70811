// tests/support/built_mesh.h
//
// A mesh with the structures over it, and what all were made of.
#pragma once
#include <gtest/gtest.h>

#include "gas/gas_geometry.h"
#include "gas/gas_geometry_bvh4.h"
#include "support/query_world.h"
#include "vq_core/core_log.h"
#include "vq_geometry/poly_mesh.h"

struct BuiltMesh {
  BuiltMesh(const QueryWorld& world, PolyMeshData source) : data(std::move(source)) {
    CoreLogHandler::get_main().set_level(0);  // broken meshes are meant to be broken
    CoreString error;
    EXPECT_TRUE(mesh.create(PolyMeshData(data), error)) << error.get_data();
    EXPECT_TRUE(structure.create(world.ctx, &mesh, &mesh, nullptr));
  }
  BuiltMesh(const BuiltMesh&) = delete;
  BuiltMesh& operator=(const BuiltMesh&) = delete;

  PolyMeshData data;
  PolyMesh mesh;
  GasGeometryBvh4 structure;
};

/// One mesh in both structures.
struct BothMesh : BuiltMesh {
  BothMesh(const QueryWorld& world, PolyMeshData source) : BuiltMesh(world, std::move(source)) {
    EXPECT_TRUE(grid.create(world.ctx, &mesh, &mesh, nullptr));
  }
  GasGeometry grid;
};
