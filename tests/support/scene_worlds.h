// tests/support/scene_worlds.h
//
// Scenes by seed: a few meshes shared by many objects, scenes as objects of scenes, matrices that turn, mirror and
// shear, at rest or moving; and what such a scene is when every mesh is carried into the world: one flat mesh.
#pragma once
#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "gas/gas_module_clusters.h"
#include "gas/gas_scene_tree.h"
#include "support/built_mesh.h"
#include "support/mesh_oracle.h"
#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

using SceneMatrix = GMathMatrix4x4<double>;
using ObjectPath = std::vector<uint>;

/// A mesh and the structure over it, for objects to share.
struct SceneShape {
  SceneShape(const QueryWorld& world, PolyMeshData source)
      : built(std::make_shared<BuiltMesh>(world, std::move(source))) {}
  std::shared_ptr<BuiltMesh> built;
  const PolyMeshData& data = built->data;
  std::shared_ptr<PolyMesh> mesh{built, &built->mesh};
  std::shared_ptr<GasGeometryBvh4> structure{built, &built->structure};
};

/// An object to be: a shape, or a scene of its children.
struct SceneNode {
  const SceneShape* shape = nullptr;
  std::vector<ModuleMatrixKey> keys;  ///< a single one: stands still
  std::vector<SceneNode> children;
  std::shared_ptr<GeometryOverride> replaced;      ///< null: nothing
  std::shared_ptr<const GeometryObject> geometry;  ///< with `structure` in place of the shape's, if set
  std::shared_ptr<GasObject> structure;
  uint hidden_from = core_invalid_index;      ///< a type of rays
  std::shared_ptr<ModuleSceneObject> object;  ///< made by build_scene()
};

inline SceneNode make_node(const SceneShape& shape, std::vector<ModuleMatrixKey> keys = {{}}) {
  SceneNode node;
  node.shape = &shape;
  node.keys = std::move(keys);
  return node;
}

inline SceneMatrix make_translation(const GMathVec3<double>& way) {
  SceneMatrix matrix;
  for (uint axis = 0; axis < 3; ++axis) matrix.m[axis][3] = way[axis];
  return matrix;
}

/// What scenes asked of their objects' clusters, in all.
struct ClusterCalls {
  std::atomic<uint> lists{0}, boxes{0}, boxes_at{0};
  std::atomic<uint> overridden{0};  ///< a bit for each function that was called with `watched`
  const GeometryOverride* watched = nullptr;
  uint count = 0;  ///< as asked for the first time
  float ratio = 0;

  void note(uint function, const GeometryOverride* replaced) {
    if (replaced == watched) overridden |= 1u << function;
  }
};
inline ClusterCalls cluster_calls;

/// What objects over structures are cut by, with a look at who asks.
inline const ModuleClusterFunctions& get_counted_functions() {
  static const auto get = [](ModuleSceneObject* object) -> const ModuleClusterFunctions& {
    return gas_get_cluster_functions(object->get_structure());
  };
  using Handles = CoreBasicArray<void*>;
  static const ModuleClusterFunctions functions{
      [](ModuleSceneObject* object, GeometryOverride* replaced, CoreVector<void*>& clusters, const unsigned int& count,
         const float& ratio) {
        if (++cluster_calls.lists == 1) {
          cluster_calls.count = count;
          cluster_calls.ratio = ratio;
        }
        cluster_calls.note(0, replaced);
        get(object).get_clusters(object, replaced, clusters, count, ratio);
      },
      [](ModuleSceneObject* object, GeometryOverride* replaced, const Handles& clusters, GMathBbox3<float>* boxes) {
        ++cluster_calls.boxes;
        cluster_calls.note(1, replaced);
        get(object).get_clusters_bboxes(object, replaced, clusters, boxes);
      },
      [](ModuleSceneObject* object, GeometryOverride* replaced, const CtxEval& ctx, const double& time,
         const Handles& clusters, GMathBbox3<float>* boxes) {
        ++cluster_calls.boxes_at;
        cluster_calls.note(2, replaced);
        get(object).get_clusters_bboxes_at(object, replaced, ctx, time, clusters, boxes);
      },
      [](ModuleSceneObject* object, GeometryOverride* replaced, const Handles& clusters, float* weights) {
        cluster_calls.note(3, replaced);
        get(object).get_clusters_weights(object, replaced, clusters, weights);
      }};
  return functions;
}

inline void set_scene_matrix(const std::vector<ModuleMatrixKey>& keys, ModuleSceneObject& object) {
  if (keys.size() == 1) return object.set_global_matrix(keys[0].matrix);
  object.set_global_matrix_keys(keys, 0.0);
}

/// Makes the objects of the nodes, and the tree over them.
inline std::shared_ptr<GasSceneTree> build_scene(const QueryWorld& world, std::vector<SceneNode>& nodes,
                                                 AppProgressBar* progress = nullptr) {
  std::vector<ModuleSceneObject*> objects;
  std::vector<GeometryOverride*> overrides;
  for (SceneNode& node : nodes) {
    if (node.shape != nullptr) {
      if (node.structure == nullptr) {
        node.geometry = node.shape->mesh;
        node.structure = node.shape->structure;
      }
      const auto object =
          std::make_shared<ModuleGeometry>(CoreString("mesh"), node.geometry, node.structure, get_counted_functions());
      for (uint group = 0; group < object->get_shading_group_count(); ++group)
        object->set_shading_group(group, world.links[0]);
      node.object = object;
    } else {
      const std::shared_ptr<GasSceneTree> inner = build_scene(world, node.children);
      std::vector<std::shared_ptr<ModuleSceneObject>> children;
      for (const SceneNode& child : node.children) children.push_back(child.object);
      node.object = std::make_shared<ModuleCombiner>(CoreString("scene"), children, inner);
    }
    set_scene_matrix(node.keys, *node.object);
    node.object->set_flag(ModuleSceneObject::has_mask, node.hidden_from < 32);
    node.object->set_visibility_mask(node.hidden_from < 32 ? ~(1u << node.hidden_from) : ~0u);
    objects.push_back(node.object.get());
    overrides.push_back(node.replaced.get());
  }
  const auto count = static_cast<uint>(objects.size());
  auto tree = std::make_shared<GasSceneTree>();
  tree->create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects.data(), count),
               CoreBasicArray<GeometryOverride*>::make_view(overrides.data(), count), progress);
  return tree;
}

/// What moves in a scene: nothing, objects and scenes within scenes, or shapes as well.
enum class SceneMotion { none, rigid, deforming };

class SceneMaker {
 public:
  SceneMaker(const QueryWorld& world, uint seed, SceneMotion motion) : random_(seed), motion_(motion) {
    for (PolyMeshData data : {make_soup(40, seed), make_sphere(2), make_torus(9, 6), make_stars(25, seed + 1),
                              make_terrain(5, seed + 2), make_soup(1, seed + 3, 1.0)})
      shapes_.emplace_back(world, std::move(data));
    if (motion != SceneMotion::deforming) return;
    for (PolyMeshData data : {make_soup(40, seed + 4), make_sphere(1)}) {
      add_motion(data, 2, 0.0, 1.0, seed);
      moving_shapes_.emplace_back(world, std::move(data));
    }
  }

  /// @param depth  how many scenes may lie within each other, this one not counted
  std::vector<SceneNode> make(uint count, uint depth) {
    std::vector<SceneNode> nodes;
    for (uint k = 0; k < count; ++k) {
      const uint kind = random_.get_index(6);
      SceneNode node;
      if (depth > 0 && (kind < 2 || (k == 0 && depth > 1))) {
        node.children = make(2 + random_.get_index(2), depth - 1);
      } else if (kind == 2 && !moving_shapes_.empty()) {
        node.shape = &moving_shapes_[random_.get_index(static_cast<uint>(moving_shapes_.size()))];
      } else {
        node.shape = &shapes_[random_.get_index(static_cast<uint>(shapes_.size()))];
      }
      node.keys = make_keys();
      if (random_.get_index(3) == 0) node.replaced = std::make_shared<GeometryOverride>();
      if (random_.get_index(3) == 0) node.hidden_from = 1 + random_.get_index(5);  // camera rays see all
      nodes.push_back(std::move(node));
    }
    return nodes;
  }

  /// Turned, scaled by 0.5 to 1.5 along each axis, mirrored as often as not, sheared.
  SceneMatrix make_matrix() {
    SceneMatrix scale, shear, turn;
    const GMathVec3<double> x = random_.get_vec().get_normalized(), y = x.cross(random_.get_vec()).get_normalized();
    const GMathVec3<double> z = x.cross(y);
    for (uint row = 0; row < 3; ++row) {
      scale.m[row][row] = random_.get(0.5, 1.5) * (random_.get_index(2) == 0 ? -1 : 1);
      for (uint column = row + 1; column < 3; ++column) shear.m[row][column] = random_.get(-0.5, 0.5);
      turn.m[row][0] = x[row];
      turn.m[row][1] = y[row];
      turn.m[row][2] = z[row];
    }
    return make_translation(random_.get_vec(2.5)) * turn * shear * scale;
  }

 private:
  std::vector<ModuleMatrixKey> make_keys() {
    const SceneMatrix matrix = make_matrix();
    if (motion_ == SceneMotion::none || random_.get_index(4) == 0) return {{0.0, matrix}};
    std::vector<ModuleMatrixKey> keys;
    for (const double time : {-0.2, 0.1, 0.45, 1.1}) {
      SceneMatrix bend;
      for (uint k = 0; k < 9; ++k) bend.m[k / 3][k % 3] += random_.get(-0.2, 0.2);
      keys.push_back({time, make_translation(random_.get_vec(0.5)) * matrix * bend});
    }
    return keys;
  }

  RandomValues random_;
  SceneMotion motion_;
  std::deque<SceneShape> shapes_, moving_shapes_;
};

struct FlatPolygon {
  ObjectPath path;
  std::vector<const SceneNode*> nodes;
  uint primitive = 0;
  std::vector<Long3> corners;  ///< in the world
};

/// All polygons of a scene at one moment, carried into the world.
class FlatScene {
  using Matrix = GMathMatrix4x4<long double>;
  const CtxMotionBlur* blur_;
  double time_;
  std::map<std::pair<ObjectPath, uint>, uint> places_;
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
  FlatScene(const std::vector<SceneNode>& nodes, const CtxMotionBlur* blur, double time, uint only = core_invalid_index)
      : blur_(blur), time_(time) {
    for (uint index = 0; index < nodes.size(); ++index)
      if (only == core_invalid_index || index == only) add(nodes[index], index, Matrix(), FlatPolygon());
    for (uint k = 0; k < polygons.size(); ++k) {
      places_[{polygons[k].path, polygons[k].primitive}] = k;
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

  uint find(const ObjectPath& path, uint primitive) const {
    const auto found = places_.find({path, primitive});
    return found == places_.end() ? core_invalid_index : found->second;
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
  void add(const SceneNode& node, uint index, const Matrix& outer, FlatPolygon polygon) {
    polygon.path.push_back(index);
    polygon.nodes.push_back(&node);
    const SceneMatrix matrix = get_matrix(*node.object, blur_, time_);
    Matrix inner;
    for (uint k = 0; k < 16; ++k) inner.m[k / 4][k % 4] = matrix.m[k / 4][k % 4];
    inner = outer * inner;
    for (uint k = 0; k < node.children.size(); ++k) add(node.children[k], k, inner, polygon);
    if (node.shape == nullptr) return;
    polygon.primitive = 0;
    GMathBbox3<long double> box;
    const std::size_t first = polygons.size();
    for (const auto& corners : blur_ ? get_all_corners(node.shape->data, time_) : get_all_corners(node.shape->data)) {
      polygon.corners.clear();
      for (const Long3& corner : corners) polygon.corners.push_back(inner.transform_point(corner));
      for (const Long3& corner : polygon.corners) box.add(corner);
      polygons.push_back(polygon);
      ++polygon.primitive;
    }
    objects_.push_back({first, polygons.size(), {box.min, box.max}});
  }
};
