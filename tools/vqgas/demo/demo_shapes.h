// tools/vqgas/demo/demo_shapes.h
//
// The shapes that the built-in scenes are put together from.
#pragma once
#include <functional>
#include <vector>

#include "tools/vqgas/source/mesh_builder.h"

using Point = GMathVec3<double>;

/// Where a shape stands: its own axes and origin in the scene.
struct Frame {
  Point origin, x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
  Point map(const Point& p) const { return origin + x * p.x + y * p.y + z * p.z; }
  /// Standing at `origin`, turned by `angle` around the vertical.
  static Frame turned(const Point& origin, double angle);
};

/// A closed tube of quads along a closed curve of t in [0, 1), with texture coordinates (t, around).
void add_tube(MeshBuilder& builder, const std::function<Point(double)>& curve, uint segments, uint sides, double radius,
              uint group);
/// A sphere of quads with triangles at its poles. `relief` scales the radius by direction; null for a smooth sphere.
void add_sphere(MeshBuilder& builder, const Point& center, double radius, uint segments, uint group,
                const std::function<double(const Point&)>& relief = nullptr);
/// An outline in the frame's x and y, drawn out along its z from 0 to `depth`: two polygons with as many corners as the
/// outline (counter-clockwise, concave ones welcome) and a quad a side.
void add_prism(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& outline, double depth,
               uint group);
/// A profile of (radius, height) pairs turned around the frame's y. Radius 0 makes a pole. `relief` scales the radius
/// by angle and height; null for a round body.
void add_lathe(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& profile, uint segments,
               uint group, const std::function<double(double, double)>& relief = nullptr);

/// A sheet of `columns` times `rows` quads: the unit square as `place` bends it. `choose_group` gives each quad its
/// shading group, by its middle.
void add_sheet(MeshBuilder& builder, uint columns, uint rows, const std::function<Point(double, double)>& place,
               const std::function<uint(double, double)>& choose_group);
/// Straight from `corner` along the three axes, as long as `size` says.
void add_box(MeshBuilder& builder, const Point& corner, const Point& size, uint group);

/// A wheel with trapezoid teeth, and a star.
std::vector<GMathVec2<double>> make_gear_outline(uint teeth, double inner, double outer);
std::vector<GMathVec2<double>> make_star_outline(uint points, double inner, double outer);

/// The trefoil knot of t in [0, 1), about 3 across in x and y.
Point get_trefoil_point(double t);

/// Lets a mesh move over the times 0 to 1, with the same samples in all scenes so that they fit each other. `place`
/// tells where a vertex, given with its number and where it rests, is at a time.
void add_motion(MeshSource& source, const std::function<Point(uint, const Point&, double)>& place);
