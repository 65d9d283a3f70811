// host/vq_gas_base/gas_grid_cells.h
//
// Sorts boxes into the cells of a uniform grid, and divides cells that hold too many.
#pragma once
#include <vector>

#include "vq_core/core_array.h"
#include "vq_gmath/gmath_bbox.h"

class AppBase;

/// A range of the sorted numbers, with the box around it.
struct GasGridCell {
  uint first = 0, count = 0;
  GMathBbox3<float> box;
};

/// Sorts `items` by grid cell; a cell that holds too many is divided at the median of its centers. The items of a cell
/// keep their order. The same for any number of threads. Throws std::bad_alloc, and AppStopped after a stop request.
/// @param items       [count] numbers of boxes that are neither NaN nor inverted; permuted
/// @param resolution  cells wanted, at least 1; a cell is divided until it holds at most max(64, 4 count / resolution)
/// @param app         is checked for stop requests; or null
/// @return the cells that hold something, in the order of `items`
std::vector<GasGridCell> gas_sort_into_cells(const CoreVector<GMathBbox3<float>>& boxes, uint* items, uint count,
                                             uint resolution, const AppBase* app);
