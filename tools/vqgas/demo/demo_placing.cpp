#include "tools/vqgas/demo/demo_placing.h"

Matrix move_to(const Point& place) {
  Matrix matrix;
  for (uint row = 0; row < 3; ++row) matrix.m[row][3] = place[row];
  return matrix;
}

Matrix turn_around(uint axis, double angle) {
  Matrix matrix;
  const uint from = (axis + 1) % 3, to = (axis + 2) % 3;
  matrix.m[from][from] = matrix.m[to][to] = std::cos(angle);
  matrix.m[to][from] = std::sin(angle);
  matrix.m[from][to] = -std::sin(angle);
  return matrix;
}

Matrix scale_by(const Point& factors) {
  Matrix matrix;
  for (uint row = 0; row < 3; ++row) matrix.m[row][row] = factors[row];
  return matrix;
}

Matrix lean_by(double x, double z) {
  Matrix matrix;
  matrix.m[0][1] = x;
  matrix.m[2][1] = z;
  return matrix;
}

Matrix map_to(const Frame& frame) {
  Matrix matrix = move_to(frame.origin);
  for (uint row = 0; row < 3; ++row) {
    matrix.m[row][0] = frame.x[row];
    matrix.m[row][1] = frame.y[row];
    matrix.m[row][2] = frame.z[row];
  }
  return matrix;
}

std::vector<ModuleMatrixKey> make_keys(uint steps, const std::function<Matrix(double)>& get_matrix) {
  std::vector<ModuleMatrixKey> keys;
  keys.reserve(steps + 1);
  for (uint step = 0; step <= steps; ++step) {
    const double time = double(step) / steps;
    keys.push_back({time, get_matrix(time)});
  }
  return keys;
}
