// Scene objects: keyframed matrices, who sees them, and what they ask their structure.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>

#include "support/fake_geometry.h"
#include "support/query_world.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/ctx_helpers.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"
#include "vq_module/object_geometry.h"

namespace {

using Matrix = GMathMatrix4x4<double>;

/// Notes who asked it, and with what.
class FakeStructure final : public GasObject {
 public:
  FakeStructure() {
    callbacks = {note<'s', GeometryRaytraceCtx>, note<'m', GeometryRaytraceCtx>, note<'n', GeometryRaytraceCtx>,
                 note<'o', GeometryRaytraceCtx>, note<'f', GeometryFrustumCtx>,  nullptr};
  }
  GMathBbox3<double> get_bbox() const override { return {{0.1, 1, -1e300}, {0.1, 1, 1e-300}}; }
  GMathBbox3<double> get_bbox_at(const CtxEval&, const double& time) const override {
    return {{time, 1, 0}, {time, 1, 0}};
  }
  mutable std::vector<std::tuple<char, const ShadingGroupTable*, const Material*>> calls;
  bool lacks_memory = false;  ///< for its motion: answers at rest, as structures do then

 private:
  template <char door, class Query>
  static void note(const GasObject* object, const CtxEval&, CtxShader& shader, Query& query) {
    const auto& structure = static_cast<const FakeStructure&>(*object);
    structure.calls.push_back({door, query.shading, shader.override_material});
    if constexpr (door == 'm' || door == 'o')
      if (structure.lacks_memory) query.span_stamp = 0;
  }
};

std::shared_ptr<ModuleGeometry> make_object(std::shared_ptr<GasObject> structure) {
  auto geometry = std::make_shared<FakeGeometry>(/*group_count=*/2);
  geometry->add_row(3);
  return std::make_shared<ModuleGeometry>(CoreString("object"), geometry, structure,
                                          ModuleSceneObject::get_whole_functions());
}

class CountedObject final : public ModuleSceneObject {
 public:
  CountedObject() : ModuleSceneObject(CoreString("counted")) {}
  double get_geometry_count() const override { return 3e9; }
  double get_primitive_count() const override { return 9e9; }
};

Matrix make_matrix(double value) {
  Matrix matrix;
  for (uint k = 0; k < 16; ++k) matrix.m[k / 4][k % 4] = value * (k + 1.0);
  return matrix;
}

TEST(SceneItem, every_entry_is_linear_between_the_keys_whatever_their_order) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), infinity = std::numeric_limits<double>::infinity();
  CountedObject item;
  Matrix still;
  still.m[0][3] = 7;
  item.set_global_matrix(still);
  item.set_global_matrix_keys({{nan, make_matrix(50)}, {infinity, make_matrix(60)}}, 0.0);
  EXPECT_EQ(item.get_global_matrix_at(1.0), still);  // no usable key
  const double keys[5][2] = {{4, 8}, {2, -9}, {nan, 50}, {1, 1}, {2, 4}};
  std::vector<ModuleMatrixKey> matrices;
  for (const auto& [time, value] : keys) matrices.push_back({time, make_matrix(value)});
  item.set_global_matrix_keys(matrices, 1.5);
  EXPECT_EQ(item.get_global_matrix(), make_matrix(2.5));
  const double expected[][2] = {{-infinity, 1}, {nan, 1}, {0.5, 1}, {1, 1}, {1.25, 1.75},
                                {2, 4},         {3, 6},   {4, 8},   {5, 8}, {infinity, 8}};
  for (const auto& [time, value] : expected) EXPECT_EQ(item.get_global_matrix_at(time), make_matrix(value)) << time;
  item.set_global_matrix_keys({{0, still}, {1, Matrix()}}, 1.0);
  item.evaluate(0.5);
  EXPECT_EQ(item.get_inv_global_matrix().m[0][3], -3.5);
  EXPECT_EQ(item.get_flags(), 0x2000u);
  item.set_global_matrix(still);
  EXPECT_EQ(item.get_global_matrix_at(0.5), still);
  EXPECT_EQ(item.get_inv_global_matrix().m[0][3], -7);
  EXPECT_EQ(item.get_flags(), 0u);
}

TEST(SceneObject, is_visible_as_flags_mask_and_override_say) {
  // Where the mask is asked at all: override (8), forced visible (4), type in the mask (2), forced hidden (1).
  const bool asked[16] = {false, false, true, true,  false, false, true, true,
                          false, false, true, false, true,  true,  true, true};
  CountedObject object;
  for (uint row = 0; row < 32; ++row) {
    for (const uint type : {0u, 1u, 6u, 31u, 38u}) {  // 38 has the bit of 6, and is no lookup
      const uint bit = 1u << (type == 38 ? 6 : type);
      object.set_flag(ModuleSceneObject::has_mask, row & 16);
      object.set_flag(ModuleSceneObject::forced_visible, row & 4);
      object.set_flag(ModuleSceneObject::forced_hidden, row & 1);
      object.set_visibility_mask(row & 2 ? bit : ~bit);
      EXPECT_EQ(object.get_flags(), (row & 16 ? 0x4000u : 0) | (row & 4 ? 0x8000u : 0) | (row & 1 ? 0x80u : 0));
      const bool expected = ((row & 16) == 0 && type != 6) || asked[row & 15];
      EXPECT_EQ(object.is_visible(type, row & 8), expected) << row << " " << type;
    }
  }
}

TEST(SceneObject, asks_its_structure_with_its_own_table_and_the_override_material) {
  QueryWorld world;
  auto structure = std::make_shared<FakeStructure>();
  const auto object = make_object(structure), unhittable = make_object(nullptr);
  const ModuleCombiner combiner(CoreString("combiner"), {}, structure);
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  const Material former, replacing;
  GeometryOverride with_material{false, 0, &replacing, false}, without;
  world.shader.override_material = &former;
  world.shader.motion_blur = &motion_blur;
  GeometryRaytraceCtx rays;
  object->ray_hit(world.ctx, world.shader, rays);
  const ShadingGroupTable* own_table = rays.shading;
  EXPECT_NE(own_table, &world.shading);
  const auto expect_calls = [&](const ModuleSceneObject& asked, GeometryOverride* replaced, const std::string& doors,
                                const ShadingGroupTable* table, const Material* material) {
    GeometryIntersectionPath path;
    path.add({0, nullptr, &with_material});  // only the innermost counts
    path.add({1, nullptr, replaced});
    GeometryFrustumCtx frustum;
    rays.path = frustum.path = &path;
    rays.shading = frustum.shading = &world.shading;
    structure->calls.clear();
    asked.ray_hit(world.ctx, world.shader, rays);
    asked.ray_hit_nearest(world.ctx, world.shader, rays);
    asked.frustum_hit(world.ctx, world.shader, frustum);
    ASSERT_EQ(structure->calls.size(), doors.size());
    for (uint k = 0; k < doors.size(); ++k)
      EXPECT_EQ(structure->calls[k], std::tuple(doors[k], table, material)) << doors[k];
    EXPECT_EQ(world.shader.override_material, &former);
  };
  expect_calls(*unhittable, nullptr, "", nullptr, nullptr);
  expect_calls(combiner, nullptr, "snf", &world.shading, &former);
  expect_calls(*object, &with_material, "snf", own_table, &replacing);
  expect_calls(*object, &without, "snf", own_table, &former);  // a still query in spite of the shader's motion blur
  rays.span_stamp = motion_blur.get_stamp();
  expect_calls(*object, nullptr, "mof", own_table, &former);
}

TEST(ObjectGeometry, an_object_that_cannot_move_for_lack_of_memory_does_not_stop_the_next_one) {
  QueryWorld world;
  auto structure = std::make_shared<FakeStructure>();
  structure->lacks_memory = true;
  const ObjectGeometry geometry({make_object(structure), make_object(structure)});
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  world.shader.motion_blur = &motion_blur;
  GeometryRaytraceCtx rays;
  rays.span_stamp = motion_blur.get_stamp();
  for (const uint primitive : {0u, 1u}) geometry.ray_hit_primitive(world.ctx, world.shader, rays, primitive);
  ASSERT_EQ(structure->calls.size(), 2u);
  EXPECT_EQ(std::get<char>(structure->calls[1]), 'm');
}

TEST(SceneObject, bounds_of_whole_objects_that_single_precision_does_not_hold_move_outwards) {
  QueryWorld world;
  const auto object = make_object(std::make_shared<FakeStructure>());
  const ModuleClusterFunctions& functions = object->get_cluster_functions();
  CoreVector<void*> clusters;
  functions.get_clusters(object.get(), nullptr, clusters, 1024, 0.3f);
  ASSERT_EQ(clusters.get_count(), 1u);
  GMathBbox3<float> box, box_at;
  functions.get_clusters_bboxes(object.get(), nullptr, clusters.as_array(), &box);
  functions.get_clusters_bboxes_at(object.get(), nullptr, world.ctx, 0.1, clusters.as_array(), &box_at);
  const float tiny = std::numeric_limits<float>::denorm_min(), infinity = std::numeric_limits<float>::infinity();
  const float below = std::nextafter(0.1f, 0.0f), above = std::nextafter(0.1f, 1.0f);
  EXPECT_EQ(box, GMathBbox3<float>({below, 1, -infinity}, {above, 1, tiny}));
  EXPECT_EQ(box_at, GMathBbox3<float>({below, 1, 0}, {above, 1, 0}));
}

TEST(ModuleGeometry, shows_groups_that_have_links_and_are_visible) {
  QueryWorld world;
  const auto object = make_object(std::make_shared<FakeStructure>());  // two groups
  GeometryRaytraceCtx query;
  object->ray_hit(world.ctx, world.shader, query);
  EXPECT_EQ(CtxHelpers::get_shading(query, 0)->material, ShadingGroupLinks::material_empty);
  object->set_shading_group_visibility(1, false);
  for (const uint group : {0u, 1u, 5u}) object->set_shading_group(group, world.links[0]);
  EXPECT_EQ(CtxHelpers::get_shading(query, 0)->material, &world.material);
  EXPECT_EQ(CtxHelpers::get_shading(query, 1), nullptr);
  EXPECT_TRUE(object->get_shading_group_visibility(0) && !object->get_shading_group_visibility(1));
  for (const uint group : {1u, 5u}) object->set_shading_group_visibility(group, true);
  EXPECT_EQ(CtxHelpers::get_shading(query, 1)->material, &world.material);  // what it was given while hidden
}

TEST(Module, classes_form_a_chain) {
  const auto object = make_object(nullptr);
  const ModuleCombiner combiner(CoreString("combiner"), {}, nullptr);
  const CoreClassInfo* const chain[] = {&CoreBaseObject::class_info(), &ModuleBase::class_info(),
                                        &ModuleSceneItem::class_info(), &ModuleSceneObject::class_info(),
                                        &ModuleGeometry::class_info()};
  for (const CoreClassInfo* info : chain) EXPECT_TRUE(object->is_kindof(*info)) << info->get_name();
  for (const CoreClassInfo* info : chain) EXPECT_EQ(combiner.is_kindof(*info), info != chain[4]);
  EXPECT_FALSE(ModuleBase().is_kindof(*chain[2]));
  EXPECT_FALSE(object->is_kindof(ModuleCombiner::class_info()));
}

TEST(ModuleCombiner, sums_large_counts_and_moves_when_an_object_deep_inside_moves) {
  using Objects = std::vector<std::shared_ptr<ModuleSceneObject>>;
  auto item = std::make_shared<CountedObject>();
  auto inner = std::make_shared<ModuleCombiner>(CoreString("inner"), Objects{item, nullptr, item}, nullptr);
  const ModuleCombiner outer(CoreString("outer"), {inner, make_object(nullptr)}, nullptr);
  EXPECT_EQ(outer.get_geometry_count(), 6000000001.0);
  EXPECT_EQ(outer.get_primitive_count(), 18000000003.0);
  EXPECT_EQ(outer.get_flags(), 0u);
  item->set_global_matrix_keys({{0, {}}, {1, {}}}, 0.0);
  EXPECT_EQ(outer.get_flags(), 0x2000u);
}

}  // namespace
