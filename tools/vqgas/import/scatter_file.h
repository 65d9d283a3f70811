// tools/vqgas/import/scatter_file.h
//
// Scatter files: instances of geometries, and the ground that they stand on. JSON, as `vqgas scatter` writes it:
//
//   {"format": "vqgas scatter 1",
//    "ground": "hill.obj",                            optional, and so is its displacement:
//    "displacement": {"height": "noise",              or a picture's name, relative as well
//                     "bound": 0.5, "rate": 16},      bound optional
//    "geometries": ["fern.obj", "tuft.hair"],         relative to the file's folder, or demo:NAME
//    "sway": {"degrees": 4, "period": 24},            optional; the period in frames
//    "instances": {"geometry": [0, 1],                [instance] number of the geometry
//                  "matrix": [12 numbers, ...]}}      [instance] to world, three rows of four
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/source/displace_options.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_matrix.h"

struct ScatterFile {
  std::string ground;            ///< empty: none
  DisplaceOptions displacement;  ///< of the ground
  std::vector<std::string> geometries;
  double sway_degrees = 0.0, sway_period = 24.0;
  std::vector<uint> instance_geometries;
  std::vector<GMathMatrix4x4<double>> matrices;
};

/// True if the name ends in .json, in any case.
bool is_scatter_file(const std::string& path);

/// Reads a file. Names of other files are as for a reader in the current folder. Throws InputError, with the line of
/// text that is not JSON or the number of the instance, when the file is not as above, holds no instance, or refers to
/// a geometry that it does not list.
ScatterFile read_scatter(const std::string& path);

/// What stands in the file `path` for another file or built-in scene, as JSON. Throws InputError for names that JSON
/// cannot hold.
std::string print_scatter_name(const std::string& path, const std::string& name);

/// Writes a file; names become relative to its folder, matrices single precision. Throws InputError.
void write_scatter(const std::string& path, const ScatterFile& file);
