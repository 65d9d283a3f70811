// tools/vqgas/import/hair_file.h
//
// Hair in files. The binary form is that of the cyHair collection (Yuksel, "HAIR file format"), little-endian:
//
//   128 bytes   signature, counts, which arrays follow, values that stand for missing arrays
//   u16         [hair]        segments of each strand; points are one more
//   float       [point][3]    positions
//   float       [point]       thickness: a diameter
//   float       [point]       transparency, passed over
//   float       [point][3]    colours, of which the mean becomes the colour of the hair
//
// The text form has a point "x y z radius" a line, an empty line between strands, and comments from # on.
#pragma once
#include <string>

#include "tools/vqgas/source/hair_source.h"

/// Whether the name is that of a hair file: it ends in .hair, .curves or .txt.
bool is_hair_file(const std::string& path);

/// Reads a file of either form, by its name. Coordinates may be anything. Throws InputError when the file contradicts
/// itself, has not the length that its header tells, holds no segment, or gives no point a positive thickness.
HairSource read_hair(const std::string& path);

/// Writes fibres at rest, at least one, in the binary form. `info` is a remark of at most 87 letters. Throws InputError
/// when the file cannot be written or a strand has more points than the format can count (65 536).
void write_hair(const std::string& path, const CurveData& data, const std::string& info);
