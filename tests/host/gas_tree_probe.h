// tests/host/gas_tree_probe.h
//
// A scene of boxes in one of the host's trees, with callbacks that write down the items they get: with several boxes a
// leaf, those that the query touches.
#pragma once
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <new>
#include <set>
#include <thread>

#include "support/box_query.h"
#include "vq_gas_base/gas_grid_tree.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"

class Probe {
 public:
  static constexpr uint resolution = 12;                  ///< of the grids
  enum class Form { tree, groups, grid, supplied_grid };  ///< groups: a tree of several boxes a leaf
  static constexpr Form forms[] = {Form::tree, Form::groups, Form::grid, Form::supplied_grid};

  Probe(const BoxScene& scene, Form form, uint threads = 1) : scene(scene), form(form), world(8, threads) {
    CoreVector<FloatBox> boxes;
    for (const FloatBox& box : scene.boxes) boxes.add(box);
    if (is_tree()) {
      tree.create(boxes, nullptr, &world.app, form == Form::groups ? 5 : 1);
    } else {
      grid.create(boxes, resolution, nullptr, &world.app);
      if (form == Form::supplied_grid) grid.set_leaf_boxes(supply, this);
    }
    GasTree& any = get();
    any.set_ray_leaf(test_ray, this);
    any.set_frustum_leaf(test_frustum, this);
    any.set_ray_frustum_leaf(test_beam, this);
  }

  bool is_tree() const { return form == Form::tree || form == Form::groups; }
  GasTree& get() { return is_tree() ? tree : grid; }
  template <class Call>
  void call(const Call& function) {
    visited.clear();
    is_tree() ? function(tree) : function(grid);
  }

  static void supply(void* user, const CtxEval&, const uint& count, const uint* items, FloatBox* boxes) {
    auto& self = *static_cast<Probe*>(user);
    ++self.supplied;
    std::this_thread::sleep_for(self.delay);
    if (self.refuses) throw std::bad_alloc();
    for (uint k = 0; k < count; ++k) boxes[k] = self.scene.boxes[items[k]];
  }
  static void test_ray(void* user, const uint& item, const CtxEval& ctx, CtxShader& shader,
                       GeometryRaytraceCtx& query) {
    auto& self = *static_cast<Probe*>(user);
    std::optional<double> entry;
    if (query.is_nearest() || self.form == Form::groups)
      entry = find_entry(GMathBbox3<double>(self.scene.boxes[item]), self.rays[query.first_ray]);
    if (self.form == Form::groups && !entry && query.intervals[query.first_ray].extent == 0.0) return;
    self.visited.push_back(item);
    if (self.stops_rays) query.ray_flags[query.first_ray] |= 1u;
    if (!query.is_nearest()) return;
    if (entry) query.push_intersection(ctx, shader, query.first_ray, {*entry, 0.0, 0.0, item, 0});
  }
  static void test_frustum(void* user, const uint& item, const CtxEval&, CtxShader&, GeometryFrustumCtx& query) {
    auto& self = *static_cast<Probe*>(user);
    const GeometryBoxPlace place = query.classify(self.scene.boxes[item]);
    if (self.form == Form::groups && place == GeometryBoxPlace::outside && query.mode != 1) return;
    self.visited.push_back(item);
    if (place != GeometryBoxPlace::inside) query.result.outside = 1;
    if (query.mode == 0) query.result.finished = 1;
  }
  /// The center of a box is hit where the plane across the beam through it has it between the corners.
  static void test_beam(void* user, const uint& item, const CtxEval&, CtxShader&, GeometryRayFrustumCtx& query) {
    const double t = find_center(GMathBbox3<double>(static_cast<Probe*>(user)->scene.boxes[item]).get_center(), query);
    if (t < query.get_tfar()) query.get_record() = {t, 1.0, item, 0};
  }
  static double find_center(const GMathVec3<double>& center, const GeometryRayFrustumCtx& query) {
    const GMathVec3<double>& normal = query.get_plane_normal();
    const double t = (center - query.get_origin()).dot(normal) / query.get_direction().dot(normal);
    if (!(t >= query.get_tnear())) return DBL_MAX;
    GMathVec3<double> corners[4];
    query.get_corners(t, corners);
    int side = 0;
    for (uint k = 0; k < 4; ++k) {
      const GMathVec3<double> edge = corners[(k + 1) % 4] - corners[k];
      side += edge.cross(center - corners[k]).dot(normal) >= 0.0 ? 1 : -1;
    }
    return side == 4 || side == -4 ? t : DBL_MAX;
  }

  /// All items, in the order of the tree.
  std::vector<uint> list_all() {
    GeometryFrustumCtx query;
    query.mode = 2;
    call([&](auto& any) { any.frustum_hit(world.ctx, world.shader, query); });
    return visited;
  }

  /// Visited items per ray; each at most once.
  std::vector<std::set<uint>> ask(const std::vector<BoxRay>& asked, double extent, u64 cluster = 0) {
    rays = asked;
    BoxQuery packet(rays);
    std::vector<std::set<uint>> found(rays.size());
    for (uint r = 0; r < rays.size(); ++r) packet.packet.get_ray(r).extent = extent;
    GeometryRaytraceCtx& query = packet.packet.begin_all_hits(world.shading);
    query.object_distance = -DBL_MAX;
    query.cluster = cluster;
    for (uint r = 0; r < rays.size(); ++r) {
      query.first_ray = query.last_ray = r;
      call([&](auto& any) {
        extent > 0.0 ? tree.ray_hit_extent(world.ctx, world.shader, query, this)
                     : any.ray_hit(world.ctx, world.shader, query);
      });
      found[r] = {visited.begin(), visited.end()};
      EXPECT_EQ(found[r].size(), visited.size()) << "an item was visited twice";
    }
    return found;
  }

  BoxScene scene;
  Form form;
  QueryWorld world;
  GasTree tree;
  GasGridTree grid;
  std::vector<BoxRay> rays;
  std::vector<uint> visited;
  std::atomic<uint> supplied = 0;  ///< requests for boxes: one for each part that is built
  std::atomic<bool> refuses = false;
  std::chrono::milliseconds delay{0};  ///< of the boxes' supply
  bool stops_rays = false;             ///< at their first leaf
};
