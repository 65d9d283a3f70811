// tests/support/bundle_input.h
//
// What a bundle is created from, instance by instance.
#pragma once
#include <algorithm>
#include <vector>

#include "gas/gas_geometry_bundle.h"
#include "vq_module/module_displacement.h"

struct BundleInput {
  using Matrix = GMathMatrix4x4<double>;
  std::vector<GeometryObject*> geometries;
  std::vector<uint> indices;     ///< [instance]
  std::vector<Matrix> matrices;  ///< [instance]; the inverses are left to the bundle
  std::vector<uint> offsets;     ///< [shading key]
  CoreVector<bool> visibility;   ///< [shading key]
  std::vector<GasGeometryBundle::PreHitFunction> pre_hits;
  bool merge = false;
  // With displacement.
  std::vector<GeometryObject*> displaced;  ///< [instance]
  std::vector<ModuleDisplacement*> modules;
  CoreArray<CoreVector<uint>> lists;

  /// Adds an instance and returns the index of its geometry.
  uint add(GeometryObject* geometry, const Matrix& matrix) {
    const auto found = std::find(geometries.begin(), geometries.end(), geometry);
    indices.push_back(static_cast<uint>(found - geometries.begin()));
    if (found == geometries.end()) geometries.push_back(geometry);
    matrices.push_back(matrix);
    return indices.back();
  }

  template <class T>
  static CoreBasicArray<T> view(const std::vector<T>& items) {
    return CoreBasicArray<T>::make_view(items.data(), static_cast<uint>(items.size()));
  }
  void create(const OfApp& app, GasGeometryBundle& bundle, AppProgressBar* bar = nullptr) const {
    bundle.create(app, view(geometries), view(geometries), view(indices), view(indices), view(offsets), view(matrices),
                  {}, visibility.as_array(), view(pre_hits), merge, bar);
  }
  void create_displaced(const OfApp& app, GasGeometryBundle& bundle, AppProgressBar* bar = nullptr) const {
    bundle.create(app, view(geometries), view(geometries), view(displaced), {}, view(indices), view(indices),
                  view(offsets), view(matrices), {}, visibility.as_array(), view(pre_hits), lists, view(modules), merge,
                  bar);
  }
};
