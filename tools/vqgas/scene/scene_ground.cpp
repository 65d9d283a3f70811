#include "tools/vqgas/scene/scene_ground.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_geometry/poly_mesh.h"

namespace {

using Vector = GMathVec3<double>;
constexpr double at_rest = std::numeric_limits<double>::quiet_NaN();

Vector get_facet_normal(const Vector (&corners)[3]) {
  return (corners[1] - corners[0]).cross(corners[2] - corners[0]).get_normalized();
}

/// A place in a triangle: the weights of its second and third corner.
struct TrianglePlace {
  uint part = 0;
  double x = 0.0, y = 0.0;
};

}  // namespace

class DisplacedGround::Shape {
 public:
  explicit Shape(const MeshSource& source) {
    CoreString fault;
    PolyMeshData data = source.data;
    if (!base_.create(std::move(data), fault) || !displaced_.create(base_, *source.displacement, fault))
      throw InputError(source.name, fault.get_data());
  }

  /// @param point  in the space of the shape; its normal has unit length
  void move(uint polygon, GroomSurface::Root& point) const {
    const TrianglePlace place = find_place(polygon, point.position);
    Vector base[3], moved[3];
    get_corners(polygon, place.part, base);
    const Vector position = displace(polygon, place, moved);
    const Vector normal = point.normal + get_side(moved, point.normal) - get_side(base, point.normal);
    if (!std::isfinite(position.x + position.y + position.z + normal.x + normal.y + normal.z)) return;
    point = {position, normal.get_normalized(), point.polygon};
  }

 private:
  /// The triangle's normal, on the side of `normal`.
  static Vector get_side(const Vector (&corners)[3], const Vector& normal) {
    const Vector facet = get_facet_normal(corners);
    return facet.dot(normal) < 0.0 ? facet * -1.0 : facet;
  }

  void get_corners(uint polygon, uint part, Vector (&corners)[3]) const {
    const u32* vertices = base_.get_part_vertices(polygon, part);
    for (uint k = 0; k < 3; ++k) corners[k] = Vector(base_.get_position(vertices[k]));
  }

  /// The triangle of the polygon that holds the point, or is nearest to it. Searched for, because the polygons of
  /// mirrored objects are divided otherwise.
  TrianglePlace find_place(uint polygon, const Vector& position) const {
    TrianglePlace nearest;
    double most = -HUGE_VAL;
    for (uint part = 0; part < base_.get_part_count(polygon); ++part) {
      Vector corners[3];
      get_corners(polygon, part, corners);
      const Vector b = corners[1] - corners[0], c = corners[2] - corners[0], at = position - corners[0];
      const Vector normal = b.cross(c);
      const double x = at.cross(c).dot(normal) / normal.dot(normal), y = b.cross(at).dot(normal) / normal.dot(normal);
      const double least = std::min({x, y, 1.0 - x - y});
      if (least > most) {
        most = least;
        nearest = {part, std::clamp(x, 0.0, 1.0), std::clamp(y, 0.0, 1.0 - std::clamp(x, 0.0, 1.0))};
      }
    }
    return nearest;
  }

  /// The displaced point, and the corners of its micro-triangle.
  Vector displace(uint polygon, const TrianglePlace& place, Vector (&corners)[3]) const {
    const uint rate = displaced_.get_rate();
    const double x = place.x * rate, y = place.y * rate;
    const uint i = std::min(static_cast<uint>(x), rate - 1), j = std::min(static_cast<uint>(y), rate - 1 - i);
    double u = x - i, v = y - j;
    const bool is_upper = u + v > 1.0 && i + j + 1 < rate;
    if (is_upper) u = 1.0 - u, v = 1.0 - v;
    const uint ends[3][2] = {{0, 0}, {1, 0}, {0, 1}}, upper_ends[3][2] = {{1, 1}, {0, 1}, {1, 0}};
    for (uint k = 0; k < 3; ++k) {
      const auto& end = is_upper ? upper_ends[k] : ends[k];
      corners[k] = displaced_.get_micro_vertex(polygon, place.part, i + end[0], j + end[1], at_rest);
    }
    return corners[0] + (corners[1] - corners[0]) * u + (corners[2] - corners[0]) * v;
  }

  PolyMesh base_;
  DisplacedMesh displaced_;
};

DisplacedGround::DisplacedGround(const SceneSource& scene, std::vector<FlatPart> parts) : parts_(std::move(parts)) {
  for (const FlatPart& part : parts_) {
    const MeshSource& source = std::get<MeshSource>(scene.shapes[part.shape]);
    if (!source.displacement) continue;
    std::unique_ptr<Shape>& shape = shapes_[part.shape];
    if (shape == nullptr) shape = std::make_unique<Shape>(source);
  }
}

DisplacedGround::~DisplacedGround() = default;

void DisplacedGround::move(std::vector<GroomSurface::Root>& points) const {
  for (std::size_t k = 0; k < points.size(); ++k) {
    if (k % 1024 == 0) throw_if_interrupted();
    GroomSurface::Root& point = points[k];
    const FlatPart& part =
        *std::prev(std::upper_bound(parts_.begin(), parts_.end(), point.polygon,
                                    [](u32 polygon, const FlatPart& p) { return polygon < p.first_polygon; }));
    const auto shape = shapes_.find(part.shape);
    if (shape == shapes_.end()) continue;
    const GMathMatrix4x4<double> inverse = part.matrix.get_inverse();
    GroomSurface::Root local{inverse.transform_point(point.position),
                             part.matrix.transform_normal_transposed(point.normal).get_normalized(), point.polygon};
    shape->second->move(point.polygon - part.first_polygon, local);
    point = {part.matrix.transform_point(local.position),
             inverse.transform_normal_transposed(local.normal).get_normalized(), point.polygon};
  }
}
