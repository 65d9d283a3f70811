// tools/vqgas/import/hair_file.h
//
// Hair in files. The binary form is that of the cyHair collection (Yuksel, "HAIR file format"), little-endian:
//
//   128 bytes   signature, counts, which arrays follow, default values for missing arrays
//   u16         [curve]       segments of each curve, one less than its points
//   float       [point][3]    positions
//   float       [point]       thickness: a diameter
//   float       [point]       transparency, ignored
//   float       [point][3]    colors; their mean becomes the color of the hair
//
// The text form has a point "x y z radius" a line, an empty line between curves, and comments from # on.
#pragma once
#include <string>

#include "tools/vqgas/source/hair_source.h"

/// True if the name ends in .hair, .curves or .txt, in any case.
bool is_hair_file(const std::string& path);

/// Reads a file of either form, by its name. Coordinates are not checked. Throws InputError when the file contradicts
/// itself, its length is not that of its header, it holds no segment, or no point has a positive thickness.
HairSource read_hair(const std::string& path);

/// Writes static curves, at least one, in the binary form. `info` is a remark of at most 87 letters. Throws InputError
/// when the file cannot be written or a curve has more points than the format can count (65 536).
void write_hair(const std::string& path, const CurveData& data, const std::string& info);
