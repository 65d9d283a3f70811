#include "vq_module/module_matrix_source.h"

#include <cmath>
#include <numbers>

void ModuleKeyedSource::get_matrices(double time, GMathMatrix4x4<double>* matrices) const {
  for (const auto& item : items_) *matrices++ = item->get_global_matrix_at(time);
}

namespace {

/// Around an axis of unit length through the origin, counter-clockwise seen from its tip. Rodrigues 1840.
GMathMatrix4x4<double> get_rotation(const GMathVec3<double>& axis, double angle) {
  const double c = std::cos(angle), s = std::sin(angle), d = 1.0 - c;
  GMathMatrix4x4<double> out;
  const double rows[3][3] = {
      {c + d * axis.x * axis.x, d * axis.x * axis.y - s * axis.z, d * axis.x * axis.z + s * axis.y},
      {d * axis.y * axis.x + s * axis.z, c + d * axis.y * axis.y, d * axis.y * axis.z - s * axis.x},
      {d * axis.z * axis.x - s * axis.y, d * axis.z * axis.y + s * axis.x, c + d * axis.z * axis.z}};
  for (uint row = 0; row < 3; ++row)
    for (uint column = 0; column < 3; ++column) out.m[row][column] = rows[row][column];
  return out;
}

}  // namespace

GMathMatrix4x4<double> ModuleTurnSource::get_matrix(const ModuleInstanceTurn& turn, double time) {
  const double swayed = turn.swing * std::sin(2.0 * std::numbers::pi * time / turn.period + turn.phase);
  GMathMatrix4x4<double> rotation = get_rotation(turn.axis, turn.rate * time + swayed);
  // Around the center, then on: x -> R (x - c) + c + v t.
  const GMathVec3<double> shift = turn.center - rotation.transform_vector(turn.center) + turn.velocity * time;
  for (uint row = 0; row < 3; ++row) rotation.m[row][3] = shift[row];
  return rotation * turn.rest;
}

void ModuleTurnSource::get_matrices(double time, GMathMatrix4x4<double>* matrices) const {
  for (const ModuleInstanceTurn& turn : turns_) *matrices++ = get_matrix(turn, time);
}
