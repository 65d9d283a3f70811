// gas/structure/gas_mesh_leaf.h
//
// The primitive at one position of a mesh structure, in variants that look up only what can differ between positions.
#pragma once
#include "gas/structure/gas_leaf.h"

/// @tparam Mesh         GasGeometryBase, which has this template as its friend
/// @tparam indexed      false: the position is the primitive
/// @tparam many_owners  false: `geometry` owns all
/// @tparam one_group    true: every primitive is in group 0
template <class Mesh, bool indexed, bool many_owners, bool one_group>
struct GasMeshLeaf {
  const GeometryObject* owner;
  uint primitive;

  GasMeshLeaf(const Mesh& mesh, uint position) : owner(mesh.geometry), primitive(position) {
    if constexpr (indexed) primitive = mesh.primitives[position];
    if constexpr (many_owners) owner = mesh.get_owner(position);
  }

  void test(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
    gas_test_primitive(
        query, owner, primitive, get_group(query.shading_group_offset), [](const ShadingGroupLinks&) {},
        [&] { owner->ray_hit_primitive(ctx, shader, query, primitive); });
  }
  void test_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const void* record) const {
    gas_test_primitive(
        query, owner, primitive, get_group(query.shading_group_offset), [](const ShadingGroupLinks&) {},
        [&] { owner->ray_hit_record(ctx, shader, query, primitive, record); });
  }
  void test(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const {
    gas_test_primitive(ctx, shader, query, owner, primitive, get_group(query.shading_group_offset));
  }

 private:
  /// Number of the group in the whole scene.
  uint get_group(uint offset) const {
    return one_group ? offset : owner->get_primitive_shading_group(primitive) + offset;
  }
};
