#include "vq_module/object_geometry.h"

#include <algorithm>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_module/module_scene_object.h"

namespace {

/// What a query loses when it continues in another structure, restored at the end.
template <class Query>
class InnerQuery {
 public:
  explicit InnerQuery(Query& query)
      : query_(query),
        shading_(query.shading),
        offset_(query.shading_group_offset),
        group_(query.shading_group),
        cluster_(query.cluster),
        geometry_(query.geometry) {
    query.cluster = 0;
  }
  ~InnerQuery() {
    query_.shading = shading_;
    query_.shading_group_offset = offset_;
    query_.shading_group = group_;
    query_.cluster = cluster_;
    query_.geometry = geometry_;
  }
  InnerQuery(const InnerQuery&) = delete;
  InnerQuery& operator=(const InnerQuery&) = delete;

 private:
  Query& query_;
  const ShadingGroupTable* shading_;
  uint offset_, group_;
  u64 cluster_;
  const GeometryObject* geometry_;
};

}  // namespace

const CoreClassInfo& ObjectGeometry::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ObjectGeometry", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}

ObjectGeometry::ObjectGeometry(std::vector<std::shared_ptr<const ModuleSceneObject>> objects)
    : objects_(std::move(objects)), groups_(1) {
  if (!groups_.is_empty()) groups_[0] = "objects";
}

bool ObjectGeometry::has_motion() const {
  return std::any_of(objects_.begin(), objects_.end(), [](const auto& object) { return object->has_moving_shape(); });
}

GMathBbox3<double> ObjectGeometry::get_primitive_bbox(const CtxEval& /*ctx*/, const uint& primitive) const {
  return objects_[primitive]->get_local_bbox();
}

GMathBbox3<double> ObjectGeometry::get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                                         const uint& primitive) const {
  const GasObject* structure = objects_[primitive]->get_structure();
  return structure != nullptr ? structure->get_bbox_at(ctx, time) : GMathBbox3<double>();
}

void ObjectGeometry::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                       const uint& primitive) const {
  const InnerQuery<GeometryRaytraceCtx> inner(query);
  const uint span_stamp = query.span_stamp;
  if (query.is_nearest()) {
    objects_[primitive]->ray_hit_nearest(ctx, shader, query);
  } else {
    objects_[primitive]->ray_hit(ctx, shader, query);
  }
  query.span_stamp = span_stamp;  // an object without memory for its motion has answered at rest; the next one moves
}

void ObjectGeometry::frustum_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                                           const uint& primitive) const {
  const GeometryFrustumResult outer = std::exchange(query.result, {});
  {
    const InnerQuery<GeometryFrustumCtx> inner(query);
    objects_[primitive]->frustum_hit(ctx, shader, query);
  }
  query.point_count = 0;  // of this geometry, not of the inner one
  const GeometryFrustumResult found = std::exchange(query.result, outer);
  query.add_primitive([&] { return found.hit_count > 0; },
                      [&] { return found.hit_count == found.total && found.outside == 0; });
}
