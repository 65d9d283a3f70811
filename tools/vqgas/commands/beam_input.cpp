#include "tools/vqgas/commands/beam_input.h"

#include <cmath>
#include <numbers>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/number_list.h"

namespace {

using Vector = GMathVec3<double>;

/// The corners of a square across the direction: its sides are as upright as they can be, or, of a vertical beam,
/// along x and z.
void set_square(const Vector& direction, double half_width, Vector (&corners)[4]) {
  Vector right = direction.cross({0.0, 1.0, 0.0});
  if (!(right.get_length() > 1e-9 * direction.get_length())) right = {1.0, 0.0, 0.0};
  right = right.get_normalized() * half_width;
  const Vector up = right.cross(direction).get_normalized() * half_width;
  corners[0] = -right - up;
  corners[1] = right - up;
  corners[2] = right + up;
  corners[3] = up - right;
}

}  // namespace

bool parse_beam(const std::string& text, bool is_parallel, GeometryRayFrustumBeam& beam) {
  const std::vector<double> v = parse_numbers(text, ',');
  const bool has_corners = v.size() == 18 || v.size() == 20, has_size = v.size() == 7 || v.size() == 9;
  if (!has_corners && !has_size) return false;
  const auto get_vector = [&](std::size_t first) { return Vector(v[first], v[first + 1], v[first + 2]); };
  const Vector origin = get_vector(0), direction = get_vector(3);
  const bool has_interval = v.size() == 9 || v.size() == 20;
  const double tnear = has_interval ? v[v.size() - 2] : 0.0, tfar = has_interval ? v[v.size() - 1] : DBL_MAX;
  Vector corners[4];
  if (has_corners) {
    for (std::size_t k = 0; k < 4; ++k) corners[k] = get_vector(6 + 3 * k);
  } else {
    if (!(v[6] > 0.0) || !(is_parallel || v[6] < 180.0)) return false;
    set_square(direction, is_parallel ? 0.5 * v[6] : std::tan(v[6] * std::numbers::pi / 360.0), corners);
    if (!is_parallel)
      for (Vector& corner : corners) corner += direction.get_normalized();
  }
  return is_parallel ? beam.set_parallel(origin, direction, corners, tnear, tfar)
                     : beam.set_perspective(origin, direction, corners, tnear, tfar);
}

void check_beams(const std::vector<std::string>& texts, bool is_parallel) {
  GeometryRayFrustumBeam beam;
  for (const std::string& text : texts)
    if (!parse_beam(text, is_parallel, beam)) throw UsageError("--beam: '" + text + "' is not " + beam_form);
}
