// tests/support/flat_scene.h
//
// What a scene or a bundle is when every mesh is carried into the world: one flat mesh.
#pragma once
#include <map>
#include <tuple>
#include <vector>

#include "support/mesh_oracle.h"
#include "support/ray_sets.h"
#include "support/scene_worlds.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_intersection.h"

using ObjectPath = std::vector<uint>;

struct FlatPolygon {
  ObjectPath path;
  std::vector<const SceneNode*> nodes;  ///< of the path: objects of scenes
  const SceneShape* shape = nullptr;
  uint primitive = 0;
  uint instance = 0, depth = 0;  ///< of the innermost bundle, and how many bundles it is in
  uint shading_group = 0;        ///< with the offsets of all bundles that use one table
  std::vector<Long3> corners;    ///< in the world
};

/// All polygons of a scene at one moment, carried into the world.
class FlatScene {
  using Matrix = GMathMatrix4x4<long double>;
  const CtxMotionBlur* blur_;
  double time_;
  /// What a hit says of its polygon. Instances of one geometry in several bundles may say the same.
  using Key = std::tuple<ObjectPath, const GeometryObject*, uint, uint, uint, uint>;
  std::multimap<Key, uint> places_;
  struct Object {
    std::size_t first, end;
    std::vector<Long3> bounds;
  };
  std::vector<Object> objects_;

 public:
  std::vector<FlatPolygon> polygons;
  PolyMeshData data;  ///< the same as one mesh, rounded to single precision

  /// @param blur  whose samples the matrices are blended between; null: at rest
  /// @param only  the one outermost object that is wanted
  /// @param is_bundle  `nodes` are instances of a bundle
  FlatScene(const std::vector<SceneNode>& nodes, const CtxMotionBlur* blur, double time, uint only = core_invalid_index,
            bool is_bundle = false)
      : blur_(blur), time_(time) {
    for (uint index = 0; index < nodes.size(); ++index)
      if (only == core_invalid_index || index == only) add(nodes[index], index, is_bundle, Matrix(), FlatPolygon());
    for (uint k = 0; k < polygons.size(); ++k) {
      const FlatPolygon& p = polygons[k];
      places_.emplace(Key(p.path, p.shape->mesh.get(), p.primitive, p.instance, p.depth, p.shading_group), k);
      std::vector<GMathVec3<float>> corners;
      for (const Long3& corner : polygons[k].corners) corners.emplace_back(corner);
      add_loose_polygon(data, corners);
    }
  }

  /// How a ray meets each polygon that it does not surely miss.
  /// @param graze  so near an edge, in units in the last place of single precision, a miss is not sure either
  std::map<uint, OracleHit> get_truth(const TestRay& ray, long double graze) const {
    // A ray begins at its origin even if its interval begins before it.
    const OracleRay asked{Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
    std::map<uint, OracleHit> truth;
    for (const Object& object : objects_) {
      const auto is_hidden = [&](const SceneNode* node) { return node->hidden_from == ray.type; };
      const std::vector<const SceneNode*>& nodes = polygons[object.first].nodes;
      if (std::any_of(nodes.begin(), nodes.end(), is_hidden) || is_far_from(asked, object.bounds)) continue;
      for (std::size_t k = object.first; k < object.end; ++k) {
        OracleHit hit = oracle_intersect(asked, polygons[k].corners);
        if (hit.edge_distance > 0 && hit.edge_distance <= graze) hit.answer = SureAnswer::close;
        if (hit.answer != SureAnswer::missed) truth[static_cast<uint>(k)] = hit;
      }
    }
    return truth;
  }

  /// The polygon of a hit: the nearest to its distance of those in `truths` that it can be.
  uint find(const ObjectPath& path, const GeometryIntersection& hit, const std::map<uint, OracleHit>& truths) const {
    const Key key(path, hit.geometry, hit.primitive, hit.instance, hit.depth, hit.shading_group);
    const auto [first, end] = places_.equal_range(key);
    uint found = core_invalid_index;
    long double least = HUGE_VALL;
    for (auto at = first; at != end; ++at) {
      const auto truth = truths.find(at->second);
      if (truth == truths.end()) continue;
      const long double gap = std::isnan(truth->second.t) ? 0 : std::fabs(truth->second.t - hit.distance);
      if (gap < least) found = at->second;
      least = std::min(least, gap);
    }
    return found;
  }

  /// An item's matrix by the rule of the description: evaluated at the samples, in between blended entry by entry.
  static SceneMatrix get_matrix(const ModuleSceneItem& item, const CtxMotionBlur* blur, double time) {
    if (blur == nullptr) return item.get_global_matrix();
    const double begin = blur->get_frame_begin(), step = blur->get_sample_step();
    const uint last = blur->get_sample_count() - 1;
    if (last == 0) return item.get_global_matrix_at(begin);
    const double place = std::clamp((time - begin) / step, 0.0, static_cast<double>(last));
    const double first = std::min(std::floor(place), last - 1.0);
    SceneMatrix a = item.get_global_matrix_at(begin + first * step);
    const SceneMatrix b = item.get_global_matrix_at(begin + (first + 1) * step);
    for (uint k = 0; k < 16; ++k) a.m[k / 4][k % 4] += (b.m[k / 4][k % 4] - a.m[k / 4][k % 4]) * (place - first);
    return a;
  }

 private:
  void add(const SceneNode& node, uint index, bool is_instance, const Matrix& outer, FlatPolygon polygon) {
    if (is_instance) {
      if (!node.is_visible) return;
      polygon.instance = index;
      ++polygon.depth;
      polygon.shading_group += node.group_offset;
      // A mesh and an object that is not a mesh: each has one group in the bundle's table.
      if (is_hidden_group(polygon.shading_group)) return;
    } else {
      polygon.path.push_back(index);
      polygon.nodes.push_back(&node);
      polygon.instance = polygon.shading_group = 0;
    }
    if (node.is_bundle && node.has_table) polygon.shading_group = 0;
    const SceneMatrix matrix = get_matrix(*node.item, blur_, time_);
    Matrix inner;
    for (uint k = 0; k < 16; ++k) inner.m[k / 4][k % 4] = matrix.m[k / 4][k % 4];
    inner = outer * inner;
    for (uint k = 0; k < node.children.size(); ++k) add(node.children[k], k, node.is_bundle, inner, polygon);
    if (node.shape == nullptr) return;
    polygon.shape = node.shape;
    const uint group_offset = polygon.shading_group;
    polygon.primitive = 0;
    GMathBbox3<long double> box;
    const std::size_t first = polygons.size();
    for (const auto& corners : blur_ ? get_all_corners(node.shape->data, time_) : get_all_corners(node.shape->data)) {
      polygon.corners.clear();
      for (const Long3& corner : corners) polygon.corners.push_back(inner.transform_point(corner));
      for (const Long3& corner : polygon.corners) box.add(corner);
      polygon.shading_group = group_offset + node.shape->mesh->get_primitive_shading_group(polygon.primitive);
      polygons.push_back(polygon);
      ++polygon.primitive;
    }
    objects_.push_back({first, polygons.size(), {box.min, box.max}});
  }
};
