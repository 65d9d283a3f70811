// tools/vqgas/source/hair_source.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/image/color.h"
#include "vq_curve/curve_set.h"

/// Hair on its way into the structure, with the colours of its groups. Readers and groom deliver straight pieces from
/// point to point; make_smooth() bends them.
struct HairSource {
  CurveData data;
  std::vector<Color> group_colors;
  std::string name;  ///< of the file: stands in errors
};

/// Turns fibres of straight pieces into Catmull-Rom curves through all their points. Each gets one more point before
/// its first and one behind its last, mirrored, so that its ends leave in the direction of the pieces there.
void make_smooth(CurveData& data);
