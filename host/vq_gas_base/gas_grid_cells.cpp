#include "vq_gas_base/gas_grid_cells.h"

#include <algorithm>
#include <cmath>
#include <limits>

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
    const u64 most = std::max<u64>(64, (u64{4} * count + resolution - 1) / resolution);
    uint first = 0;
    for (const GasGridCell& cell : sort_by_cell(grid, count)) {
      if (cell.count <= most) {
        if (cell.count > 0) cells.push_back({first, cell.count, cell.box});
      } else {
        divide(first, first + cell.count, static_cast<uint>(most));
      }
      first += cell.count;
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

  /// A counting sort. Returns the number of items in each cell and their box: boxes are read in the order in which they
  /// are stored, and not once again for each cell.
  std::vector<GasGridCell> sort_by_cell(const Grid& grid, uint count) {
    std::vector<GasGridCell> out(grid.get_cell_count());
    std::vector<uint> cell_of(count), sorted(count);
    for (uint k = 0; k < count; ++k) {
      check_stop(k);
      const GMathBbox3<float>& box = boxes_[items_[k]];
      cell_of[k] = grid.get_cell(get_center(box));
      GasGridCell& cell = out[cell_of[k]];
      ++cell.count;
      cell.box.add(box);
    }
    uint first = 0;
    for (GasGridCell& cell : out) {
      cell.first = first;
      first += cell.count;
    }
    for (uint k = 0; k < count; ++k) {
      check_stop(k);
      sorted[out[cell_of[k]].first++] = items_[k];
    }
    std::copy(sorted.begin(), sorted.end(), items_);
    return out;
  }

  void divide(uint first, uint end, uint most) {
    if (end - first <= most) return add_cell(first, end);
    const GMathVec3<float> extent = get_center_box(first, end).get_extent();
    const uint axis = extent.x >= extent.y ? (extent.x >= extent.z ? 0 : 2) : (extent.y >= extent.z ? 1 : 2);
    const uint middle = first + (end - first) / 2;
    halve(first, middle, end, axis);
    divide(first, middle, most);
    divide(middle, end, most);
  }

  /// Moves the items with the smallest centers before `middle`, of equal ones those that come first. The items of both
  /// halves keep their order.
  void halve(uint first, uint middle, uint end, uint axis) {
    std::vector<float> centers;
    centers.reserve(end - first);
    for (uint k = first; k < end; ++k) {
      check_stop(k);
      const float center = get_center(boxes_[items_[k]])[axis];
      centers.push_back(std::isnan(center) ? std::numeric_limits<float>::infinity() : center);  // of an infinite box
    }
    std::vector<float> sorted = centers;
    const auto nth = sorted.begin() + (middle - first);
    std::nth_element(sorted.begin(), nth, sorted.end(), [&](float a, float b) {
      check_stop(compared_++);
      return a < b;
    });
    const float pivot = *nth;
    const auto smaller = std::count_if(centers.begin(), centers.end(), [&](float center) { return center < pivot; });
    uint equal = middle - first - static_cast<uint>(smaller);  // of them belong before the middle
    std::vector<uint> after;
    after.reserve(end - middle);
    uint* before = items_ + first;
    for (uint k = first; k < end; ++k) {
      const float center = centers[k - first];
      const bool is_before = center < pivot || (center == pivot && equal > 0);
      if (is_before && center == pivot) --equal;
      if (is_before) {
        *before++ = items_[k];
      } else {
        after.push_back(items_[k]);
      }
    }
    std::copy(after.begin(), after.end(), before);
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
