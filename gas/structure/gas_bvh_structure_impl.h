// gas/structure/gas_bvh_structure_impl.h
//
// Definitions of gas_bvh_structure.h. Included by the source of each structure, which instantiates them.
#pragma once
#include "gas/structure/gas_bvh_structure.h"
#include "gas/structure/gas_structure_impl.h"

template <class Self, class Base, class Record>
GasBvhStructure<Self, Base, Record>::GasBvhStructure(Self* self) : GasStructure<Self, Base, Record>(self) {}

template <class Self, class Base, class Record>
GasBvhStructure<Self, Base, Record>::GasBvhStructure(const GasBvhStructure& other, Self* self)
    : GasStructure<Self, Base, Record>(other, self), tree(other.tree), leaf_functions(other.leaf_functions) {
  leaf_functions.ray_user = leaf_functions.frustum_user = self;
}

template <class Self, class Base, class Record>
GasBvhStructure<Self, Base, Record>& GasBvhStructure<Self, Base, Record>::operator=(const GasBvhStructure& other) {
  if (this == &other) return *this;
  GasStructure<Self, Base, Record>::operator=(other);
  tree = other.tree;
  leaf_functions = other.leaf_functions;
  leaf_functions.ray_user = leaf_functions.frustum_user = static_cast<Self*>(this);
  return *this;
}

template <class Self, class Base, class Record>
GasBvhStructure<Self, Base, Record>::~GasBvhStructure() = default;

template <class Self, class Base, class Record>
template <BvhHits hits>
void GasBvhStructure<Self, Base, Record>::traverse(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                                   const Record* record) const {
  const Self& self = static_cast<const Self&>(*this);
  const auto& leaf = self.get_leaf_functions(record, query);
  bvh_ray_hit<hits>({tree, record != nullptr ? &record->refit : nullptr, leaf, self.get_leaf_records()}, ctx, shader,
                    query);
}
