#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

/// Calls `visit` with every plane, sides before ends, until it returns false.
template <class Visit>
bool all_planes(const GeometryFrustumData& frustum, const Visit& visit) {
  for (uint k = 0; k < frustum.plane_count; ++k)
    if (!visit(frustum.planes[k])) return false;
  for (uint k = 0; k < frustum.end_plane_count; ++k)
    if (!visit(frustum.end_planes[k])) return false;
  return true;
}

bool has_nan(const GMathBbox3<float>& box) {
  for (uint axis = 0; axis < 3; ++axis)
    if (std::isnan(box.min[axis]) || std::isnan(box.max[axis])) return true;
  return false;
}

/// The box corner that lies farthest along `normal`.
GMathVec3<double> get_farthest_corner(const GMathBbox3<float>& box, const GMathVec3<double>& normal) {
  return {normal.x > 0.0 ? box.max.x : box.min.x, normal.y > 0.0 ? box.max.y : box.min.y,
          normal.z > 0.0 ? box.max.z : box.min.z};
}

}  // namespace

void GeometryFrustumData::transform(const GMathMatrix4x4<double>& inverse, const GMathMatrix4x4<double>& matrix) {
  for (uint k = 0; k < plane_count; ++k) planes[k] = planes[k].get_transformed(inverse, matrix);
  for (uint k = 0; k < end_plane_count; ++k) end_planes[k] = end_planes[k].get_transformed(inverse, matrix);
}

void GeometryFrustumCtx::clear_results() {
  result = GeometryFrustumResult();
  points_->clear();
  clear_objects();
}

bool GeometryFrustumCtx::add_plane(const GeometryPlane& plane) {
  if (plane_count == plane_capacity) return false;
  planes[plane_count++] = plane;
  return true;
}

void GeometryFrustumCtx::add_object(const uint& index) {
  set_decided(index);
  if (object_states_[index] != ObjectState::listed) objects_.push_back(index);
  object_states_[index] = ObjectState::listed;
}

void GeometryFrustumCtx::set_decided(const uint& index) {
  if (index >= object_states_.size()) object_states_.resize(std::size_t{index} + 1);
  if (object_states_[index] != ObjectState::unknown) return;
  object_states_[index] = ObjectState::decided;
  decided_.push_back(index);
}

void GeometryFrustumCtx::begin_nested(GeometryFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                                      const GMathMatrix4x4<double>& matrix) {
  static_cast<GeometryFrustumData&>(*this) = outer;
  transform(inverse, matrix);
  result = GeometryFrustumResult();
  points_ = outer.points_;
  clear_objects();
}

void GeometryFrustumCtx::clear_objects() {
  for (const uint index : decided_) object_states_[index] = ObjectState::unknown;
  decided_.clear();
  objects_.clear();
}

GeometryBoxPlace GeometryFrustumCtx::classify(const GMathBbox3<float>& box) const {
  if (has_nan(box)) return GeometryBoxPlace::straddling;
  bool inside = true;
  const bool reached = all_planes(*this, [&](const GeometryPlane& plane) {
    if (plane.measure(get_farthest_corner(box, plane.normal)) < 0.0) return false;
    // Not `< 0`: an infinite bound along a zero component measures NaN, which must not count as inside.
    if (!(plane.measure(get_farthest_corner(box, -plane.normal)) >= 0.0)) inside = false;
    return true;
  });
  if (!reached) return GeometryBoxPlace::outside;
  return inside ? GeometryBoxPlace::inside : GeometryBoxPlace::straddling;
}

bool GeometryFrustumCtx::contains(const GMathVec3<double>& point) const {
  return all_planes(*this, [&](const GeometryPlane& plane) { return plane.measure(point) >= 0.0; });
}
