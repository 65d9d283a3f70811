// tests/support/mesh_scenes.h
//
// Meshes made by formula or by seed, pleasant and nasty ones.
#pragma once
#include <array>
#include <limits>
#include <string>
#include <vector>

#include "support/random_values.h"
#include "vq_geometry/poly_mesh.h"

struct MeshScene {
  std::string name;
  PolyMeshData data;
};

inline void add_polygon(PolyMeshData& data, const std::vector<u32>& vertices) {
  data.polygon_sizes.push_back(static_cast<u32>(vertices.size()));
  data.polygon_vertices.insert(data.polygon_vertices.end(), vertices.begin(), vertices.end());
}

/// A polygon with vertices of its own.
inline void add_loose_polygon(PolyMeshData& data, const std::vector<GMathVec3<float>>& positions) {
  std::vector<u32> vertices;
  for (const GMathVec3<float>& position : positions) {
    vertices.push_back(static_cast<u32>(data.positions.size()));
    data.positions.push_back(position);
  }
  add_polygon(data, vertices);
}

/// Triangles of about `size` anywhere in the cube of half width 1.
inline PolyMeshData make_soup(uint count, uint seed, double size = 0.3) {
  RandomValues random(seed);
  PolyMeshData data;
  for (uint k = 0; k < count; ++k) {
    const GMathVec3<float> a = random.get_vec<float>();
    add_loose_polygon(data, {a, a + random.get_vec<float>(size), a + random.get_vec<float>(size)});
  }
  return data;
}

/// size x size quads over the square from -1 to 1, two triangles each, with random heights up to `height`. With height
/// 0 all boxes are flat.
inline PolyMeshData make_terrain(uint size, uint seed, double height = 0.2) {
  RandomValues random(seed);
  PolyMeshData data;
  for (uint y = 0; y <= size; ++y) {
    for (uint x = 0; x <= size; ++x)
      data.positions.emplace_back(static_cast<float>(2.0 * x / size - 1.0), static_cast<float>(2.0 * y / size - 1.0),
                                  static_cast<float>(height == 0.0 ? 0.0 : random.get(0.0, height)));
  }
  for (uint y = 0; y < size; ++y) {
    for (uint x = 0; x < size; ++x) {
      const u32 a = y * (size + 1) + x, c = a + size + 1;
      add_polygon(data, {a, a + 1, c + 1});
      add_polygon(data, {a, c + 1, c});
    }
  }
  return data;
}

/// The triangles of a quadrilateral.
inline void add_loose_quad(PolyMeshData& data, const GMathVec3<float>& a, const GMathVec3<float>& b,
                           const GMathVec3<float>& c, const GMathVec3<float>& d) {
  add_loose_polygon(data, {a, b, c});
  add_loose_polygon(data, {a, c, d});
}

/// A unit sphere: an octahedron whose triangles are cut in four `level` times. Closed.
inline PolyMeshData make_sphere(uint level) {
  using Vec = GMathVec3<double>;
  std::vector<std::array<Vec, 3>> faces;
  for (uint octant = 0; octant < 8; ++octant) {
    const double x = octant & 1 ? -1 : 1, y = octant & 2 ? -1 : 1, z = octant & 4 ? -1 : 1;
    faces.push_back({Vec(x, 0, 0), Vec(0, y, 0), Vec(0, 0, z)});
    if (x * y * z < 0) std::swap(faces.back()[1], faces.back()[2]);
  }
  for (uint step = 0; step < level; ++step) {
    std::vector<std::array<Vec, 3>> finer;
    for (const auto& [a, b, c] : faces) {
      const Vec ab = (a + b).get_normalized(), bc = (b + c).get_normalized(), ca = (c + a).get_normalized();
      finer.insert(finer.end(), {{a, ab, ca}, {b, bc, ab}, {c, ca, bc}, {ab, bc, ca}});
    }
    faces = finer;
  }
  PolyMeshData data;
  for (const auto& [a, b, c] : faces)
    add_loose_polygon(data, {GMathVec3<float>(a), GMathVec3<float>(b), GMathVec3<float>(c)});
  return data;
}

/// Radii 1 and 0.4. Closed.
inline PolyMeshData make_torus(uint rings, uint sides) {
  PolyMeshData data;
  const auto get = [&](uint ring, uint side) {
    const double turn = 6.283185307179586, u = turn * (ring % rings) / rings, v = turn * (side % sides) / sides;
    const double r = 1.0 + 0.4 * std::cos(v);
    return GMathVec3<float>(GMathVec3<double>(r * std::cos(u), r * std::sin(u), 0.4 * std::sin(v)));
  };
  for (uint ring = 0; ring < rings; ++ring)
    for (uint side = 0; side < sides; ++side)
      add_loose_quad(data, get(ring, side), get(ring + 1, side), get(ring + 1, side + 1), get(ring, side + 1));
  return data;
}

/// The surface of a cube, size x size quads a side, two triangles each: every box is flat. Closed.
inline PolyMeshData make_cube_grid(uint size) {
  PolyMeshData data;
  for (uint face = 0; face < 6; ++face) {
    const auto get = [&](uint u, uint v) {
      const double uv[2] = {2.0 * u / size - 1.0, 2.0 * v / size - 1.0};
      GMathVec3<double> p;
      p[face / 2] = face % 2 == 0 ? -1.0 : 1.0;
      p[(face / 2 + 1) % 3] = uv[1 - face % 2];
      p[(face / 2 + 2) % 3] = uv[face % 2];
      return GMathVec3<float>(p);
    };
    for (uint v = 0; v < size; ++v)
      for (uint u = 0; u < size; ++u) add_loose_quad(data, get(u, v), get(u + 1, v), get(u + 1, v + 1), get(u, v + 1));
  }
  return data;
}

/// Flat stars of 3 to 13 corners in random places and planes, most of them concave.
inline PolyMeshData make_stars(uint count, uint seed) {
  RandomValues random(seed);
  PolyMeshData data;
  for (uint k = 0; k < count; ++k) {
    const uint corners = 3 + random.get_index(11);
    const GMathVec3<double> centre = random.get_vec(), n = random.get_vec().get_normalized();
    const GMathVec3<double> u =
        n.cross(std::fabs(n.x) < 0.7 ? GMathVec3<double>(1, 0, 0) : GMathVec3<double>(0, 1, 0)).get_normalized();
    const GMathVec3<double> v = n.cross(u);
    std::vector<GMathVec3<float>> positions;
    for (uint c = 0; c < corners; ++c) {
      const double angle = 6.283185307179586 * c / corners, radius = random.get(0.05, 0.4);
      positions.emplace_back(centre + u * (radius * std::cos(angle)) + v * (radius * std::sin(angle)));
    }
    add_loose_polygon(data, positions);
  }
  return data;
}

/// Needles and blades: 1 to 10^6 times as long as wide.
inline PolyMeshData make_slivers(uint count, uint seed) {
  RandomValues random(seed);
  PolyMeshData data;
  for (uint k = 0; k < count; ++k) {
    const GMathVec3<float> a = random.get_vec<float>();
    const double width = std::pow(10.0, random.get(-6, 0));
    add_loose_polygon(data, {a, a + random.get_vec<float>(), a + random.get_vec<float>(width)});
  }
  return data;
}

/// Every triangle of a soup `copies` times.
inline PolyMeshData make_coincident(uint count, uint copies, uint seed) {
  const PolyMeshData once = make_soup(count, seed);
  PolyMeshData data = once;
  for (uint k = 1; k < copies; ++k) {
    for (uint p = 0; p < count; ++p) add_polygon(data, {3 * p, 3 * p + 1, 3 * p + 2});
  }
  return data;
}

/// A soup in which three polygons of four are no proper ones: points, lines, a NaN or infinite corner, two corners.
inline PolyMeshData make_broken(uint count, uint seed) {
  RandomValues random(seed);
  PolyMeshData data;
  const float bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity()};
  for (uint k = 0; k < count; ++k) {
    const GMathVec3<float> a = random.get_vec<float>();
    std::vector<GMathVec3<float>> corners = {a, a + random.get_vec<float>(0.4), a + random.get_vec<float>(0.4)};
    if (k % 8 == 1) corners[1] = corners[2] = a;
    if (k % 8 == 2) corners[2] = a + (corners[1] - a) * 0.5f;
    if (k % 8 == 3) corners[2][random.get_index(3)] = bad[random.get_index(3)];
    if (k % 8 == 5) corners.pop_back();
    if (k % 8 == 6) corners[1] = a;
    if (k % 8 == 7) corners.clear();
    add_loose_polygon(data, corners);
  }
  return data;
}

/// Every position times `scale`, then moved by `offset`.
inline PolyMeshData transformed(PolyMeshData data, float scale, const GMathVec3<float>& offset = {}) {
  const auto apply = [&](std::vector<GMathVec3<float>>& positions) {
    for (GMathVec3<float>& position : positions) position = position * scale + offset;
  };
  apply(data.positions);
  for (auto& sample : data.motion_positions) apply(sample);
  return data;
}

/// Gives the mesh `samples` motion samples from `begin` in steps of `step`. Every vertex wanders by itself, or with
/// `rigid` all alike, so that flat polygons stay flat.
inline void add_motion(PolyMeshData& data, uint samples, double begin, double step, uint seed, bool rigid = false) {
  RandomValues random(seed);
  data.motion_begin = begin;
  data.motion_step = step;
  for (uint sample = 0; sample < samples; ++sample) {
    std::vector<GMathVec3<float>> moved = data.positions;
    const GMathVec3<float> way = random.get_vec<float>(0.6);
    for (GMathVec3<float>& position : moved) position = position + (rigid ? way : random.get_vec<float>(0.15));
    data.motion_positions.push_back(moved);
  }
}

/// One of everything, about `count` polygons each. Of every second one structures keep records, as of large meshes.
inline std::vector<MeshScene> make_mesh_scenes(uint count, uint seed) {
  const uint side = static_cast<uint>(std::sqrt(count / 2.0)) + 1;
  std::vector<MeshScene> scenes = {{"soup", make_soup(count, seed)},
                                   {"one", make_soup(1, seed, 1.0)},
                                   {"five", make_soup(5, seed, 1.0)},
                                   {"terrain", make_terrain(side, seed)},
                                   {"flat terrain", make_terrain(side, seed, 0.0)},
                                   {"sphere", make_sphere(3)},
                                   {"cube", make_cube_grid(5)},
                                   {"stars", make_stars(count, seed)},
                                   {"slivers", make_slivers(count, seed)},
                                   {"coincident", make_coincident(count / 4, 4, seed)},
                                   {"broken", make_broken(count, seed)},
                                   {"tiny", transformed(make_soup(count, seed), 1e-30f)},
                                   {"huge", transformed(make_soup(count, seed), 1e30f)},
                                   {"far away", transformed(make_soup(count, seed), 1e4f, {1e6f, -2e6f, 5e5f})}};
  for (std::size_t k = seed % 2; k < scenes.size(); k += 2) scenes[k].data.least_recorded_triangles = 0;
  return scenes;
}
