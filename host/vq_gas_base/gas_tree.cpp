#include "vq_gas_base/gas_tree.h"

#include <algorithm>
#include <limits>
#include <new>

#include "vq_app_base/app_base.h"
#include "vq_gas_base/gas_tree_query.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"

namespace {

/// A ray with a radius: boxes are grown by `extent` on every axis.
class GasExtentRay {
 public:
  GasExtentRay(const GeometryRaytraceCtx& query, uint r)
      : ray_(query.get_ray(r)),
        extent_(query.intervals[r].extent),
        tnear_(query.get_tnear(r)),
        tfar_(query.get_tfar(r)) {}

  /// For the nodes. Its interval also has the origin in it, where a grown box may hold it outside of the ray's own.
  GasBinaryRay get_walk_ray(const GMathBbox3<float>& bounds) const {
    const float grown = static_cast<float>(extent_) * (1.0f + 0x1p-22f);
    return GasBinaryRay(ray_, std::min(tnear_, 0.0), std::max(tfar_, 0.0), bounds, SimdF(grown));
  }

  /// True if the grown box holds the origin or is crossed within the interval.
  bool reaches(const GMathBbox3<float>& box) const {
    double entry = tnear_, exit = tfar_;
    bool holds_origin = true;
    for (uint axis = 0; axis < 3; ++axis) {
      const double low = double(box.min[axis]) - extent_ - ray_.origin[axis];
      const double high = double(box.max[axis]) + extent_ - ray_.origin[axis];
      if (low > 0.0 || high < 0.0) holds_origin = false;
      if (ray_.direction[axis] == 0.0) {
        if (low > 0.0 || high < 0.0) exit = -std::numeric_limits<double>::infinity();
        continue;
      }
      const double a = low * ray_.inverse[axis], b = high * ray_.inverse[axis];
      entry = std::max(entry, std::min(a, b));
      exit = std::min(exit, std::max(a, b));
    }
    return holds_origin || entry <= exit;
  }

 private:
  const GMathBasicRay<double>& ray_;
  double extent_, tnear_, tfar_;
};

}  // namespace

CoreVector<uint> gas_list_placed(const CoreVector<GMathBbox3<float>>& boxes, const AppBase* app) {
  constexpr uint stop_interval = 65536;
  CoreVector<uint> placed;
  if (boxes.get_count() >= GasBinaryRef::node_flag || !placed.reserve(boxes.get_count())) throw std::bad_alloc();
  for (uint item = 0; item < boxes.get_count(); ++item) {
    if (app != nullptr && item % stop_interval == 0) app->check_stop();
    const GMathBbox3<float>& box = boxes[item];
    if (box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z) placed.add(item);
  }
  return placed;
}

const CoreClassInfo& GasTree::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GasTree", core_destroy_object, CoreBaseObject::class_info(), nullptr);
  return info;
}

GasTree::GasTree(const GasTree& other) : CoreBaseObject(other) { *this = other; }

GasTree& GasTree::operator=(const GasTree& other) {
  if (this == &other) return *this;
  try {
    tree.copy(other.tree);
    order = other.order;
    if (order.get_count() != other.order.get_count()) clear();
  } catch (const std::bad_alloc&) {
    clear();
  }
  ray_leaf = other.ray_leaf;
  frustum_leaf = other.frustum_leaf;
  ray_frustum_leaf = other.ray_frustum_leaf;
  return *this;
}

void GasTree::create(const CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress, const AppBase* app,
                     uint most_leaf) {
  clear();
  CoreVector<uint> placed = gas_list_placed(boxes, app);
  tree.build({boxes.get_items(), placed.get_items(), placed.get_count(), most_leaf, app, progress, false, true});
  if (most_leaf > 1)
    order = std::move(placed);
  else
    tree.name_items(placed.get_items());
}

void GasTree::clear() {
  tree.clear();
  order = CoreVector<uint>();
}

/// Calls bool visit(item) for the items of a leaf until it returns false; returns its last answer.
template <class Visit>
bool GasTree::visit_items(const GasBinaryRef& leaf, const Visit& visit) const {
  if (order.is_empty()) return visit(leaf.index);
  for (u32 k = 0; k < leaf.count; ++k)
    if (!visit(order[leaf.index + k])) return false;
  return true;
}

template <GasWalkHits hits>
void GasTree::walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  if (ray_leaf.function == nullptr) return;
  gas_tree_ray_hit<hits>(tree, query, [&](GasBinaryRay& ray, uint r, const GasBinaryPlace& at) {
    if (GeometryRayVisits* visits = gas_get_visits(query, r)) ++visits->leaves;
    return visit_items(at.ref, [&](const uint& item) {
      ray_leaf.function(ray_leaf.user, item, ctx, shader, query);
      return gas_go_on<hits>(query, r, ray);
    });
  });
}

void GasTree::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  walk_rays<GasWalkHits::all>(ctx, shader, query);
}

void GasTree::ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  walk_rays<GasWalkHits::nearest>(ctx, shader, query);
}

void GasTree::ray_hit_extent(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, void* data) const {
  if (ray_leaf.function == nullptr || tree.is_empty()) return;
  const GasActiveRangeScope scope(query);
  const uint last = query.last_ray;
  for (uint r = query.first_ray; r <= last; ++r) {
    query.first_ray = query.last_ray = r;
    const GasExtentRay extent(query, r);
    GasBinaryRay ray = extent.get_walk_ray(tree.get_bbox());
    if (!ray.touches(tree.get_bbox())) continue;
    const auto visit_item = [&](const uint& item) {
      ray_leaf.function(data, item, ctx, shader, query);
      return query.is_nearest() || query.ray_flags == nullptr || !query.is_stopped(r);
    };
    gas_walk_ray<GasWalkHits::all>(
        tree, GasStillBoxes{tree.get_nodes()}, tree.get_root(), ray, gas_get_visits(query, r),
        [&](const GasBinaryPlace& at) { return !extent.reaches(tree.get_box(at)) || visit_items(at.ref, visit_item); });
  }
}

void GasTree::frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                          const bool& /*motion*/) const {
  if (frustum_leaf.function == nullptr) return;
  const GasBinaryPlace start = gas_find_frustum_start(tree, query);
  if (!start.exists()) return;
  gas_walk_frustum<GasFrustumLeaves::single>(
      tree, {start.ref, 0, query.classify(tree.get_box(start)), GasFrustumPlanes::all_planes},
      GasFrustumPlanes(query, tree.get_bbox()), query, [&](const GasFrustumEntry& leaf) {
        visit_items(leaf.ref, [&](const uint& item) {
          frustum_leaf.function(frustum_leaf.user, item, ctx, shader, query);
          return query.result.finished == 0;
        });
      });
}

void GasTree::ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query,
                              const bool& /*motion*/) const {
  if (ray_frustum_leaf.function == nullptr) return;
  const GasBeamPlanes beam(query.get_beam(), tree.get_bbox());
  float limit = beam.get_distance(query.get_tfar());
  gas_walk_beam(tree, tree.get_root(), beam, limit, query, [&](const GasBinaryRef& leaf) {
    visit_items(leaf, [&](const uint& item) {
      ray_frustum_leaf.function(ray_frustum_leaf.user, item, ctx, shader, query);
      return true;
    });
  });
}

void GasTree::get_clusters(CoreVector<void*>& clusters, const uint& count, const float& ratio) const {
  tree.get_clusters(count, ratio, clusters);
}

void GasTree::get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const {
  for (uint k = 0; k < clusters.get_count(); ++k)
    boxes[k] = tree.get_box(tree.find_cluster(reinterpret_cast<u64>(clusters[k])));
}
