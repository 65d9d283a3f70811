// tests/support/uv_oracle.h
//
// UV layouts by plain loops: which edges a mesh has, and between which two values the coverage of a point must lie.
#pragma once
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <set>
#include <vector>

#include "vq_geometry/poly_mesh.h"

using UvEdge = std::pair<uint, uint>;

/// The edges between UV positions of a mesh, by first vertex, the last one found first. Without an indexed map the
/// corners of triangles and quadrilaterals are numbered.
inline std::vector<UvEdge> list_uv_edges(const PolyMeshData& data, const std::set<uint>& hidden_groups = {}) {
  std::vector<UvEdge> edges;
  std::set<UvEdge> seen;
  uint corner = 0, own = 0;
  for (uint p = 0; p < data.polygon_sizes.size(); corner += data.polygon_sizes[p++]) {
    const uint size = data.polygon_sizes[p];
    if (size < 3 || (data.uv_maps.empty() && size > 4)) continue;
    const auto get = [&](uint k) {
      return data.uv_maps.empty() ? own + k % size : data.uv_maps[0].corner_positions[corner + k % size];
    };
    const bool hidden = hidden_groups.contains(data.polygon_groups.empty() ? 0 : data.polygon_groups[p]);
    for (uint k = 0; k < size && !hidden; ++k) {
      if (!data.edge_visible.empty() && data.edge_visible[corner + k] == 0) continue;
      if (seen.contains({get(k + 1), get(k)})) continue;
      seen.insert({get(k), get(k + 1)});
      edges.emplace_back(get(k), get(k + 1));
    }
    own += size;
  }
  std::reverse(edges.begin(), edges.end());
  std::stable_sort(edges.begin(), edges.end(), [](const UvEdge& a, const UvEdge& b) { return a.first < b.first; });
  return edges;
}

struct UvSegment {
  GMathVec3<double> a, b;
};

/// Where a coverage in single precision must lie.
struct UvRange {
  double low = 1.0, high = 1.0;
  uint edge_count = 0;  ///< that multiply it, for sure or perhaps
};

/// The product over all segments, in double precision. With u = 2^-24, coordinates of at most M and a distance d,
/// single precision costs d at most, where the edge has the sides du and dv and the length l:
///
///   rounding of the point               1.42 u M     |dx|, |dy| <= u M
///   rounding of du and dv, which turns  2.83 u M     u (|du| |y - av| + |dv| |x - au|) / l, both at most 2 M
///   four products and two sums          5.66 u M     4 u M (|du| + |dv|) / l
///   difference, root, two divisions     8 u d
///
/// which is below 10 u M + 8 u d. A border of the grown box is wrong by two roundings of at most M + t and by that of
/// the point: 4 u (M + t). Within that of a border an edge may count or not.
inline UvRange get_coverage(const std::vector<UvSegment>& segments, double x, double y, double t) {
  constexpr double u = 0x1p-24;
  UvRange out;
  for (const UvSegment& s : segments) {
    double largest = std::max(std::fabs(x), std::fabs(y));
    bool is_indexed = true;
    for (const double v : {s.a.x, s.a.y, s.a.z, s.b.x, s.b.y, s.b.z}) {
      is_indexed = is_indexed && std::fabs(v) <= 1e9;
      largest = std::max(largest, std::fabs(v));
    }
    const double band = 4 * u * (largest + t);
    const double outside = std::max({std::min(s.a.x, s.b.x) - x, x - std::max(s.a.x, s.b.x), std::min(s.a.y, s.b.y) - y,
                                     y - std::max(s.a.y, s.b.y)});
    if (!is_indexed || outside > t + band) continue;
    const GMathVec3<double> side(s.b.x - s.a.x, s.b.y - s.a.y, 0);
    const double d = side.x == 0.0 ? std::fabs(x - s.a.x)
                                   : std::fabs((y - s.a.y) * side.x - (x - s.a.x) * side.y) / side.get_length();
    const double error = 10 * u * largest + 8 * u * d;
    out.low *= std::clamp((d - error) / t, 0.0, 1.0);
    out.high *= outside > t - band ? 1.0 : std::clamp((d + error) / t, 0.0, 1.0);
    ++out.edge_count;
  }
  out.low = std::max(0.0, out.low * (1 - out.edge_count * u) - FLT_MIN);  // smaller products lose digits
  out.high = out.high * (1 + out.edge_count * u) + FLT_MIN;
  return out;
}
