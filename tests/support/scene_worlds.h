// tests/support/scene_worlds.h
//
// Scenes by seed: a few meshes shared by many objects, scenes and bundles as objects of scenes and as items of bundles,
// matrices that turn, mirror and shear, at rest or moving.
#pragma once
#include <atomic>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "gas/gas_module_clusters.h"
#include "gas/gas_scene_tree.h"
#include "support/built_mesh.h"
#include "support/bundle_input.h"
#include "support/mesh_scenes.h"
#include "support/query_world.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/module_bundle.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"
#include "vq_module/module_matrix_source.h"
#include "vq_module/object_geometry.h"

using SceneMatrix = GMathMatrix4x4<double>;

/// A mesh and the structure over it, for objects to share.
struct SceneShape {
  SceneShape(const QueryWorld& world, PolyMeshData source)
      : built(std::make_shared<BuiltMesh>(world, std::move(source))) {}
  std::shared_ptr<BuiltMesh> built;
  const PolyMeshData& data = built->data;
  std::shared_ptr<PolyMesh> mesh{built, &built->mesh};
  std::shared_ptr<GasGeometryBvh4> structure{built, &built->structure};
};

/// An object to be: a shape, or a scene or a bundle of its children.
struct SceneNode {
  const SceneShape* shape = nullptr;
  std::vector<ModuleMatrixKey> keys;  ///< a single one: stands still
  std::vector<SceneNode> children;
  std::shared_ptr<GeometryOverride> replaced;      ///< null: nothing
  std::shared_ptr<const GeometryObject> geometry;  ///< with `structure` in place of the shape's, if set
  std::shared_ptr<GasObject> structure;
  uint hidden_from = core_invalid_index;  ///< a type of rays
  bool is_bundle = false;                 ///< its children are the instances of a bundle,
  bool merges = false;                    ///< with merged shading groups
  bool has_table = true;                  ///< the bundle has materials of its own
  bool is_visible = true;                 ///< as an instance
  // Made by build_scene() and make_object().
  std::shared_ptr<ModuleSceneObject> object;  ///< of all but the shapes in a bundle
  std::shared_ptr<ModuleSceneItem> item;      ///< has the matrix: the object, if there is one
  uint group_offset = 0;                      ///< of an instance
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
    return gas_get_cluster_functions(object->get_structure(), GasClusterDetail::full);
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

inline void set_scene_matrix(const std::vector<ModuleMatrixKey>& keys, ModuleSceneItem& object) {
  if (keys.size() == 1) return object.set_global_matrix(keys[0].matrix);
  object.set_global_matrix_keys(keys, 0.0);
}

constexpr uint most_scene_groups = 512;
/// Some groups of each table that bundles use are not shaded.
inline bool is_hidden_group(uint group) { return group % 7 == 3; }

/// A world with room for the groups of bundles that have no table.
struct BundleWorld : QueryWorld {
  explicit BundleWorld(uint thread_count = 1) : QueryWorld(most_scene_groups, thread_count) {
    for (uint group = 0; group < most_scene_groups; ++group)
      if (is_hidden_group(group)) entries[group] = nullptr;
    shading = ShadingGroupTable(entries);
  }
};

/// How many shading groups an instance of a bundle takes in the bundle's table.
inline uint get_scene_group_count(const SceneNode& node) {
  if (node.shape != nullptr) return node.shape->mesh->get_shading_groups().get_count();
  uint count = 0;
  for (const SceneNode& child : node.children)
    if (node.is_bundle && !node.has_table) count += get_scene_group_count(child);
  return std::max(count, 1u);
}

inline std::shared_ptr<ModuleSceneObject> make_object(const QueryWorld& world, SceneNode& node);

/// The instances' geometries are meshes, and objects that are no meshes.
inline std::shared_ptr<ModuleBundle> make_bundle(const QueryWorld& world, SceneNode& node) {
  ModuleBundle::Contents contents;
  BundleInput input;
  input.merge = node.merges;
  std::vector<std::shared_ptr<const ModuleSceneItem>> items;
  bool moves = false;
  uint offset = 0;
  for (SceneNode& child : node.children) {
    std::shared_ptr<GeometryObject> geometry;
    if (child.shape != nullptr) {
      geometry = child.shape->mesh;
      child.item = std::make_shared<ModuleSceneItem>(CoreString("instance"));
      set_scene_matrix(child.keys, *child.item);
    } else {
      child.item = make_object(world, child);
      geometry = std::make_shared<ObjectGeometry>(
          std::vector<std::shared_ptr<const ModuleSceneObject>>{child.object});  // does not look at its matrix
    }
    contents.geometries.push_back(geometry);
    items.push_back(child.item);
    moves = moves || child.keys.size() > 1;
    const uint index = input.add(geometry.get(), child.item->get_global_matrix());
    const uint key = node.merges ? index : static_cast<uint>(input.matrices.size()) - 1;
    if (key == input.offsets.size()) {
      input.offsets.push_back(offset);
      offset += get_scene_group_count(child);
      input.visibility.add(child.is_visible);
    }
    child.group_offset = input.offsets[key];
    child.is_visible = input.visibility[key];
  }
  EXPECT_LE(offset, most_scene_groups);
  auto bundle = std::make_shared<GasGeometryBundle>();
  input.create(world.app, *bundle);
  if (moves) {
    contents.matrix_source = std::make_shared<ModuleKeyedSource>(items);
    bundle->set_matrices_callback(ModuleMatrixSource::callback,
                                  const_cast<ModuleMatrixSource*>(contents.matrix_source.get()));
  }
  contents.shading_group_count = node.has_table ? most_scene_groups : 0;
  contents.geometry_count = bundle->get_valid_instance_count();
  contents.primitive_count = bundle->get_primitive_count();
  auto module = std::make_shared<ModuleBundle>(CoreString("bundle"), std::move(contents), bundle,
                                               gas_get_cluster_functions(bundle.get(), GasClusterDetail::full));
  for (uint group = 0; group < module->get_shading_group_count(); ++group) {
    module->set_shading_group(group, world.links[0]);
    module->set_shading_group_visibility(group, !is_hidden_group(group));
  }
  return module;
}

inline std::shared_ptr<GasSceneTree> build_scene(const QueryWorld& world, std::vector<SceneNode>& nodes,
                                                 AppProgressBar* progress = nullptr);

/// Makes the object of a node.
inline std::shared_ptr<ModuleSceneObject> make_object(const QueryWorld& world, SceneNode& node) {
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
  } else if (node.is_bundle) {
    node.object = make_bundle(world, node);
  } else {
    const std::shared_ptr<GasSceneTree> inner = build_scene(world, node.children);
    std::vector<std::shared_ptr<ModuleSceneObject>> children;
    for (const SceneNode& child : node.children) children.push_back(child.object);
    node.object = std::make_shared<ModuleCombiner>(CoreString("scene"), children, inner);
  }
  node.item = node.object;
  set_scene_matrix(node.keys, *node.object);
  node.object->set_flag(ModuleSceneObject::has_mask, node.hidden_from < 32);
  node.object->set_visibility_mask(node.hidden_from < 32 ? ~(1u << node.hidden_from) : ~0u);
  return node.object;
}

/// Makes the objects of the nodes, and the tree over them.
inline std::shared_ptr<GasSceneTree> build_scene(const QueryWorld& world, std::vector<SceneNode>& nodes,
                                                 AppProgressBar* progress) {
  std::vector<ModuleSceneObject*> objects;
  std::vector<GeometryOverride*> overrides;
  for (SceneNode& node : nodes) {
    objects.push_back(make_object(world, node).get());
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
  /// @param with_bundles  some of what has children is a bundle
  SceneMaker(const QueryWorld& world, uint seed, SceneMotion motion, bool with_bundles = false)
      : random_(seed), motion_(motion), with_bundles_(with_bundles) {
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
        if (with_bundles_ && random_.get_index(3) > 0) {
          node = make_bundle(2 + random_.get_index(3), depth - 1);
        } else {
          node.children = make(2 + random_.get_index(2), depth - 1);
        }
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

  /// A bundle of `count` instances, of which some are invisible; most have no materials of their own.
  SceneNode make_bundle(uint count, uint depth) {
    SceneNode node;
    node.is_bundle = true;
    node.merges = random_.get_index(2) == 0;
    node.has_table = random_.get_index(4) == 0;
    node.children = make(count, depth);
    node.keys = {{}};
    for (SceneNode& child : node.children) {
      child.replaced = nullptr;
      child.hidden_from = core_invalid_index;  // only scenes ask
      child.is_visible = random_.get_index(8) > 0;
    }
    return node;
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
  bool with_bundles_;
  std::deque<SceneShape> shapes_, moving_shapes_;
};
