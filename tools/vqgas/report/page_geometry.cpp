#include "tools/vqgas/report/page_geometry.h"

#include <algorithm>

#include "tools/vqgas/support/interrupt.h"
#include "vq_geometry/displaced_mesh.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_module/module_bundle.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

namespace {

using Matrix = GMathMatrix4x4<double>;

constexpr uint pieces_of_cubic = 2;
constexpr u64 triangle_bytes = 44, strand_bytes = 40, point_bytes = 24;

u64 get_piece_bytes(const PagePieces& pieces) {
  return sizeof(float) * pieces.values.size() + sizeof(u32) * (pieces.places.size() + pieces.primitives.size());
}

/// About the bytes that a primitive takes on the page.
u64 get_primitive_bytes(const PlacedShape& placed) {
  if (placed.shape == nullptr) return point_bytes;
  const SceneShape& shape = *placed.shape;
  if (shape.hair != nullptr)
    return strand_bytes * (shape.hair->get_curves().get_shape() == CurveShape::cubic ? pieces_of_cubic : 1);
  const auto* mesh = dynamic_cast<const PolyMesh*>(shape.geometry.get());
  const uint polygons = mesh != nullptr ? mesh->get_polygon_count() : 0;
  if (polygons == 0) return 2 * triangle_bytes;
  return triangle_bytes * mesh->get_first_part(polygons) / polygons + 1;
}

/// Appends primitives of shapes and clouds, transformed.
class PieceWriter {
 public:
  explicit PieceWriter(PageGeometry& geometry) : geometry_(geometry) {}

  void add(const PlacedShape& placed, uint primitive, u32 place) {
    if (++geometry_.shown % 65536 == 0) throw_if_interrupted();
    placed_ = &placed;
    place_ = place;
    primitive_ = primitive + (placed.shape != nullptr ? placed.shape->first_primitive : 0);
    if (placed.shape == nullptr) {
      add_point(*placed.cloud, primitive);
    } else if (placed.shape->hair != nullptr) {
      const CurveSet& curves = placed.shape->hair->get_curves();
      if (curves.get_shape() == CurveShape::cubic) add_segment<CurveShape::cubic>(curves, primitive, pieces_of_cubic);
      if (curves.get_shape() == CurveShape::linear) add_segment<CurveShape::linear>(curves, primitive, 1);
    } else if (placed.shape->displaced != nullptr) {
      add_displaced(*placed.shape->displaced, primitive);
    } else {
      add_polygon(static_cast<const PolyMesh&>(*placed.shape->geometry), primitive);
    }
  }

 private:
  void add_polygon(const PolyMesh& mesh, uint polygon) {
    for (uint part = 0; part < mesh.get_part_count(polygon); ++part) {
      const u32* corners = mesh.get_part_vertices(polygon, part);
      for (uint k = 0; k < 3; ++k) add_position(GMathVec3<double>(mesh.get_position(corners[k])), geometry_.triangles);
      end_piece(geometry_.triangles);
    }
  }

  /// Its patches as flat triangles between their displaced corners.
  void add_displaced(const DisplacedMesh& mesh, uint polygon) {
    const uint rate = mesh.get_rate();
    for (uint part = 0; part + 2 < mesh.get_polygon_vertex_count(polygon); ++part) {
      for (const auto& [i, j] : {std::pair(0u, 0u), std::pair(rate, 0u), std::pair(0u, rate)})
        add_position(mesh.get_micro_vertex(polygon, part, i, j, std::numeric_limits<double>::quiet_NaN()),
                     geometry_.triangles);
      end_piece(geometry_.triangles);
    }
  }

  template <CurveShape shape>
  void add_segment(const CurveSet& curves, uint segment, uint count) {
    const CurveSegment<shape> found =
        curves.get_segment<shape>(segment, curves.get_motion_blend(std::numeric_limits<double>::quiet_NaN()));
    for (uint piece = 0; piece < count; ++piece) {
      for (const uint end : {piece, piece + 1}) add_ball(found.get_ball(double(end) / count), geometry_.strands);
      end_piece(geometry_.strands);
    }
  }

  void add_point(const SceneCloud& cloud, uint point) {
    add_ball({GMathVec3<double>(cloud.get_position(point)), cloud.particles->get_radius(point)}, geometry_.points);
    end_piece(geometry_.points);
  }

  void add_ball(const CurvePoint<double>& ball, PagePieces& pieces) {
    add_position(ball.position, pieces);
    // Under a matrix that scales unevenly no ball stays one: its mean radius.
    const Matrix& matrix = placed_->matrix;
    double scale = 0.0;
    for (uint axis = 0; axis < 3; ++axis) {
      GMathVec3<double> unit;
      unit[axis] = 1.0;
      scale += (matrix.transform_point(unit) - matrix.transform_point({})).get_length() / 3.0;
    }
    pieces.values.push_back(static_cast<float>(std::max(ball.radius, 0.0) * scale));
  }

  void add_position(const GMathVec3<double>& local, PagePieces& pieces) {
    const GMathVec3<double> position = placed_->matrix.transform_point(local);
    for (uint axis = 0; axis < 3; ++axis) pieces.values.push_back(static_cast<float>(position[axis]));
  }

  void end_piece(PagePieces& pieces) {
    pieces.places.push_back(place_);
    pieces.primitives.push_back(primitive_);
  }

  PageGeometry& geometry_;
  const PlacedShape* placed_ = nullptr;
  u32 place_ = 0, primitive_ = 0;
};

u64 get_stride(u64 bytes, u64 most_bytes) {
  return std::max<u64>(1, (bytes + most_bytes - 1) / std::max<u64>(most_bytes, 1));
}

class PlacedLister {
 public:
  explicit PlacedLister(const QueryScene& scene) : scene_(scene) {
    for (const SceneShape& shape : scene.get_shapes()) shapes_[shape.geometry.get()] = &shape;
  }

  void add(const ModuleSceneObject& object, const Matrix& around, uint owner) {
    if (!has_invertible_matrix(object)) return;  // not in the tree
    const Matrix matrix = around * object.get_global_matrix();
    if (const auto* group = dynamic_cast<const ModuleCombiner*>(&object)) {
      for (const auto& part : group->get_objects()) add(*part, matrix, owner);
    } else if (const auto* instances = dynamic_cast<const ModuleBundle*>(&object)) {
      const SceneBundle& bundle = scene_.get_objects().get_bundle(*instances);
      add_bundle(bundle, matrix, [owner](uint /*instance*/) { return owner; });
    } else if (const auto* shown = dynamic_cast<const ModuleGeometry*>(&object)) {
      const auto shape = shapes_.find(shown->get_geometry());
      if (shape != shapes_.end()) placed.push_back({shape->second, nullptr, matrix, owner});
    }
  }

  template <class GetOwner>
  void add_bundle(const SceneBundle& bundle, const Matrix& around, const GetOwner& get_owner) {
    for (uint instance = 0; instance < bundle.matrices.size(); ++instance) {
      if (!is_invertible(bundle.matrices[instance])) continue;
      placed.push_back({&scene_.get_shapes()[bundle.get_shape(instance)], nullptr, around * bundle.matrices[instance],
                        get_owner(instance)});
    }
  }

  std::vector<PlacedShape> placed;

 private:
  const QueryScene& scene_;
  std::unordered_map<const GeometryObject*, const SceneShape*> shapes_;
};

}  // namespace

u64 PageGeometry::get_bytes() const {
  return get_piece_bytes(triangles) + get_piece_bytes(strands) + get_piece_bytes(points);
}

u64 PlacedShape::get_primitive_count() const {
  return shape != nullptr ? shape->geometry->get_primitive_count() : cloud->get_count();
}

std::vector<PlacedShape> list_placed(const QueryScene& scene,
                                     const std::vector<std::shared_ptr<ModuleSceneObject>>& objects) {
  PlacedLister lister(scene);
  const bool is_whole = &objects == &scene.get_objects().objects;
  for (uint k = 0; k < objects.size(); ++k) {
    // Rays do not reach points, but a picture of the scene shows them.
    const SceneCloud* cloud = is_whole ? scene.get_cloud(k) : nullptr;
    if (cloud != nullptr) {
      lister.placed.push_back({nullptr, cloud, objects[k]->get_global_matrix(), k});
    } else {
      lister.add(*objects[k], Matrix(), k);
    }
  }
  return std::move(lister.placed);
}

std::vector<PlacedShape> list_placed(const QueryScene& scene, const SceneBundle& bundle) {
  PlacedLister lister(scene);
  lister.add_bundle(bundle, Matrix(), [](uint instance) { return instance; });
  return std::move(lister.placed);
}

u64 estimate_geometry_bytes(const std::vector<PlacedShape>& placed) {
  u64 bytes = 0;
  for (const PlacedShape& one : placed) bytes += one.get_primitive_count() * get_primitive_bytes(one);
  return bytes;
}

PageGeometry collect_geometry(const std::vector<PlacedShape>& placed, u64 most_bytes) {
  PageGeometry geometry;
  geometry.stride = get_stride(estimate_geometry_bytes(placed), most_bytes);
  PieceWriter writer(geometry);
  u64 next = 0;  // number of the next primitive shown, among those of all
  for (const PlacedShape& one : placed) {
    const u64 first = geometry.total;
    geometry.total += one.get_primitive_count();
    for (; next < geometry.total; next += geometry.stride) writer.add(one, static_cast<uint>(next - first), one.owner);
  }
  return geometry;
}

PageGeometry collect_geometry(const PlacedShape& shape, const std::vector<uint>& primitives, u64 most_bytes) {
  PageGeometry geometry;
  geometry.total = primitives.size();
  geometry.stride = get_stride(primitives.size() * get_primitive_bytes(shape), most_bytes);
  PieceWriter writer(geometry);
  for (u64 place = 0; place < primitives.size(); place += geometry.stride)
    writer.add(shape, primitives[place], static_cast<u32>(place));
  return geometry;
}
