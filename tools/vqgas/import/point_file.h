// tools/vqgas/import/point_file.h
//
// Point clouds in files:
//
//   .ply         without faces, as text or binary in either byte order; the vertices' x y z, red green blue, radius, of
//                any type; other properties, lists among them, are skipped
//   .xyz, .csv   a point a line; columns by the names in the first line, or x y z, or x y z r g b
//   .pts         blocks of a line with the number of points, and a point a line: x y z [intensity] [r g b]
//
// Text has blanks and tabs, or one comma or semicolon, or in .csv one tab between columns. Lines that begin with # are
// comments, and between blanks the rest of a line from # on.
#pragma once
#include <functional>
#include <string>

#include "tools/vqgas/source/point_source.h"

class AppProgressBar;

/// True if the name ends in .xyz, .pts or .csv, in any case, or in .ply and the file's header has vertices and neither
/// faces nor triangle strips. Reads the header alone.
bool is_point_file(const std::string& path);

/// Who follows the reading of a file.
struct PointReading {
  AppProgressBar* progress = nullptr;  ///< gets the task "Read points", one step a point, or null
  /// Called before memory for the points is allocated, with their number (of text an upper bound: its lines) and the
  /// bytes that they will take; or empty.
  std::function<void(u64 points, u64 bytes)> announce = {};
};

/// Reads a file in pieces of 1 MiB. Components of colors are on the sRGB curve, from 0 to 255 if PLY stores them in 8
/// bits, else from 0 to 1 if none is larger, else to 255 if none is larger, else to 65535.
/// Positions and radii may be NaN or infinite; they are counted. Numbers too large for single precision are infinite.
///
/// Throws InputError, with the line of text or the vertex and byte of a binary file, when the file contradicts itself,
/// is cut off, holds no point, or has something else than numbers; before anything is allocated when the counts in a
/// header do not fit the length of the file, or the points would take more than the memory limit; Interrupted.
PointSource read_points(const std::string& path, const PointReading& reading = {});
