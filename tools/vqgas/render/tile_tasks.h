#pragma once
#include <functional>

#include "vq_of/of_app.h"

class AppProgressBar;

/// Pixels that one task renders.
struct RenderTile {
  uint left, top, right, bottom;
  uint get_pixel_count() const { return (right - left) * (bottom - top); }
  // Ray r of the tile's packet is that of its r-th pixel, row by row.
  uint get_x(uint ray) const { return left + ray % (right - left); }
  uint get_y(uint ray) const { return top + ray / (right - left); }
  /// Index into the channels of a picture `width` wide.
  std::size_t get_pixel(uint ray, uint width) const { return std::size_t{get_y(ray)} * width + get_x(ray); }
};

/// Calls `work` for all tiles of a picture, on all threads of the application, with the index of the thread in the
/// pool. Throws Interrupted after a signal.
/// @param progress  one step a pixel, in the current task, or null
void run_tiles(const OfApp& application, uint width, uint height, AppProgressBar* progress,
               const std::function<void(const RenderTile&, uint thread)>& work);
