#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "tools/vqgas/scene/uv_layout.h"
#include "tools/vqgas/support/interrupt.h"

namespace {

/// The range of u that a triangle covers between two values of v; empty (low > high) if it does not reach there.
struct Range {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  void add(double u) { low = std::min(low, u), high = std::max(high, u); }
};

Range find_range(const UvTriangle& triangle, double bottom, double top) {
  Range range;
  for (uint k = 0; k < 3; ++k) {
    const UvPoint &a = triangle[k], &b = triangle[(k + 1) % 3];
    if (bottom <= a.y && a.y <= top) range.add(a.x);
    for (const double v : {bottom, top})
      if ((a.y < v) != (b.y < v)) range.add(a.x + (b.x - a.x) * ((v - a.y) / (b.y - a.y)));
  }
  return range;
}

/// The first and last tile along an axis whose inside a range enters by more than uv_touching.
int get_first_tile(double low) { return static_cast<int>(std::floor(low + uv_touching)); }
int get_last_tile(double high) { return static_cast<int>(std::ceil(high - uv_touching)) - 1; }

/// Each row of tiles cuts a convex piece from the triangle, which enters all tiles from its first to its last u.
void add_tiles(const UvTriangle& triangle, std::set<UvTile>& tiles, std::size_t most) {
  const auto [low, high] = std::minmax({triangle[0].y, triangle[1].y, triangle[2].y});
  for (int v = get_first_tile(low); v <= get_last_tile(high) && tiles.size() <= most; ++v) {
    const Range range = find_range(triangle, v + uv_touching, v + 1.0 - uv_touching);
    if (!(range.low <= range.high)) continue;
    for (int u = get_first_tile(range.low); u <= get_last_tile(range.high) && tiles.size() <= most; ++u)
      tiles.insert({v, u});
  }
}

}  // namespace

std::string get_tile_name(const UvTile& tile) {
  constexpr int first = 1001, columns = 10;
  if (tile.u >= 0 && tile.u < columns && tile.v >= 0) return std::to_string(first + tile.u + columns * tile.v);
  return std::string("u").append(std::to_string(tile.u)).append("_v").append(std::to_string(tile.v));
}

std::vector<UvTile> find_uv_tiles(std::span<const UvLayout> layouts, std::size_t most) {
  std::set<UvTile> tiles;
  for (const UvLayout& layout : layouts) {
    const PolyMesh& mesh = *layout.mesh;
    for (uint polygon = 0; polygon < mesh.get_polygon_count() && tiles.size() <= most; ++polygon) {
      if (polygon % 16384 == 0) throw_if_interrupted();
      for (uint part = 0; part < mesh.get_part_count(polygon); ++part) {
        const UvTriangle triangle = get_uv_triangle(layout, polygon, part);
        if (get_doubled_area(triangle) != 0.0) add_tiles(triangle, tiles, most);
      }
    }
  }
  return {tiles.begin(), tiles.end()};
}
