// tools/vqgas/demo/demo_shapes.h
//
// Basic shapes of the built-in scenes.
#pragma once
#include <functional>
#include <vector>

#include "tools/vqgas/source/mesh_builder.h"

using Point = GMathVec3<double>;

/// A coordinate frame of a shape: axes and origin in the scene.
struct Frame {
  Point origin, x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
  Point map(const Point& p) const { return origin + x * p.x + y * p.y + z * p.z; }
  /// At `origin`, turned by `angle` around the vertical.
  static Frame turned(const Point& origin, double angle);
};

/// A closed tube of quads along a closed curve of t in [0, 1), with texture coordinates (t, around).
void add_tube(MeshBuilder& builder, const std::function<Point(double)>& curve, uint segments, uint sides, double radius,
              uint group);
/// A sphere of quads with triangles at its poles. `relief` scales the radius by direction; null for a smooth sphere.
void add_sphere(MeshBuilder& builder, const Point& center, double radius, uint segments, uint group,
                const std::function<double(const Point&)>& relief = nullptr);
/// An outline in the frame's x and y, extruded along its z from 0 to `depth`: two polygons with as many corners as the
/// outline (counter-clockwise, convex or concave) and a quad for each of its sides.
void add_prism(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& outline, double depth,
               uint group);
/// A surface of revolution: a profile of (radius, height) pairs turned around the frame's y. Radius 0 makes a pole.
/// `relief` scales the radius by angle and height; null for a round body.
void add_lathe(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& profile, uint segments,
               uint group, const std::function<double(double, double)>& relief = nullptr);

/// A sheet of `columns` times `rows` quads: the unit square, mapped to space by `place`. `choose_group` returns the
/// shading group of a quad from its center.
void add_sheet(MeshBuilder& builder, uint columns, uint rows, const std::function<Point(double, double)>& place,
               const std::function<uint(double, double)>& choose_group);
/// An axis-aligned box from `corner` to `corner` + `size`.
void add_box(MeshBuilder& builder, const Point& corner, const Point& size, uint group);

/// A wheel with trapezoid teeth, and a star.
std::vector<GMathVec2<double>> make_gear_outline(uint teeth, double inner, double outer);
std::vector<GMathVec2<double>> make_star_outline(uint points, double inner, double outer);

/// The trefoil knot of t in [0, 1), about 3 across in x and y.
Point get_trefoil_point(double t);

/// Adds motion over the times 0 to 1, with the same samples in all scenes so that they can be joined. `place` returns
/// the position of a vertex, given its number and static position, at a time.
void add_motion(MeshSource& source, const std::function<Point(uint, const Point&, double)>& place);
