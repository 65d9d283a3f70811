#include "vq_geometry/geometry_object.h"

#include "vq_core/core_class_info.h"
#include "vq_geometry/geometry_uv_map.h"

namespace {

template <class GetBox>
GMathBbox3<double> unite_valid_boxes(uint count, const GetBox& get_box) {
  GMathBbox3<double> out;
  for (uint primitive = 0; primitive < count; ++primitive) {
    const GMathBbox3<double> box = get_box(primitive);
    if (gmath_is_valid_box(box)) out.add(box);
  }
  return out;
}

GMathBbox3<double> measure_corners(const GMathBbox3<double>& box, const GMathLinearSpace3<double>& space) {
  GMathBbox3<double> out;
  for (uint corner = 0; corner < 8; ++corner) out.add(space.measure(box.get_corner(corner)));
  return out;
}

}  // namespace

const CoreClassInfo& GeometryObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GeometryObject", core_destroy_object, ResourceData::class_info(), nullptr);
  return info;
}

GMathBbox3<double> GeometryObject::get_primitive_bbox_at(const CtxEval& ctx, const double& /*time*/,
                                                         const uint& primitive) const {
  return get_primitive_bbox(ctx, primitive);
}

GMathBbox3<double> GeometryObject::get_primitive_bbox_in_space(const CtxEval& ctx,
                                                               const GMathLinearSpace3<double>& space,
                                                               const uint& primitive) const {
  return measure_corners(get_primitive_bbox(ctx, primitive), space);
}

GMathBbox3<double> GeometryObject::unite_primitive_bboxes_in_space(const CtxEval& ctx,
                                                                   const GMathLinearSpace3<double>& space,
                                                                   const CoreBasicArray<uint>& primitives) const {
  GMathBbox3<double> box;
  for (const uint& primitive : primitives) box.add(get_primitive_bbox_in_space(ctx, space, primitive));
  return box;
}

GMathBbox3<double> GeometryObject::get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                                  const GMathLinearSpace3<double>& space,
                                                                  const uint& primitive) const {
  return measure_corners(get_primitive_bbox_at(ctx, time, primitive), space);
}

GMathLinearSpace3<double> GeometryObject::get_primitive_space(const CtxEval& /*ctx*/, const uint& /*primitive*/) const {
  return {};
}

GMathBbox3<double> GeometryObject::get_bbox(const CtxEval& ctx) const {
  return unite_valid_boxes(get_primitive_count(),
                           [&](const uint& primitive) { return get_primitive_bbox(ctx, primitive); });
}

GMathBbox3<double> GeometryObject::get_bbox_at(const CtxEval& ctx, const double& time) const {
  return unite_valid_boxes(get_primitive_count(),
                           [&](const uint& primitive) { return get_primitive_bbox_at(ctx, time, primitive); });
}

bool GeometryObject::get_uv_map_index(const CoreString& name, uint& index) const {
  for (uint map = 0; map < get_uv_count(); ++map) {
    const GeometryUvMap* uv_map = get_uv_map(map);
    if (uv_map == nullptr || uv_map->name != name) continue;
    index = map;
    return true;
  }
  return false;
}

const GeometryUvMap* GeometryObject::get_uv_map(uint /*index*/) const { return nullptr; }

uint GeometryObject::get_polygon_vertex_count(uint /*polygon*/) const { return 0; }
uint GeometryObject::get_polygon_vertex(uint /*polygon*/, uint /*corner*/) const { return core_invalid_index; }
bool GeometryObject::is_polygon_valid(uint /*polygon*/) const { return false; }
bool GeometryObject::is_edge_visible(uint /*polygon*/, uint /*corner*/) const { return false; }
double GeometryObject::get_edge_proximity(const GeometryIntersection& /*hit*/) const { return 0.0; }
GMathVec3<float> GeometryObject::get_polygon_uv(const CtxEval& /*ctx*/, uint /*map*/, uint /*polygon*/,
                                                const GMathVec3<double>& /*uvw*/) const {
  return {};
}
