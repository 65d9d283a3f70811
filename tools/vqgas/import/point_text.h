// tools/vqgas/import/point_text.h
#pragma once
#include <string>

#include "tools/vqgas/import/point_collector.h"

/// Reads a .xyz or .csv file. Throws as read_points().
/// @param is_tab_separator  one tab separates columns if the first line has one; else tabs are blanks
PointSource read_point_table(const std::string& path, bool is_tab_separator, const PointCollecting& collecting);

/// Reads a .pts file. Throws as read_points().
PointSource read_point_blocks(const std::string& path, const PointCollecting& collecting);
