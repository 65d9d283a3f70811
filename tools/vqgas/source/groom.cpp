#include "tools/vqgas/source/groom.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <numbers>

#include "tools/vqgas/source/mesh_builder.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/random.h"
#include "vq_app_base/app_base.h"
#include "vq_geometry/geometry_intersection.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

using Vector = GMathVec3<double>;

/// A vector with values in [-1, 1] for each cell of a grid.
Vector get_cell_vector(int x, int y, int z, uint seed) {
  const uint cell = hash_bits(static_cast<uint>(x) + hash_bits(static_cast<uint>(y) + hash_bits(static_cast<uint>(z))));
  const auto value = [&](uint dimension) { return 2.0 * random_unit(cell ^ seed, dimension) - 1.0; };
  return {value(1), value(2), value(3)};
}

/// A vector that changes smoothly from cell to cell (value noise).
Vector get_noise(const Vector& at, uint seed) {
  const Vector cell(std::floor(at.x), std::floor(at.y), std::floor(at.z));
  const auto ease = [](double t) { return t * t * (3.0 - 2.0 * t); };
  const Vector f(ease(at.x - cell.x), ease(at.y - cell.y), ease(at.z - cell.z));
  Vector sum;
  for (int corner = 0; corner < 8; ++corner) {
    const int x = corner & 1, y = corner >> 1 & 1, z = corner >> 2;
    const double weight = (x != 0 ? f.x : 1.0 - f.x) * (y != 0 ? f.y : 1.0 - f.y) * (z != 0 ? f.z : 1.0 - f.z);
    sum += get_cell_vector(int(cell.x) + x, int(cell.y) + y, int(cell.z) + z, seed) * weight;
  }
  return sum;
}

/// The nearest of random points, one in each cell (Worley 1996): the center of a tuft.
Vector find_tuft(const Vector& at, uint seed) {
  Vector nearest;
  double least = std::numeric_limits<double>::max();
  for (int neighbor = 0; neighbor < 27; ++neighbor) {
    const int x = int(std::floor(at.x)) + neighbor % 3 - 1, y = int(std::floor(at.y)) + neighbor / 3 % 3 - 1,
              z = int(std::floor(at.z)) + neighbor / 9 - 1;
    const Vector point = Vector(x + 0.5, y + 0.5, z + 0.5) + get_cell_vector(x, y, z, seed) * 0.5;
    const double distance = (point - at).get_length();
    if (distance < least) least = distance, nearest = point;
  }
  return nearest;
}

class Groom {
 public:
  Groom(const GroomSurface& surface, const GroomSettings& settings)
      : surface_(surface),
        settings_(settings),
        seed_(hash_bits(settings.seed + 1)),
        length_(settings.length * surface.get_diagonal()),
        radius_(0.5 * settings.thickness * surface.get_diagonal()),
        noise_scale_(6.0 / surface.get_diagonal()) {
    // About 40 curves a tuft; the second limit keeps cell numbers of a very thin mesh within an int.
    tuft_scale_ = std::min(std::sqrt(static_cast<double>(settings.curves) / (40.0 * surface.get_area())),
                           1e8 / surface.get_diagonal());
  }

  void grow_curve(u64 curve, CurvePoint<float>* points) const {
    const uint own = hash_bits(static_cast<uint>(curve) ^ hash_bits(static_cast<uint>(curve >> 32) ^ seed_));
    const double share = (static_cast<double>(curve) + random_unit(own, 0)) / static_cast<double>(settings_.curves);
    GroomSurface::Root root = surface_.get_root(share, random_unit(own, 1), random_unit(own, 2));
    if (settings_.is_flipped) root.normal = -root.normal;
    const Vector position = root.position - surface_.get_bbox().min;
    const Vector own_lean(random_unit(own, 3) - 0.5, random_unit(own, 4) - 0.5, random_unit(own, 5) - 0.5);
    const Vector bend = (get_noise(position * noise_scale_, seed_) * 2.5 + own_lean) * settings_.lean +
                        Vector(0.0, -2.0 * settings_.gravity, 0.0);
    const Vector tuft = find_tuft(position * tuft_scale_, seed_) * (1.0 / tuft_scale_) - position;
    const Vector to_tuft = tuft - root.normal * tuft.dot(root.normal);
    const double length = length_ * (2.0 + random_unit(own, 6)) / 3.0;
    const Winding winding(root.normal, settings_, length, random_unit(own, 7));

    const uint segments = settings_.points - 1;
    Vector center = root.position;
    for (uint k = 0; k <= segments; ++k) {
      const double s = double(k) / segments;
      if (k > 0) center += get_direction(root.normal, bend * (s - 0.5 / segments)) * (length / segments);
      const Vector at = center + to_tuft * (settings_.clump * s * std::sqrt(s)) + winding.get_offset(s);
      points[k] = {GMathVec3<float>(at), static_cast<float>(radius_ * (1.0 - 0.9 * s * s))};
    }
  }

 private:
  /// A helix that widens from nothing, with five points or more a turn.
  struct Winding {
    Vector side, other;
    double radius, begin, turns;
    Winding(const Vector& axis, const GroomSettings& settings, double length, double phase)
        : side(axis.cross(std::fabs(axis.x) < 0.7 ? Vector(1, 0, 0) : Vector(0, 1, 0)).get_normalized()),
          other(axis.cross(side)),
          radius(0.12 * settings.curl * length),
          begin(2.0 * std::numbers::pi * phase),
          turns(2.0 * std::numbers::pi * settings.curl * std::min(3.0, (settings.points - 1) / 5.0)) {}
    Vector get_offset(double s) const {
      const double angle = begin + turns * s;
      return (side * std::cos(angle) + other * std::sin(angle)) * (radius * s);
    }
  };

  /// Limits the bend, so that the curve does not turn back into the surface.
  static Vector get_direction(const Vector& normal, const Vector& bend) {
    const Vector direction = normal + bend;
    const double height = direction.dot(normal), least = 0.2 * direction.get_length();
    return (height < least ? direction + normal * (least - height) : direction).get_normalized();
  }

  const GroomSurface& surface_;
  const GroomSettings& settings_;
  const uint seed_;
  const double length_, radius_, noise_scale_;
  double tuft_scale_ = 1.0;
};

/// Grows consecutive curves.
class GrowTask final : public SysThreadTask {
 public:
  GrowTask(const Groom& groom, u64 first, u64 end, uint points, CurvePoint<float>* out, AppProgressBar* progress,
           std::atomic<uint>& done)
      : groom_(groom), first_(first), end_(end), points_(points), out_(out), progress_(progress), done_(done) {
    flags = counted | for_waiter;
  }
  void run(const uint&) override {
    for (u64 curve = first_; curve < end_ && !is_interrupted(); ++curve)
      groom_.grow_curve(curve, out_ + curve * points_);
    const uint grown = done_ += static_cast<uint>(end_ - first_);
    if (progress_ != nullptr) progress_->step(grown);
  }

 private:
  const Groom& groom_;
  const u64 first_, end_;
  const uint points_;
  CurvePoint<float>* const out_;
  AppProgressBar* const progress_;
  std::atomic<uint>& done_;
};

}  // namespace

void create_groom_mesh(MeshSource&& source, double crease_degrees, PolyMesh& mesh) {
  complete_normals(source.data, crease_degrees);
  CoreString fault;
  if (!mesh.create(std::move(source.data), fault)) throw InputError(source.name, fault.get_data());
}

GroomSurface::GroomSurface(const PolyMesh& mesh) : mesh_(mesh) {
  bbox_.set_empty();
  double sum = 0.0;
  for (uint polygon = 0; polygon < mesh.get_polygon_count(); ++polygon) {
    for (uint part = 0; mesh.is_polygon_valid(polygon) && part < mesh.get_part_count(polygon); ++part) {
      const u32* vertices = mesh.get_part_vertices(polygon, part);
      const Vector corners[3] = {Vector(mesh.get_position(vertices[0])), Vector(mesh.get_position(vertices[1])),
                                 Vector(mesh.get_position(vertices[2]))};
      const double area = 0.5 * (corners[1] - corners[0]).cross(corners[2] - corners[0]).get_length();
      if (!(area > 0.0 && std::isfinite(area))) continue;
      for (const Vector& corner : corners) bbox_.add(corner);
      triangles_.push_back({polygon, part});
      area_until_.push_back(sum += area);
    }
  }
}

GroomSurface::Root GroomSurface::get_root(double share, double x, double y) const {
  const auto place = std::upper_bound(area_until_.begin(), area_until_.end(), share * get_area());
  const auto number = std::min<std::ptrdiff_t>(place - area_until_.begin(), std::ssize(triangles_) - 1);
  const Triangle& triangle = triangles_[static_cast<std::size_t>(number)];
  if (x + y > 1.0) x = 1.0 - x, y = 1.0 - y;  // folds the unit square onto the triangle
  GeometryIntersection at;
  at.geometry = &mesh_;
  at.primitive = triangle.polygon;
  at.part = triangle.part;
  at.u = x;
  at.v = y;
  const GeometrySurfacePoint point = mesh_.get_surface_point(at, std::numeric_limits<double>::quiet_NaN());
  return {point.position, point.shading_normal, triangle.polygon};
}

CurveData grow_fur(const GroomSurface& surface, const GroomSettings& settings, AppProgressBar* progress) {
  constexpr u64 curves_a_task = 4096;
  CurveData data;
  data.curve_sizes.assign(settings.curves, settings.points);
  data.points.resize(settings.curves * settings.points);
  const Groom groom(surface, settings);
  std::atomic<uint> done = 0;
  std::vector<std::unique_ptr<GrowTask>> tasks;
  for (u64 first = 0; first < settings.curves; first += curves_a_task) {
    const u64 end = std::min(first + curves_a_task, settings.curves);
    tasks.push_back(std::make_unique<GrowTask>(groom, first, end, settings.points, data.points.data(), progress, done));
  }
  if (progress == nullptr) {
    for (const auto& task : tasks) task->run(0);
    throw_if_interrupted();
    return data;
  }
  progress->begin_task("Grow", 1.0);
  progress->set_step_count(static_cast<uint>(settings.curves));
  SysThreadTaskManager group(progress->get_application().get_thread_manager());
  for (const auto& task : tasks) group.add_task(task.get());
  group.wait_until_completed(true);
  throw_if_interrupted();
  progress->end_task();
  return data;
}
