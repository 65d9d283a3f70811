// bench/bench_groom.h
//
// Hair to measure with; every library gets the same control points. Strands are in clumps on a lumpy ball, and adjacent
// in memory strand by strand and clump by clump.
//
//   linear   9 points a strand, 8 segments of 2
//   cubic    25 Bézier points a strand, 8 segments of 4 that share their ends; smooth through the same 9 points
#pragma once
#include <string>
#include <vector>

#include "vq_curve/tube_mesh_fast.h"

struct BenchGroom {
  static constexpr uint strand_segments = 8;

  std::string name;
  CurveShape shape = CurveShape::cubic;
  std::vector<CurvePoint<float>> points;  ///< of the static groom
  /// Motion samples over [0, 1]; empty: static. The first sample equals `points`.
  std::vector<std::vector<CurvePoint<float>>> samples;
  std::vector<u32> first_points;  ///< [segment]
  double root_radius = 0.0;       ///< the greatest radius

  uint get_segment_count() const { return static_cast<uint>(first_points.size()); }
  uint get_degree() const { return shape == CurveShape::linear ? 1 : 3; }
  /// Points per strand.
  uint get_strand_size() const { return get_degree() * strand_segments + 1; }
  /// The box around all control balls at all samples.
  GMathBbox3<double> get_bbox() const;
  /// The point on the segment's axis at parameter `u` and the radius there, blended between the samples around `time`.
  CurvePoint<double> get_ball(uint segment, double u, double time) const;
};

enum class BenchHairStyle {
  fur,       ///< combed, curled, drawn together into clumps
  straight,  ///< no curl, no clumps
  curly      ///< tight curls, no clumps
};

/// About `segment_count` segments; the same on every machine with the same mathematical functions.
/// @param sample_count  0: static. Else the strands sway along an arc; tips end a fifth of their length away
BenchGroom bench_make_groom(BenchHairStyle style, CurveShape shape, uint segment_count, uint sample_count);
/// "fur-200k", "straight-5m", "curly-1000": style and number of segments. False for any other name.
bool bench_read_groom_name(const std::string& name, BenchHairStyle& style, uint& segment_count);

/// Makes the library's own geometry. False if the library rejects the groom.
bool bench_fill_tube_mesh(const BenchGroom& groom, TubeMeshFast& mesh);
