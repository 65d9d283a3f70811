#include "tools/vqgas/source/hair_source.h"

namespace {

using Points = std::vector<CurvePoint<float>>;

/// Extrapolates the curve beyond its end point `end`, whose neighbor is `next`. A negative radius is kept: it makes the
/// curve taper evenly down to a radius of 0.
CurvePoint<float> mirror(const CurvePoint<float>& end, const CurvePoint<float>& next) {
  return {end.position * 2.0f - next.position, end.radius * 2.0f - next.radius};
}

Points add_end_points(const Points& points, const std::vector<u32>& sizes) {
  Points out;
  out.reserve(points.size() + 2 * sizes.size());
  auto first = points.begin();
  for (const u32 size : sizes) {
    const auto end = first + size;
    if (size >= 2) out.push_back(mirror(first[0], first[1]));
    out.insert(out.end(), first, end);
    if (size >= 2) out.push_back(mirror(end[-1], end[-2]));
    first = end;
  }
  return out;
}

}  // namespace

void make_smooth(CurveData& data) {
  data.points = add_end_points(data.points, data.curve_sizes);
  for (Points& sample : data.motion_points) sample = add_end_points(sample, data.curve_sizes);
  for (u32& size : data.curve_sizes) size += size >= 2 ? 2 : 0;
  data.basis = CurveBasis::catmull_rom;
}
