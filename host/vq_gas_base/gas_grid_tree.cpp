#include "vq_gas_base/gas_grid_tree.h"

#include <algorithm>
#include <bit>
#include <new>

#include "vq_app_base/app_base.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_gas_base/gas_grid_cells.h"
#include "vq_gas_base/gas_tree_query.h"

namespace {

constexpr uint primitives_per_leaf = 4;
/// Of small items: a node takes 64 bytes, as much as several of them.
constexpr uint items_per_leaf = 16;
/// Points are tested four at a time.
constexpr uint corner_padding = 3;

template <class T>
CoreAlignedArray<T> make_array(std::size_t count) {
  CoreAlignedArray<T> array(count);
  if (!array && count > 0) throw std::bad_alloc();
  return array;
}

/// Calls visit(GasGridItems) with each run of items of a leaf that a query reaches.
/// @param points  uint points(const GMathVec3<float>*): bit k is set when point k of four is reached
/// @param box     bool box(const GMathBbox3<float>&)
template <class TestPoints, class TestBox, class Visit>
void visit_reached(const GasGridItems& items, const TestPoints& points, const TestBox& box, const Visit& visit) {
  static_assert(items_per_leaf < 32);
  u32 reached = 0;
  if (items.stride == 1) {
    for (uint k = 0; k < items.count; k += 4) reached |= points(items.corners + k) << k;
    reached &= (1u << items.count) - 1;
  } else {
    for (uint k = 0; k < items.count; ++k) reached |= (box(items.get_box(k)) ? 1u : 0u) << k;
  }
  while (reached != 0) {
    const uint first = static_cast<uint>(std::countr_zero(reached));
    const uint length = static_cast<uint>(std::countr_one(reached >> first));
    visit(items.get_range(first, length));
    reached &= ~(((1u << length) - 1) << first);
  }
}

}  // namespace

const CoreClassInfo& GasGridTree::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("GasGridTree", core_destroy_object, GasTree::class_info(), nullptr);
  return info;
}

GasGridTree::GasGridTree(const GasGridTree& other) : GasGridTree() { *this = other; }

GasGridTree& GasGridTree::operator=(const GasGridTree& other) {
  if (this == &other) return *this;
  GasTree::operator=(other);
  callbacks_ = other.callbacks_;
  provider_enabled_ = other.provider_enabled_;
  items_callbacks_ = other.items_callbacks_;
  tests_items_ = other.tests_items_;
  const bool is_tree_copied = !tree.is_empty();
  try {
    copy_from(other);
    if (!is_tree_copied) clear();
  } catch (const std::bad_alloc&) {
    clear();
  }
  return *this;
}

void GasGridTree::copy_from(const GasGridTree& other) {
  auto positions = make_array<uint>(other.positions_.get_count());
  auto boxes = make_array<GMathBbox3<float>>(other.boxes_.get_count());
  auto parts = std::make_unique<GasGridPart[]>(other.part_count_);
  std::copy(other.boxes_.begin(), other.boxes_.end(), boxes.begin());
  for (uint k = 0; k < other.part_count_; ++k) {
    parts[k].first = other.parts_[k].first;
    parts[k].count = other.parts_[k].count;
    uint* first = positions.get() + parts[k].first;
    std::copy_n(other.positions_.get() + parts[k].first, parts[k].count, first);
  }
  positions_ = std::move(positions);
  boxes_ = std::move(boxes);
  parts_ = std::move(parts);
  part_count_ = other.part_count_;
  close_parts();
}

void GasGridTree::create(const CoreVector<GMathBbox3<float>>& boxes, const uint& resolution, AppProgressBar* progress,
                         const AppBase* app) {
  clear();
  try {
    sort_into_parts(boxes, resolution, progress, app);
    if (!provider_enabled_) keep_boxes(boxes);
  } catch (...) {
    clear();
    throw;
  }
  count_own_bytes();
}

void GasGridTree::sort_into_parts(const CoreVector<GMathBbox3<float>>& boxes, uint resolution, AppProgressBar* progress,
                                  const AppBase* app) {
  CoreVector<uint> placed = gas_list_placed(boxes, app);
  const AppProgressScope stage(progress, "Build grid", 1.0, 3);
  const std::vector<GasGridCell> cells =
      gas_sort_into_cells(boxes, placed.get_items(), placed.get_count(), resolution, app);
  stage.step(1);
  part_count_ = static_cast<uint>(cells.size());
  positions_ = make_array<uint>(placed.get_count());
  std::copy(placed.begin(), placed.end(), positions_.begin());
  parts_ = std::make_unique<GasGridPart[]>(part_count_);
  CoreVector<GMathBbox3<float>> part_boxes;
  if (!part_boxes.reserve(part_count_)) throw std::bad_alloc();
  for (uint k = 0; k < part_count_; ++k) {
    parts_[k].first = cells[k].first;
    parts_[k].count = cells[k].count;
    part_boxes.add(cells[k].box);
  }
  stage.step(2);
  GasTree::create(part_boxes, nullptr, app);
  stage.step(3);
}

void GasGridTree::clear() {
  GasTree::clear();
  positions_.reset();
  boxes_.reset();
  parts_.reset();
  part_count_ = 0;
  close_parts();
}

void GasGridTree::keep_boxes(const CoreVector<GMathBbox3<float>>& boxes) {
  boxes_ = make_array<GMathBbox3<float>>(boxes.get_count());
  std::copy(boxes.begin(), boxes.end(), boxes_.begin());
}

void GasGridTree::close_parts() {
  for (uint k = 0; k < part_count_; ++k) {
    parts_[k].state.reset();
    parts_[k].tree.clear();
    parts_[k].corners.reset();
  }
  part_bytes_.store(0);
  built_count_.store(0);
  count_own_bytes();
}

void GasGridTree::count_own_bytes() {
  own_bytes_ = tree.get_memory_size() + positions_.get_bytes() + boxes_.get_bytes() + part_count_ * sizeof(GasGridPart);
}

CoreVector<uint> GasGridTree::list_parts(uint box_count) const {
  CoreVector<uint> part_of;
  if (!part_of.resize(box_count)) throw std::bad_alloc();
  std::fill(part_of.begin(), part_of.end(), core_invalid_index);
  for (uint part = 0; part < part_count_; ++part)
    for (uint k = 0; k < parts_[part].count; ++k) part_of[positions_[parts_[part].first + k]] = part;
  return part_of;
}

void GasGridTree::set_callbacks(const GasGridCallbacks& callbacks) {
  callbacks_ = callbacks;
  provider_enabled_ = callbacks.leaf_boxes != nullptr;
  tests_items_ = false;
  if (provider_enabled_) boxes_.reset();
  close_parts();
}

void GasGridTree::set_leaf_boxes(GasGridLeafBoxes function, void* user) {
  callbacks_.leaf_boxes = function;
  callbacks_.leaf_boxes_user = user;
  provider_enabled_ = function != nullptr;
  tests_items_ = true;
  if (provider_enabled_) boxes_.reset();
  close_parts();
}

void GasGridTree::set_memory_change(GasGridMemoryChange function, void* user) {
  callbacks_.memory = function;
  callbacks_.memory_user = user;
}

void GasGridTree::build_part(const CtxEval& ctx, GasGridPart& part) const {
  ctx.get_application().check_stop();  // else a query would request the boxes of all parts that are left
  uint* positions = const_cast<uint*>(positions_.get()) + part.first;
  // A former build permuted them, and the tree must not depend on it.
  if (!std::is_sorted(positions, positions + part.count)) std::sort(positions, positions + part.count);
  auto boxes = make_array<GMathBbox3<float>>(part.count);
  if (provider_enabled_) {
    callbacks_.leaf_boxes(callbacks_.leaf_boxes_user, ctx, part.count, positions, boxes.get());
  } else {
    for (uint k = 0; k < part.count; ++k) boxes[k] = boxes_[positions[k]];
  }
  auto order = make_array<uint>(part.count), sorted = make_array<uint>(part.count);
  for (uint k = 0; k < part.count; ++k) order[k] = k;
  GasGridPart made;
  if (tests_items_) {
    keep_corners(made.tree.build_by_codes(
                     {boxes.get(), order.get(), part.count, items_per_leaf, &ctx.get_application(), nullptr}),
                 made);
  } else {
    made.tree.build({boxes.get(), order.get(), part.count, primitives_per_leaf, &ctx.get_application(), nullptr, true});
  }
  for (uint k = 0; k < part.count; ++k) sorted[k] = positions[order[k]];
  std::copy(sorted.begin(), sorted.end(), positions);
  part.tree = std::move(made.tree);
  part.corners = std::move(made.corners);
  part.corner_stride = made.corner_stride;
  built_count_.fetch_add(1, std::memory_order_relaxed);
  const u64 grown = part.get_memory_size();
  const u64 before = sizeof(GasGridTree) + own_bytes_ + part_bytes_.fetch_add(grown, std::memory_order_relaxed);
  if (callbacks_.memory != nullptr) callbacks_.memory(before, before + grown, callbacks_.memory_user);
}

void GasGridTree::keep_corners(const CoreAlignedArray<GMathBbox3<float>>& boxes, GasGridPart& part) {
  const bool are_points =
      std::all_of(boxes.begin(), boxes.end(), [](const GMathBbox3<float>& box) { return box.min == box.max; });
  part.corner_stride = are_points ? 1 : 2;
  part.corners = make_array<GMathVec3<float>>(part.corner_stride * boxes.get_count() + corner_padding);
  GMathVec3<float>* corner = part.corners.get();
  for (const GMathBbox3<float>& box : boxes) {
    *corner++ = box.min;
    if (!are_points) *corner++ = box.max;
  }
  std::fill(corner, part.corners.end(), GMathVec3<float>());
}

template <GasWalkHits hits>
void GasGridTree::walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                            const GasTreeLeaf<GeometryRaytraceCtx>& primitive) const {
  if (primitive.function == nullptr) return;
  gas_tree_ray_hit<hits>(tree, query, [&](GasBinaryRay& ray, uint r, const GasBinaryPlace& top) {
    const GasGridPart* part = open_part(ctx, top.ref.index);
    if (part == nullptr) return true;
    const GasStillBoxes boxes{part->tree.get_nodes()};
    const auto walk = [&](const auto& leaf) {
      return gas_walk_ray<hits>(part->tree, boxes, part->tree.get_root(), ray, gas_get_visits(query, r), leaf);
    };
    if (!tests_items_)
      return walk(GasPartLeaf<hits>{positions_.get() + part->first, primitive, ctx, shader, query, ray, r});
    return walk([&](const GasBinaryPlace& at) {
      if (GeometryRayVisits* visits = gas_get_visits(query, r)) ++visits->leaves;
      const GasGridItems items = get_items(*part, at.ref);
      for (uint k = 0; k < items.count; ++k) {
        if (!ray.touches(items.get_box(k))) continue;
        primitive.function(primitive.user, items.numbers[k], ctx, shader, query);
        if (!gas_go_on<hits>(query, r, ray)) return false;
      }
      return true;
    });
  });
}

const GasTreeLeaf<GeometryRaytraceCtx>& GasGridTree::get_ray_primitive() const {
  return callbacks_.ray.function != nullptr ? callbacks_.ray : ray_leaf;
}

const GasTreeLeaf<GeometryRaytraceCtx>& GasGridTree::get_nearest_primitive() const {
  return callbacks_.nearest.function != nullptr ? callbacks_.nearest : ray_leaf;
}

void GasGridTree::ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  walk_rays<GasWalkHits::all>(ctx, shader, query, get_ray_primitive());
}

void GasGridTree::ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const {
  walk_rays<GasWalkHits::nearest>(ctx, shader, query, get_nearest_primitive());
}

void GasGridTree::frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query,
                              const bool& /*motion*/) const {
  const GasTreeLeaf<GeometryFrustumCtx>& primitive =
      callbacks_.frustum.function != nullptr ? callbacks_.frustum : frustum_leaf;
  const auto items_callback = tests_items_ ? items_callbacks_.frustum : nullptr;
  const GasBinaryPlace start = gas_find_frustum_start(tree, query);
  if (!start.exists() || (primitive.function == nullptr && items_callback == nullptr)) return;
  const GasFrustumPlanes planes(query, tree.get_bbox());
  const bool is_any = query.mode == static_cast<uint>(GeometryFrustumMode::any);
  const auto visit = [&](const GasGridItems& items) {
    if (items_callback != nullptr) return items_callback(items_callbacks_.user, items, ctx, shader, query);
    for (uint k = 0; k < items.count && !(is_any && query.result.finished != 0); ++k)
      primitive.function(primitive.user, items.numbers[k], ctx, shader, query);
  };
  const auto is_reached = [&](const GMathBbox3<float>& box) { return !gas_is_left_out(query, query.classify(box)); };
  const auto visit_leaf = [&](const GasGridPart& part, const GasFrustumEntry& leaf) {
    const GasGridItems items = get_items(part, leaf.ref);
    if (!tests_items_ || leaf.place != GeometryBoxPlace::straddling) return visit(items);
    if (!gas_is_left_out(query, GeometryBoxPlace::outside)) return visit(items);
    const auto find_reached = [&](const GMathVec3<float>* points) {
      uint outside, unsure;
      planes.classify(GasPointLanes(points), leaf.straddled, outside, unsure);
      for (; unsure != 0; unsure &= unsure - 1) {
        const uint k = static_cast<uint>(std::countr_zero(unsure));
        if (!is_reached({points[k], points[k]})) outside |= 1u << k;
      }
      return ~outside & 15u;
    };
    visit_reached(items, find_reached, is_reached, visit);
  };
  gas_walk_frustum<GasFrustumLeaves::single>(
      tree, {start.ref, 0, query.classify(tree.get_box(start)), GasFrustumPlanes::all_planes}, planes, query,
      [&](const GasFrustumEntry& top) {
        const GasGridPart* part = open_part(ctx, top.ref.index);
        if (part == nullptr) return;
        gas_walk_frustum<GasFrustumLeaves::ranges>(part->tree, {part->tree.get_root().ref, 0, top.place, top.straddled},
                                                   planes, query,
                                                   [&](const GasFrustumEntry& leaf) { visit_leaf(*part, leaf); });
      });
}

void GasGridTree::ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query,
                                  const bool& /*motion*/) const {
  const auto items_callback = tests_items_ ? items_callbacks_.ray_frustum : nullptr;
  if (ray_frustum_leaf.function == nullptr && items_callback == nullptr) return;
  const GasBeamPlanes beam(query.get_beam(), tree.get_bbox());
  float limit = beam.get_distance(query.get_tfar()), first;
  const auto find_reached = [&](const GMathVec3<float>* points) {
    return beam.find_touched(GasPointLanes(points), limit);
  };
  const auto is_reached = [&](const GMathBbox3<float>& box) { return beam.touches(box, limit, first); };
  const auto visit = [&](const GasGridItems& items) {
    if (items_callback != nullptr) return items_callback(items_callbacks_.user, items, ctx, shader, query);
    for (uint k = 0; k < items.count; ++k)
      ray_frustum_leaf.function(ray_frustum_leaf.user, items.numbers[k], ctx, shader, query);
  };
  gas_walk_beam(tree, tree.get_root(), beam, limit, query, [&](const GasBinaryRef& top) {
    const GasGridPart* part = open_part(ctx, top.index);
    if (part == nullptr) return;
    gas_walk_beam(part->tree, part->tree.get_root(), beam, limit, query, [&](const GasBinaryRef& leaf) {
      const GasGridItems items = get_items(*part, leaf);
      if (!tests_items_) return visit(items);
      visit_reached(items, find_reached, is_reached, visit);
    });
  });
}
