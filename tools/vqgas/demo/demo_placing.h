// tools/vqgas/demo/demo_placing.h
//
// Matrices of the objects of the built-in scenes, and their keys over time.
#pragma once
#include <functional>
#include <vector>

#include "tools/vqgas/demo/demo_shapes.h"
#include "vq_module/module_scene_item.h"

using Matrix = GMathMatrix4x4<double>;

Matrix move_to(const Point& place);
/// Around the axis x, y or z (0, 1, 2), counter-clockwise when it points to the viewer.
Matrix turn_around(uint axis, double angle);
/// Negative factors mirror.
Matrix scale_by(const Point& factors);
/// Shears along the height: height 0 stays, height 1 moves by `x` and `z`.
Matrix lean_by(double x, double z);
/// From the frame's space to the space that the frame is given in.
Matrix map_to(const Frame& frame);

/// `steps` + 1 keys evenly over the times 0 to 1. Matrices are blended entry by entry between keys, which shrinks
/// turning objects: use a key every few degrees.
std::vector<ModuleMatrixKey> make_keys(uint steps, const std::function<Matrix(double)>& get_matrix);
/// One key: static.
inline std::vector<ModuleMatrixKey> stand_at(const Matrix& matrix) { return {{0.0, matrix}}; }
