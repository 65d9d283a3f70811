// tests/host/displaced_mesh_scenes.h
//
// Small closed meshes, height functions and displaced meshes for the tests of DisplacedMesh.
#pragma once
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "vq_geometry/displaced_mesh.h"

/// A prism over a star of `count` corners, concave for even numbers above 4; all faces have the whole image.
inline PolyMeshData make_prism(uint count) {
  PolyMeshData data;
  for (uint k = 0; k < 2 * count; ++k) {
    const double angle = 6.283185307179586 * (k % count) / count, radius = count > 4 && k % count % 2 == 0 ? 0.6 : 1.0;
    data.positions.push_back(
        GMathVec3<float>(GMathVec3<double>(radius * std::cos(angle), radius * std::sin(angle), k < count ? -1 : 1)));
  }
  data.polygon_sizes = {count, count};
  for (uint k = 0; k < count; ++k) data.polygon_vertices.push_back(count - 1 - k);
  for (uint k = 0; k < count; ++k) data.polygon_vertices.push_back(count + k);
  for (uint k = 0; k < count; ++k) {
    data.polygon_sizes.push_back(4);
    for (const uint vertex : {k, (k + 1) % count, count + (k + 1) % count, count + k})
      data.polygon_vertices.push_back(vertex);
  }
  GeometryUvMap map;
  for (uint corner = 0; corner < data.polygon_vertices.size(); ++corner) {
    map.corner_positions.push_back(corner);
    map.positions.push_back({static_cast<float>(0.3 * corner), static_cast<float>(corner % 3 == 0), 0});
  }
  data.uv_maps.push_back(map);
  return data;
}

/// Eight triangles.
inline PolyMeshData make_octahedron() {
  PolyMeshData data;
  data.positions = {{1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
  data.polygon_sizes.assign(8, 3);
  data.polygon_vertices = {0, 1, 4, 1, 2, 4, 2, 3, 4, 3, 0, 4, 1, 0, 5, 2, 1, 5, 3, 2, 5, 0, 3, 5};
  return data;
}

/// Three motion samples: turns about z, at first without growing.
inline void add_motion(PolyMeshData& data) {
  data.motion_step = 0.5;
  for (uint sample = 0; sample < 3; ++sample) {
    const double turn = 0.4 * (sample + 1), size = 1.0 + 0.1 * sample * sample;
    data.motion_positions.emplace_back();
    for (const GMathVec3<float>& p : data.positions)
      data.motion_positions[sample].push_back(
          GMathVec3<float>(GMathVec3<double>(p.x * std::cos(turn) - p.y * std::sin(turn),
                                             p.x * std::sin(turn) + p.y * std::cos(turn), p.z) *
                           size));
  }
}

inline std::shared_ptr<const GeometryHeight> make_noise(double amplitude = 0.12) {
  GeometryNoiseSettings settings;
  settings.seed = 5;
  settings.frequency = 3.0;
  settings.amplitude = amplitude;
  return std::make_shared<GeometryNoiseHeight>(settings);
}

inline std::shared_ptr<const GeometryHeight> make_image() {
  RandomValues random(9);
  std::vector<float> pixels(6 * 5);
  for (float& pixel : pixels) pixel = static_cast<float>(random.get(-0.2, 0.2));
  return std::make_shared<GeometryImageHeight>(6, 5, std::move(pixels));
}

inline void displace(DisplacedMesh& mesh, const PolyMesh& base, std::shared_ptr<const GeometryHeight> height, uint rate,
                     u64 cache_bytes = u64{64} << 20) {
  DisplacedMeshSettings settings;
  settings.height = std::move(height);
  settings.bound = 0.1;
  settings.rate = rate;
  settings.cache_bytes = cache_bytes;
  CoreString error;
  ASSERT_TRUE(mesh.create(base, settings, error)) << error.get_data();
}

constexpr double nan_time = std::numeric_limits<double>::quiet_NaN();  ///< at rest

/// Calls function(primitive, part number, the micro-triangle's cells i and j) for all micro-triangles, in order.
template <class Function>
inline void for_each_micro_triangle(const DisplacedMesh& mesh, const PolyMesh& base, uint rate,
                                    const Function& function) {
  for (uint primitive = 0; primitive < mesh.get_primitive_count(); ++primitive)
    for (uint part = 0, number = 0; part < base.get_part_count(primitive); ++part)
      for (uint i = 0; i < rate; ++i)
        for (uint j = 0; i + j < rate; ++j) {
          const uint lower[3][2] = {{i, j}, {i + 1, j}, {i, j + 1}};
          function(primitive, part, number++, lower);
          const uint upper[3][2] = {{i + 1, j + 1}, {i, j + 1}, {i + 1, j}};
          if (i + j + 1 < rate) function(primitive, part, number++, upper);
        }
}

/// A mesh of all micro-triangles, one polygon each, and where they come from.
struct FlatMesh {
  PolyMesh mesh;
  std::vector<std::pair<uint, uint>> sources;  // primitive, part number

  FlatMesh(const DisplacedMesh& displaced, const PolyMesh& base, uint rate) {
    PolyMeshData data;
    if (base.has_motion()) data.motion_positions.resize(base.get_motion_sampling().get_sample_count());
    data.motion_step = 0.5;
    for_each_micro_triangle(displaced, base, rate, [&](uint primitive, uint part, uint number, const uint(&at)[3][2]) {
      sources.emplace_back(primitive, number);
      data.polygon_sizes.push_back(3);
      for (uint k = 0; k < 3; ++k) {
        const auto get = [&](double time) {
          return GMathVec3<float>(displaced.get_micro_vertex(primitive, part, at[k][0], at[k][1], time));
        };
        data.polygon_vertices.push_back(static_cast<u32>(data.positions.size()));
        data.positions.push_back(get(std::nan("")));
        for (uint sample = 0; sample < data.motion_positions.size(); ++sample)
          data.motion_positions[sample].push_back(get(0.5 * sample));
      }
    });
    create(mesh, std::move(data));
  }
  GMathVec3<double> get(u32 vertex) const { return GMathVec3<double>(mesh.get_position(vertex)); }
};
