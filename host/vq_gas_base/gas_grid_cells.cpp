#include "vq_gas_base/gas_grid_cells.h"

#include <algorithm>
#include <cmath>

#include "vq_app_base/app_base.h"

namespace {

GMathVec3<float> get_center(const GMathBbox3<float>& box) {
  return {0.5f * box.min.x + 0.5f * box.max.x, 0.5f * box.min.y + 0.5f * box.max.y,
          0.5f * box.min.z + 0.5f * box.max.z};
}

/// About `resolution` cells in all, as cubic as the box allows: one along an axis without extent.
class Grid {
 public:
  Grid(const GMathBbox3<float>& centers, uint resolution) : origin_(centers.min) {
    double extent[3];
    double volume = 1.0;
    uint axes = 0;
    for (uint axis = 0; axis < 3; ++axis) {
      extent[axis] = double(centers.max[axis]) - double(centers.min[axis]);
      if (extent[axis] <= 0.0) continue;  // also without any finite center
      volume *= extent[axis];
      ++axes;
    }
    // Thin axes get one cell, and the others share what they would have had: longest axis last.
    uint order[3] = {0, 1, 2};
    std::sort(order, order + 3, [&](uint a, uint b) { return extent[a] < extent[b]; });
    double left = resolution;
    for (const uint axis : order) {
      if (extent[axis] <= 0.0) continue;
      const double edge = std::pow(volume / left, 1.0 / axes);
      const double cells = std::clamp(std::floor(extent[axis] / edge + 0.5), 1.0, std::max(1.0, std::floor(left)));
      count_[axis] = static_cast<uint>(cells);
      scale_[axis] = cells / extent[axis];
      left /= cells;
      volume /= extent[axis];
      --axes;
    }
  }

  uint get_cell_count() const { return count_[0] * count_[1] * count_[2]; }

  uint get_cell(const GMathVec3<float>& center) const {
    uint cell = 0;
    for (uint axis = 3; axis-- > 0;) {
      const double place = (double(center[axis]) - double(origin_[axis])) * scale_[axis];
      // Also false for NaN: the center of an infinite box goes to the first cell.
      const uint index = place > 0.0 ? static_cast<uint>(std::min(place, double(count_[axis] - 1))) : 0;
      cell = cell * count_[axis] + index;
    }
    return cell;
  }

 private:
  GMathVec3<float> origin_;
  double scale_[3] = {0.0, 0.0, 0.0};
  uint count_[3] = {1, 1, 1};
};

class CellSort {
 public:
  CellSort(const CoreVector<GMathBbox3<float>>& boxes, uint* items, const AppBase* app)
      : boxes_(boxes), items_(items), app_(app) {}

  void run(uint count, uint resolution) {
    const Grid grid(get_center_box(0, count), resolution);
    const std::vector<uint> ends = sort_by_cell(grid, count);
    const u64 most = std::max<u64>(64, (u64{4} * count + resolution - 1) / resolution);
    uint first = 0;
    for (const uint end : ends) {
      divide(first, end, static_cast<uint>(std::min<u64>(most, count)));
      first = end;
    }
  }

  std::vector<GasGridCell> cells;

 private:
  static constexpr uint stop_interval = 65536;

  void check_stop(uint k) const {
    if (app_ != nullptr && k % stop_interval == 0) app_->check_stop();
  }

  /// Of finite centers: an infinite box must not put all others into one cell.
  GMathBbox3<float> get_center_box(uint first, uint end) const {
    GMathBbox3<float> centers;
    for (uint k = first; k < end; ++k) {
      check_stop(k);
      const GMathVec3<float> center = get_center(boxes_[items_[k]]);
      if (std::isfinite(center.x + center.y + center.z)) centers.add(center);
    }
    return centers;
  }

  /// A counting sort. Returns where each cell ends.
  std::vector<uint> sort_by_cell(const Grid& grid, uint count) {
    std::vector<uint> ends(grid.get_cell_count() + 1);
    std::vector<uint> cell_of(count), sorted(count);
    for (uint k = 0; k < count; ++k) {
      check_stop(k);
      cell_of[k] = grid.get_cell(get_center(boxes_[items_[k]]));
      ++ends[cell_of[k] + 1];
    }
    for (uint cell = 0; cell < grid.get_cell_count(); ++cell) ends[cell + 1] += ends[cell];
    for (uint k = 0; k < count; ++k) {
      check_stop(k);
      sorted[ends[cell_of[k]]++] = items_[k];
    }
    std::copy(sorted.begin(), sorted.end(), items_);
    ends.pop_back();
    return ends;
  }

  void divide(uint first, uint end, uint most) {
    if (first == end) return;
    if (end - first <= most) return add_cell(first, end);
    const GMathVec3<float> extent = get_center_box(first, end).get_extent();
    const uint axis = extent.x >= extent.y ? (extent.x >= extent.z ? 0 : 2) : (extent.y >= extent.z ? 1 : 2);
    const uint middle = first + (end - first) / 2;
    // NaN centers, of infinite boxes, stand behind all others; equal centers by number, so that the result is unique.
    const auto is_before = [&](uint a, uint b) {
      check_stop(compared_++);
      const float center_a = get_center(boxes_[a])[axis], center_b = get_center(boxes_[b])[axis];
      if (std::isnan(center_a) || std::isnan(center_b)) {
        if (std::isnan(center_a) != std::isnan(center_b)) return std::isnan(center_b);
        return a < b;
      }
      return center_a != center_b ? center_a < center_b : a < b;
    };
    std::nth_element(items_ + first, items_ + middle, items_ + end, is_before);
    divide(first, middle, most);
    divide(middle, end, most);
  }

  void add_cell(uint first, uint end) {
    GasGridCell cell{first, end - first, {}};
    for (uint k = first; k < end; ++k) {
      check_stop(k);
      cell.box.add(boxes_[items_[k]]);
    }
    cells.push_back(cell);
  }

  const CoreVector<GMathBbox3<float>>& boxes_;
  uint* items_;
  const AppBase* app_;
  uint compared_ = 0;  ///< comparisons of centers so far
};

}  // namespace

std::vector<GasGridCell> gas_sort_into_cells(const CoreVector<GMathBbox3<float>>& boxes, uint* items, uint count,
                                             uint resolution, const AppBase* app) {
  CellSort sort(boxes, items, app);
  sort.run(count, std::max(resolution, 1u));
  return std::move(sort.cells);
}
