#include "tools/vqgas/source/scatter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <utility>

#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/random.h"
#include "vq_app_base/app_progress_scope.h"

namespace {

using Vector = GMathVec3<double>;
constexpr double radians_per_degree = std::numbers::pi / 180.0;
constexpr uint candidates_per_point = 5;

/// Points sorted into cells, to find those near a point.
class PointGrid {
 public:
  PointGrid(const std::vector<GroomSurface::Root>& points, double cell_size)
      : points_(points), scale_(1.0 / cell_size), first_(points.size() + 2, 0), order_(points.size()) {
    // A counting sort by bucket.
    for (const GroomSurface::Root& point : points) ++first_[get_bucket(get_cell(point.position)) + 2];
    for (std::size_t k = 2; k < first_.size(); ++k) first_[k] += first_[k - 1];
    for (uint k = 0; k < points.size(); ++k) order_[first_[get_bucket(get_cell(points[k].position)) + 1]++] = k;
  }

  /// Calls visit(number, distance) for the other points nearer than the size of a cell.
  template <class Visit>
  void visit_near(uint number, const Visit& visit) const {
    const Vector& at = points_[number].position;
    const Cell middle = get_cell(at);
    for (int neighbor = 0; neighbor < 27; ++neighbor) {
      const Cell cell = {middle.x + neighbor % 3 - 1, middle.y + neighbor / 3 % 3 - 1, middle.z + neighbor / 9 - 1};
      const std::size_t bucket = get_bucket(cell);
      for (uint k = first_[bucket]; k < first_[bucket + 1]; ++k) {
        const Vector& other = points_[order_[k]].position;
        if (order_[k] == number || !(get_cell(other) == cell)) continue;  // another cell may share the bucket
        const double distance = (other - at).get_length();
        if (distance * scale_ < 1.0) visit(order_[k], distance);
      }
    }
  }

 private:
  struct Cell {
    std::int64_t x, y, z;
    bool operator==(const Cell&) const = default;
  };
  Cell get_cell(const Vector& at) const {
    const auto floor = [&](double x) { return static_cast<std::int64_t>(std::floor(x * scale_)); };
    return {floor(at.x), floor(at.y), floor(at.z)};
  }
  std::size_t get_bucket(const Cell& cell) const {
    const auto mix = [](uint hash, std::int64_t value) { return hash_bits(hash ^ static_cast<uint>(value)); };
    return mix(mix(mix(0, cell.x), cell.y), cell.z) % points_.size();
  }

  const std::vector<GroomSurface::Root>& points_;
  const double scale_;
  std::vector<uint> first_;  // [bucket] into order_
  std::vector<uint> order_;
};

/// Removes candidates until `count` are left. Weights as in the paper.
class Elimination {
 public:
  Elimination(const std::vector<GroomSurface::Root>& candidates, double spacing, uint count)
      : candidates_(candidates),
        grid_(candidates, spacing),
        spacing_(spacing),
        least_((1.0 - std::pow(double(count) / double(candidates.size()), 1.5)) * 0.65 * spacing),
        weights_(candidates.size(), 0.0),
        is_removed_(candidates.size(), 0) {}

  std::vector<GroomSurface::Root> run(uint count, AppProgressBar* progress) {
    const auto candidate_count = static_cast<uint>(candidates_.size());
    const AppProgressScope stage(progress, "Spread", 1.0, candidate_count - count);
    std::vector<std::pair<double, uint>> heap;
    for (uint k = 0; k < candidate_count; ++k) {
      grid_.visit_near(k, [&](uint, double distance) { weights_[k] += get_weight(distance); });
      heap.emplace_back(weights_[k], k);
    }
    std::make_heap(heap.begin(), heap.end());
    for (uint removed = 0; removed < candidate_count - count;) {
      if (removed % 1024 == 0) throw_if_interrupted();
      std::pop_heap(heap.begin(), heap.end());
      auto& [weight, number] = heap.back();
      if (weight > weights_[number]) {  // out of date: weights only fall, so none that is larger can be below
        weight = weights_[number];
        std::push_heap(heap.begin(), heap.end());
        continue;
      }
      remove(number);
      heap.pop_back();
      stage.step(++removed);
    }
    std::vector<GroomSurface::Root> left;
    for (uint k = 0; k < candidate_count; ++k)
      if (is_removed_[k] == 0) left.push_back(candidates_[k]);
    return left;
  }

 private:
  void remove(uint number) {
    is_removed_[number] = 1;
    grid_.visit_near(number, [&](uint other, double distance) { weights_[other] -= get_weight(distance); });
  }
  double get_weight(double distance) const {
    double weight = 1.0 - std::fmax(distance, least_) / spacing_;
    for (uint k = 0; k < 3; ++k) weight *= weight;
    return weight;
  }

  const std::vector<GroomSurface::Root>& candidates_;
  const PointGrid grid_;
  const double spacing_, least_;
  std::vector<double> weights_;
  std::vector<u8> is_removed_;
};

Vector rotate(const Vector& v, const Vector& axis, double angle) {
  const double c = std::cos(angle);
  return v * c + axis.cross(v) * std::sin(angle) + axis * (axis.dot(v) * (1.0 - c));
}

uint get_own_seed(uint number, uint seed) { return hash_bits(number ^ hash_bits(seed + 1)); }

}  // namespace

double get_widest_spacing(double area, uint count) { return 2.0 * std::sqrt(area / (2.0 * std::sqrt(3.0) * count)); }

std::vector<GroomSurface::Root> scatter_points(const GroomSurface& surface, uint count, uint seed,
                                               AppProgressBar* progress) {
  std::vector<GroomSurface::Root> candidates(std::size_t{count} * candidates_per_point);
  for (std::size_t k = 0; k < candidates.size(); ++k) {
    const uint own = get_own_seed(static_cast<uint>(k), seed);
    const double share = (static_cast<double>(k) + random_unit(own, 0)) / static_cast<double>(candidates.size());
    candidates[k] = surface.get_root(share, random_unit(own, 1), random_unit(own, 2));
  }
  return Elimination(candidates, get_widest_spacing(surface.get_area(), count), count).run(count, progress);
}

GMathMatrix4x4<double> place_instance(const GroomSurface::Root& point, uint number, const ScatterSettings& settings) {
  const uint own = get_own_seed(number, settings.seed);
  const Vector base = settings.is_aligned ? point.normal : Vector(0.0, 1.0, 0.0);
  const Vector across = base.cross(std::fabs(base.x) < 0.7 ? Vector(1, 0, 0) : Vector(0, 0, 1)).get_normalized();
  const Vector side = rotate(across, base, 2.0 * std::numbers::pi * random_unit(own, 11));
  const double tilt = settings.tilt_degrees * radians_per_degree * std::sqrt(random_unit(own, 12));
  const Vector y = rotate(base, side, tilt);
  const Vector x = rotate(side, y, 2.0 * std::numbers::pi * random_unit(own, 13)), z = x.cross(y);
  const double scale = std::lerp(settings.least_scale, settings.greatest_scale, random_unit(own, 14));
  GMathMatrix4x4<double> matrix;
  for (uint row = 0; row < 3; ++row) {
    const double values[] = {x[row] * scale, y[row] * scale, z[row] * scale, point.position[row]};
    std::copy(std::begin(values), std::end(values), matrix.m[row]);
  }
  return matrix;
}

std::shared_ptr<const ModuleMatrixSource> make_sway(const std::vector<GMathMatrix4x4<double>>& matrices,
                                                    const std::vector<double>& degrees, const SwaySettings& settings) {
  std::vector<ModuleInstanceTurn> turns;
  turns.reserve(matrices.size());
  for (uint k = 0; k < matrices.size(); ++k) {
    const uint own = hash_bits(k);
    ModuleInstanceTurn turn;
    turn.rest = matrices[k];
    turn.center = matrices[k].transform_point({0.0, 0.0, 0.0});
    const double side = 1.2 * (random_unit(own, 31) - 0.5);
    turn.axis = {std::sin(side), 0.0, -std::cos(side)};
    turn.swing = degrees[k] * radians_per_degree * (0.7 + 0.3 * random_unit(own, 32));
    turn.period = settings.period;
    turn.phase = 2.0 * std::numbers::pi *
                 (settings.wavelength > 0.0 ? 0.15 * random_unit(own, 33) - turn.center.x / settings.wavelength
                                            : random_unit(own, 33));
    turns.push_back(turn);
  }
  return std::make_shared<ModuleTurnSource>(std::move(turns));
}
