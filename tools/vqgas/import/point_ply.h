// tools/vqgas/import/point_ply.h
#pragma once
#include <string>

#include "tools/vqgas/import/point_collector.h"

/// True if the header of the file has vertices and neither faces nor triangle strips. False when it cannot be read.
bool is_point_ply(const std::string& path);

/// Reads the vertices of a PLY file. Throws as read_points().
PointSource read_point_ply(const std::string& path, const PointCollecting& collecting);

/// Reads all rows of a PLY file of any elements and keeps nothing. Throws InputError, with the line of text or the row
/// and byte of a binary file, when the header is invalid or the rows are not those that it announces.
void check_ply(const std::string& path);
