#include "gas/gas_point.h"

#include <algorithm>
#include <cmath>

#include "gas/frame/gas_guard.h"
#include "gas/frame/gas_rebuild.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_particle/particle_cloud.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GAS_BUILD_BEGIN, EVT_ID_GAS_BUILD_END};

void grid_leaf_bboxes(void* cloud, const CtxEval& ctx, const uint& count, const uint* leaves, GMathBbox3<float>* out) {
  GasPoint::get_leaf_bboxes(static_cast<const ParticleCloud*>(cloud), ctx, count, leaves, out);
}

bool is_finite(const GMathVec3<float>& p) {
  return gmath_isfinited(p.x) && gmath_isfinited(p.y) && gmath_isfinited(p.z);
}

/// Coordinates of `p` in the plane of a triangle: p = a + u (b - a) + v (c - a). NaN or infinite for a degenerate one.
struct PlanePlace {
  double u, v;

  PlanePlace(const GMathVec3<double>& p, const GMathVec3<double>& a, const GMathVec3<double>& b,
             const GMathVec3<double>& c) {
    const GMathVec3<double> ab = b - a, ac = c - a, ap = p - a;
    const GMathVec3<double> normal = ab.cross(ac);
    const double scale = 1.0 / normal.dot(normal);
    u = ap.cross(ac).dot(normal) * scale;
    v = ab.cross(ap).dot(normal) * scale;
  }
  bool is_inside() const { return u >= -1e-8 && v >= -1e-8 && u + v <= 1.00000001; }
};

/// 1 on the border of the cross-section, falling to 0 at the depth of half an edge width, and 1 again further inside.
double get_border_weight(const PlanePlace& place, double edge) {
  const double a = place.u, b = place.u + place.v;
  const double depth = 0.5 - std::max(std::fabs(a - 0.5), std::fabs(b - 0.5));
  const double width = 0.5 / edge;
  return depth < width ? 1.0 - depth / width : 1.0;
}

}  // namespace

GasPoint::GasPoint(const GasPoint& other) : GasObject(other) { *this = other; }

GasPoint& GasPoint::operator=(const GasPoint& other) {
  if (this == &other) return *this;
  GasObject::operator=(other);
  cloud = other.cloud;
  points = other.points;
  point_count = other.point_count;
  grid = other.grid;
  install_grid_callbacks();
  if (grid.is_empty() != other.grid.is_empty()) clear();
  memory_account.reset(GasPoint::get_memory_size());
  return *this;
}

GasPoint::~GasPoint() = default;

void GasPoint::clear() {
  grid.clear();
  cloud = nullptr;
  points = nullptr;
  point_count = 0;
}

void GasPoint::create(const AppBase& app, const CtxEval& ctx, const ParticleCloud* new_cloud,
                      AppProgressBar* progress) {
  grid.clear();
  cloud = new_cloud;
  gas_rebuild(
      "GasPoint.create", [&] { build(app, ctx, progress); }, [&] { clear(); });
  memory_account.reset(get_memory_size());
}

void GasPoint::build(const AppBase& app, const CtxEval& ctx, AppProgressBar* progress) {
  point_count = cloud != nullptr ? cloud->get_point_count(app, ctx) : 0;  // before the points: it may compute them
  points = point_count > 0 ? cloud->get_point_cloud() : nullptr;
  point_count = points != nullptr ? std::min(point_count, points->get_count()) : 0;
  if (point_count == 0) return;
  uint left_out = 0;
  {
    CoreVector<GMathBbox3<float>> boxes;
    gas_need(boxes.reserve(point_count));
    for (uint point = 0; point < point_count; ++point) {
      gas_check_stop(app, point);
      const GMathVec3<float>& p = points->get_position(point);
      const bool is_kept = is_finite(p);
      boxes.add(is_kept ? GMathBbox3<float>(p, p) : GMathBbox3<float>());  // the grid gives an empty box no leaf
      if (!is_kept) ++left_out;
    }
    install_grid_callbacks();  // before create(): the grid then keeps no copy of the boxes
    grid.create(boxes, 8 * app.get_thread_count(), progress, &app);
  }
  callbacks.frustum_hit = frustum_hit_callback;
  callbacks.ray_frustum_hit = ray_frustum_hit_callback;
  if (left_out == 0) return;
  gas_log(gas_log_warning, [&](CoreLogStream& message) {
    message << "GasPoint.create: " << left_out << " of " << point_count
            << " points are not finite and will be left out!\n";
  });
}

void GasPoint::install_grid_callbacks() {
  grid.set_leaf_boxes(grid_leaf_bboxes, const_cast<ParticleCloud*>(cloud));
  grid.set_items_callbacks(leaf_frustum_hit_callback, leaf_ray_frustum_hit_callback, this);
  grid.set_memory_change(
      [](const u64& old_size, const u64& new_size, void* structure) {
        const auto& self = *static_cast<const GasPoint*>(structure);
        self.memory_account.update(old_size, new_size, self);
      },
      this);
}

GMathBbox3<double> GasPoint::get_bbox() const { return GMathBbox3<double>(grid.get_bbox()); }

u64 GasPoint::get_memory_size() const { return sizeof(GasPoint) - sizeof(GasGridTree) + grid.get_memory_size(); }

void GasPoint::get_leaf_bboxes(const ParticleCloud* cloud, const CtxEval& ctx, const unsigned int& count,
                               const unsigned int* leaves, GMathBbox3<float>* out) {
  const GeometryPointCloud* points = cloud->get_point_cloud();
  for (uint k = 0; k < count; ++k) {
    gas_check_stop(ctx.get_application(), k);
    out[k].min = out[k].max = points->get_position(leaves[k]);
  }
}

void GasPoint::frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                    GeometryFrustumCtx& query) {
  const auto& self = static_cast<const GasPoint&>(*object);
  query.geometry = self.cloud;
  query.result = GeometryFrustumResult();
  if (query.mode == static_cast<uint>(GeometryFrustumMode::all)) query.result.total += self.point_count;
  gas_try([&] { self.grid.frustum_hit(ctx, shader, query); });
}

void GasPoint::ray_frustum_hit_callback(const GasObject* object, const CtxEval& ctx, CtxShader& shader,
                                        GeometryRayFrustumCtx& query) {
  const auto& self = static_cast<const GasPoint&>(*object);
  gas_try([&] {
    for (uint beam = 0; beam < query.get_frustum_count(); ++beam) {
      query.init(beam);
      self.grid.ray_frustum_hit(ctx, shader, query);
    }
  });
}

void GasPoint::leaf_frustum_hit_callback(void* structure, const GasGridItems& leaves, const CtxEval& /*ctx*/,
                                         CtxShader& /*shader*/, GeometryFrustumCtx& query) {
  static_cast<const GasPoint*>(structure)->hit_frustum(leaves, query);
}

void GasPoint::leaf_ray_frustum_hit_callback(void* /*structure*/, const GasGridItems& leaves, const CtxEval& /*ctx*/,
                                             CtxShader& /*shader*/, GeometryRayFrustumCtx& query) {
  for (uint k = 0; k < leaves.count; ++k) hit_beam(GMathVec3<double>(leaves.get_low(k)), leaves.numbers[k], query);
}

void GasPoint::leaf_frustum_hit(const unsigned int& leaf, const CtxEval& /*ctx*/, CtxShader& /*shader*/,
                                GeometryFrustumCtx& query) const {
  hit_frustum({&leaf, &points->get_position(leaf), 1, 1}, query);
}

void GasPoint::leaf_ray_frustum_hit(const unsigned int& leaf, const CtxEval& /*ctx*/, CtxShader& /*shader*/,
                                    GeometryRayFrustumCtx& query) const {
  hit_beam(GMathVec3<double>(points->get_position(leaf)), leaf, query);
}

void GasPoint::hit_frustum(const GasGridItems& leaves, GeometryFrustumCtx& query) const {
  const auto for_each = [&](const auto& visit) {
    for (uint k = 0; k < leaves.count; ++k) visit(leaves.numbers[k], GMathVec3<double>(leaves.get_low(k)));
  };
  switch (static_cast<GeometryFrustumMode>(query.mode)) {
    case GeometryFrustumMode::any:
      query.result.hit_count += leaves.count;  // the grid has already tested the points
      break;
    case GeometryFrustumMode::all:
      for_each([&](uint /*point*/, const GMathVec3<double>& position) {
        if (query.contains(position)) {
          ++query.result.hit_count;
        } else {
          query.result.outside = 1;
        }
      });
      break;
    case GeometryFrustumMode::points:
      for_each([&](uint /*point*/, const GMathVec3<double>& position) { query.push_point(position); });
      break;
    case GeometryFrustumMode::vertices:
      for_each([&](uint point, const GMathVec3<double>& position) {
        query.push_point_cloud_vertex(position, cloud, point);
      });
      break;
  }
}

void GasPoint::hit_beam(const GMathVec3<double>& position, uint point, GeometryRayFrustumCtx& query) {
  const GMathVec3<double>& normal = query.get_plane_normal();
  const double along = query.get_direction().dot(normal);
  if (along == 0.0) return;
  const double t = (position - query.get_origin()).dot(normal) / along;
  if (t >= query.get_tfar() || t < query.get_tnear()) return;
  GMathVec3<double> corner[4];
  query.get_corners(t, corner);
  // Both triangles share the diagonal from corner 0 to 2, so that u and u + v are coordinates of the whole
  // cross-section.
  PlanePlace place(position, corner[0], corner[2], corner[3]);
  if (!place.is_inside()) place = PlanePlace(position, corner[0], corner[2], corner[1]);
  if (!place.is_inside()) return;
  query.get_record() = {t, get_border_weight(place, query.edge), point, query.object};
}
