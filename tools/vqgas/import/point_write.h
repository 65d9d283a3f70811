// tools/vqgas/import/point_write.h
//
// Selected points in files, which read_points() reads too:
//
//   .csv   names, then a point a line: x,y,z,object,name,point or x,y,z,red,green,blue,object,name,point
//   .ply   binary, little-endian: float x y z, uchar red green blue, uint object point; names of objects in comments
//
// Positions are in the shortest text that reads back as the same float. There are colors if any point has one; the
// others are then white.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_gmath/gmath_vec.h"

struct PointRow {
  GMathVec3<float> position;
  u32 object = 0;                  ///< into PointRows::object_names
  u32 point = 0;                   ///< number within its cloud
  u32 color = core_invalid_index;  ///< 0xRRGGBB on the sRGB curve, or unknown
};

struct PointRows {
  std::vector<std::string> object_names;
  std::vector<PointRow> rows;
};

/// True if the name ends in .csv or .ply, in any case.
bool is_point_output(const std::string& path);

/// Writes a file in the form of its name, for which is_point_output() holds. Throws InputError, Interrupted.
void write_points(const std::string& path, const PointRows& points);
