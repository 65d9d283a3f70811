// host/vq_geometry/geometry_fragment.h
//
// A place on a polygon, for evaluating what varies over a geometry.
//
//   GeometryFragment fragment(ctx, geometry);
//   fragment.set_polygon(p);
//   fragment.set_uvw({0.5, 0.5, 0.0});
//   const GMathVec3<float> uv = fragment.get_uv(0);
#pragma once
#include "vq_geometry/geometry_object.h"

/// One thread at a time. Context and geometry must outlive the fragment.
class GeometryFragment {
 public:
  GeometryFragment(const CtxEval& ctx, const GeometryObject& geometry) : ctx_(ctx), geometry_(geometry) {}

  void set_polygon(uint polygon) { polygon_ = polygon; }
  /// Parametric coordinates as for GeometryObject::get_polygon_uv().
  void set_uvw(const GMathVec3<double>& uvw) { uvw_ = uvw; }
  /// Places the fragment at a corner of a triangle or quadrilateral.
  void set_corner(uint corner_count, uint corner) {
    constexpr double u[2][4] = {{0.0, 1.0, 0.0, 0.0}, {0.0, 1.0, 1.0, 0.0}};
    constexpr double v[2][4] = {{0.0, 0.0, 1.0, 0.0}, {0.0, 0.0, 1.0, 1.0}};
    const uint shape = corner_count == 4 ? 1 : 0;
    set_uvw({u[shape][corner], v[shape][corner], 0.0});
  }

  /// The texture coordinates of UV map `map` there.
  GMathVec3<float> get_uv(uint map) const { return geometry_.get_polygon_uv(ctx_, map, polygon_, uvw_); }

 private:
  const CtxEval& ctx_;
  const GeometryObject& geometry_;
  uint polygon_ = 0;
  GMathVec3<double> uvw_;
};
