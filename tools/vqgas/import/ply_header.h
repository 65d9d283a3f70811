// tools/vqgas/import/ply_header.h
//
// Headers of PLY files (Turk 1994, "The PLY Polygon File Format").
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/import/point_lines.h"

enum class PlyFormat { ascii, little_endian, big_endian };
enum class PlyType { int8, uint8, int16, uint16, int32, uint32, float32, float64 };

constexpr std::size_t get_size(PlyType type) {
  constexpr std::size_t sizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
  return sizes[static_cast<std::size_t>(type)];
}

struct PlyProperty {
  std::string name;
  PlyType type;  ///< of a list, of its entries
  bool is_list;
  PlyType count_type;  ///< of a list
};

struct PlyElement {
  std::string name;
  u64 count;
  std::vector<PlyProperty> properties;

  bool has_list() const;
  /// Of one row, if its lists are empty and its numbers have one digit.
  u64 get_least_bytes(PlyFormat format) const;
};

struct PlyHeader {
  PlyFormat format = PlyFormat::ascii;
  std::vector<PlyElement> elements;

  /// Null when there is no element of this name, or none of its rows.
  const PlyElement* find(const std::string& name) const;
};

/// Reads the header of a file; its data follows in `lines`. Throws InputError with the number of the line.
PlyHeader read_ply_header(PointLines& lines);
