// tools/vqgas/source/hair_source.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_curve/curve_set.h"

/// Hair before its structure is built: curves, and the colors of their groups. Readers and groom make linear curves;
/// make_smooth() converts them. Options and reports call a curve a strand.
struct HairSource {
  CurveData data;
  std::vector<Color> group_colors;
  std::string name;  ///< of the file, for errors
};

/// Converts linear curves to Catmull-Rom curves through all their points. Each curve gets one more point before its
/// first and after its last, mirrored, so that its end tangents follow its first and last straight segment.
void make_smooth(CurveData& data);
