#include "gas/structure/gas_frustum_modes.h"

#include <algorithm>

#include "gas/structure/gas_leaf.h"
#include "vq_geometry/geometry_point_cloud.h"

namespace {

/// Adds to the total with which a query of mode all compares its hits.
void count_testable_primitives(const CoreBasicArray<uint>& group_counts, GeometryFrustumCtx& query) {
  for (uint group = 0; group < group_counts.get_count(); ++group) {
    if (gas_is_shaded(CtxHelpers::get_shading(query, group + query.shading_group_offset)))
      query.result.total += group_counts[group];
  }
}

bool clear_mask(const GeometryObject* geometry, GeometryFrustumCtx& query) {
  const GeometryPointCloud* cloud = geometry != nullptr ? geometry->get_point_cloud() : nullptr;
  query.point_count = cloud != nullptr ? cloud->get_count() : 0;
  if (query.mask.size() < query.point_count) query.mask.resize(query.point_count);
  std::fill_n(query.mask.begin(), query.point_count, u8{0});
  // Without a cloud primitives may still hold structures that have points.
  return geometry != nullptr && (cloud == nullptr || query.point_count > 0);
}

}  // namespace

bool gas_begin_frustum(const CoreBasicArray<uint>& group_counts, const GeometryObject* geometry,
                       GeometryFrustumCtx& query) {
  switch (static_cast<GeometryFrustumMode>(query.mode)) {
    case GeometryFrustumMode::any:
      return true;
    case GeometryFrustumMode::all:
      count_testable_primitives(group_counts, query);
      return true;
    case GeometryFrustumMode::points:
    case GeometryFrustumMode::vertices:
      return clear_mask(geometry, query);
  }
  return false;
}

void gas_end_frustum(const GeometryObject* geometry, GeometryFrustumCtx& query) {
  const bool is_points = query.mode == static_cast<uint>(GeometryFrustumMode::points);
  if (!is_points && query.mode != static_cast<uint>(GeometryFrustumMode::vertices)) return;
  const GeometryPointCloud* cloud = geometry->get_point_cloud();
  for (uint point = 0; point < query.point_count; ++point) {
    if (query.mask[point] == 0) continue;
    const GMathVec3<double> position(cloud->get_position(point));
    if (is_points) {
      query.push_point(position);
    } else {
      query.push_point_cloud_vertex(position, geometry, point);
    }
  }
}
