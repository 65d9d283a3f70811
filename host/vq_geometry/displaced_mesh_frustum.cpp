// Frustum test of a displaced polygon: boxes of tiles, then of the tile's pyramid, then micro-triangles.
#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/geometry_frustum_clip.h"

/// The test of one tile at rest.
class DisplacedMesh::FrustumTest {
 public:
  FrustumTest(const GeometryFrustumCtx& query, const DisplacedMeshTile& tile)
      : query_(query), tile_(tile), shape_(tile.get_shape()), vertices_(tile.get_vertices(0)) {}

  bool touches() const { return touches_node(shape_.top_level, 0, 0); }
  bool lies_inside() const {
    for (uint k = 0; k < shape_.vertex_count; ++k)
      if (!query_.contains(GMathVec3<double>(vertices_[k]))) return false;
    return true;
  }

 private:
  bool touches_node(uint level, uint i, uint j) const {
    if (level == 0) return touches_block(i, j);
    const DisplacedMeshNode& node = tile_.get_node(shape_.get_node(level, i, j), 0);
    for (uint lane = 0; lane < 4; ++lane) {
      const uint row = 2 * i + (lane >> 1), column = 2 * j + (lane & 1);
      if (shape_.has_block(level - 1, row, column) &&
          query_.classify(node.get_box(lane)) != GeometryBoxPlace::outside && touches_node(level - 1, row, column))
        return true;
    }
    return false;
  }
  bool touches_block(uint block_i, uint block_j) const {
    constexpr uint cells = DisplacedMeshTileShape::block_cells;
    for (uint i = block_i * cells; i < block_i * cells + cells; ++i)
      for (uint j = block_j * cells; j < block_j * cells + cells; ++j) {
        if (!shape_.has_cell(i, j)) continue;
        const GMathVec3<double> b = get_vertex(i + 1, j), c = get_vertex(i, j + 1);
        if (geometry_touches_frustum(query_, get_vertex(i, j), b, c)) return true;
        if (shape_.has_upper(i, j) && geometry_touches_frustum(query_, get_vertex(i + 1, j + 1), c, b)) return true;
      }
    return false;
  }
  GMathVec3<double> get_vertex(uint i, uint j) const { return GMathVec3<double>(vertices_[shape_.get_vertex(i, j)]); }

  const GeometryFrustumCtx& query_;
  const DisplacedMeshTile& tile_;
  const DisplacedMeshTileShape& shape_;
  const GMathVec3<float>* vertices_;
};

bool DisplacedMesh::touches_frustum(const GeometryFrustumCtx& query, uint primitive) const {
  return !for_each_tile(primitive, [&](const TilePlace& place) {
    const GeometryBoxPlace box_place = query.classify(get_tile_box(place, Moment(), 0));
    if (box_place == GeometryBoxPlace::outside) return true;
    const bool touches =
        box_place == GeometryBoxPlace::inside || FrustumTest(query, *get_tile(place, Moment())).touches();
    return !touches;
  });
}

bool DisplacedMesh::lies_in_frustum(const GeometryFrustumCtx& query, uint primitive) const {
  return for_each_tile(primitive, [&](const TilePlace& place) {
    const GeometryBoxPlace box_place = query.classify(get_tile_box(place, Moment(), 0));
    if (box_place == GeometryBoxPlace::straddling) return FrustumTest(query, *get_tile(place, Moment())).lies_inside();
    return box_place == GeometryBoxPlace::inside;
  });
}

void DisplacedMesh::frustum_hit_primitive(const CtxEval& /*ctx*/, CtxShader& /*shader*/, GeometryFrustumCtx& query,
                                          const uint& primitive) const {
  if (!is_polygon_valid(primitive)) return;
  query.add_primitive([&] { return touches_frustum(query, primitive); },
                      [&] { return lies_in_frustum(query, primitive); });
}
