// tools/vqgas/source/scatter.h
//
// Places instances on a surface: evenly, but in no pattern.
#pragma once
#include <memory>
#include <vector>

#include "tools/vqgas/source/groom.h"
#include "vq_module/module_matrix_source.h"

/// Points of a surface that keep their distance from each other (blue noise). Five candidates a point are spread over
/// the area at random; those with the nearest neighbors are removed one by one (Yuksel 2015, "Sample Elimination for
/// Generating Poisson Disk Sample Sets"). The points follow the order of the polygons. Distances are straight ones.
/// Cost: O(count log count), about 0.5 KB a point. Throws std::bad_alloc, Interrupted.
/// @param surface   must have an area
/// @param progress  gets the task "Spread", one step a removed candidate, or null
std::vector<GroomSurface::Root> scatter_points(const GroomSurface& surface, uint count, uint seed,
                                               AppProgressBar* progress);

/// The distance that `count` points would have on a plane in a triangular grid, the widest possible.
double get_widest_spacing(double area, uint count);

struct ScatterSettings {
  double least_scale = 1.0, greatest_scale = 1.0;
  bool is_aligned = false;    ///< y is the surface's normal, else the vertical
  double tilt_degrees = 0.0;  ///< largest angle by which y leans from there, to any side
  uint seed = 1;
};

/// The matrix of instance `number`: its origin at the point, turned around its own y at random.
GMathMatrix4x4<double> place_instance(const GroomSurface::Root& point, uint number, const ScatterSettings& settings);

/// How instances sway in the wind, around horizontal axes through their origins.
struct SwaySettings {
  double period = 24.0;     ///< in frames
  double wavelength = 0.0;  ///< of the gusts, which run along x; 0: each instance sways by itself
};

/// @param degrees  [instance] largest angle to either side
std::shared_ptr<const ModuleMatrixSource> make_sway(const std::vector<GMathMatrix4x4<double>>& matrices,
                                                    const std::vector<double>& degrees, const SwaySettings& settings);
