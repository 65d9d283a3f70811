// Hair and meshes in one scene that two combiners show, asked in packets of any size with rays of all types, at rest
// and moving: every primitive is tested in its object's space, to which the ray is carried in long double.
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <map>
#include <set>
#include <tuple>

#include "support/curve_check.h"
#include "support/mesh_check.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;
using Path = std::array<uint, 2>;  ///< object of the scene, object of the scene that it shows

std::vector<ModuleMatrixKey> make_keys(const SceneMatrix& matrix, const Vec& way) {
  return {{0.0, matrix}, {1.0, make_translation(way) * matrix}};
}

/// What moves only translates, so that everything runs in straight lines between samples.
struct CombinedScene {
  CombinedScene() {
    PolyMeshData flying = make_sphere(2);
    add_motion(flying, 2, 0.0, 1.0, 3, true);
    meshes.emplace_back(world, make_soup(60, 1, 0.8));
    meshes.emplace_back(world, std::move(flying));
    CurveData hair = make_hair(CurveBasis::linear, 60, 4, 0.1, 3.0, 0.05);
    add_motion(hair, 2, 0.0, 1.0, 5);
    fur = std::make_shared<BuiltFur>(world.ctx, hair, false);  // complete for all hits
    glass.transparency = 0.25;
    glass.kind_mask = 1u << GMathRay::diffuse;
    world.links[1].material = &glass;
    SceneMaker maker(world, 6, SceneMotion::none);
    const auto add = [&](auto&& object, const Vec& way, uint hidden_from) {
      for (uint group = 0; group < object->get_shading_group_count(); ++group)
        object->set_shading_group(group, world.links[1]);
      set(*object, make_keys(maker.make_matrix(), way), hidden_from);
      parts.push_back(object);
    };
    const auto make_mesh = [&](uint k) {
      return std::make_shared<ModuleGeometry>(CoreString("mesh"), meshes[k].mesh, meshes[k].structure,
                                              get_counted_functions());
    };
    add(make_mesh(0), {}, GMathRay::reflection);
    add(std::make_shared<ModuleGeometry>(CoreString("hair"), std::shared_ptr<TubeMeshFast>(fur, &fur->geometry),
                                         std::shared_ptr<GasFur>(fur, &fur->structure), get_counted_functions()),
        {0.3, 0, 0}, GMathRay::refraction);
    add(make_mesh(1), {0, -0.5, 0.2}, GMathRay::lookup);
    const std::shared_ptr<GasSceneTree> inner = build(parts);
    for (uint k = 0; k < 2; ++k) {
      outer.push_back(std::make_shared<ModuleCombiner>(CoreString("shown"), parts, inner));
      set(*outer[k], make_keys(maker.make_matrix(), k == 0 ? Vec(0, 0.4, 0.4) : Vec()),
          k == 0 ? GMathRay::shadow : GMathRay::subsurface);
    }
    scene = build(outer);
  }

  static void set(ModuleSceneObject& object, const std::vector<ModuleMatrixKey>& keys, uint hidden_from) {
    object.set_global_matrix_keys(keys, 0.0);
    object.set_flag(ModuleSceneObject::has_mask, true);
    object.set_visibility_mask(~(1u << hidden_from));
  }
  std::shared_ptr<GasSceneTree> build(const std::vector<std::shared_ptr<ModuleSceneObject>>& objects) const {
    std::vector<ModuleSceneObject*> list;
    for (const auto& object : objects) list.push_back(object.get());
    auto tree = std::make_shared<GasSceneTree>();
    tree->create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(list.data(), uint(list.size())), nullptr);
    return tree;
  }

  /// Rays at curves, at vertices and between them, as they are at rest, of all types but lookups.
  std::vector<TestRay> make_timed_rays(uint count) const {
    PolyMeshData targets;
    for (const auto& shown : outer) {
      for (uint k = 0; k < parts.size(); ++k) {
        const SceneMatrix matrix = shown->get_global_matrix() * parts[k]->get_global_matrix();
        const auto add = [&](const GMathVec3<float>& p) {
          add_loose_polygon(targets, {GMathVec3<float>(matrix.transform_point(Vec(p)))});
        };
        for (uint p = 0; k == 1 && p < fur->data.points.size(); ++p) add(fur->data.points[p].position);
        for (uint p = 0; k != 1 && p < meshes[k / 2].data.positions.size(); p += 4)
          add(meshes[k / 2].data.positions[p]);
      }
    }
    std::vector<TestRay> rays = make_rays(targets, count, 8);
    for (uint k = 0; k < count; ++k) {
      rays[k].time = k % 4 / 3.0;
      rays[k].type = static_cast<GMathRay::Type>(k * 5 / 3 % GMathRay::lookup);
    }
    return rays;
  }

  QueryWorld world;
  Material glass;
  std::deque<SceneShape> meshes;
  std::shared_ptr<BuiltFur> fur;
  std::vector<std::shared_ptr<ModuleSceneObject>> parts, outer;
  std::shared_ptr<GasSceneTree> scene;
};

/// Carried by the inverse of an affine matrix: by Cramer's rule.
Long3 carry_back(const SceneMatrix& matrix, const Long3& p, long double w) {
  Long3 columns[3], rest;
  for (uint row = 0; row < 3; ++row) {
    for (uint column = 0; column < 3; ++column) columns[column][row] = matrix.m[row][column];
    rest[row] = p[row] - w * matrix.m[row][3];
  }
  const auto& [a, b, c] = columns;
  const long double volume = a.dot(b.cross(c));
  return {rest.dot(b.cross(c)) / volume, a.dot(rest.cross(c)) / volume, a.dot(b.cross(rest)) / volume};
}

struct Truth {
  std::map<std::pair<Path, uint>, SureHit> hits;  ///< by object and primitive; those surely missed are left out
  std::map<Path, double> weights;
};

/// What one ray does with everything that is shown to its type.
Truth get_truth(const CombinedScene& scene, const TestRay& ray, const CtxMotionBlur* blur) {
  const double time = blur != nullptr ? ray.time : std::nan("");
  static std::map<double, CurveOracle> hair;  // by time
  const CurveOracle& oracle = hair.try_emplace(blur != nullptr ? time : -1.0, scene.fur->data, time).first->second;
  Truth truth;
  for (Path path{}; path[0] < 2; ++path[0]) {
    for (path[1] = 0; path[1] < 3; ++path[1]) {
      const ModuleSceneObject &shown = *scene.outer[path[0]], &part = *scene.parts[path[1]];
      if (!(shown.get_visibility_mask() & part.get_visibility_mask() & 1u << ray.type)) continue;
      OracleRay local{Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
      for (const ModuleSceneObject* object : {&shown, &part}) {
        const SceneMatrix matrix = FlatScene::get_matrix(*object, blur, ray.time);
        local.origin = carry_back(matrix, local.origin, 1.0L);
        local.direction = carry_back(matrix, local.direction, 0.0L);
      }
      if (path[1] == 1) {
        const bool weighs = ray.type != GMathRay::camera;
        truth.weights[path] = ray.type == GMathRay::diffuse ? 0.75 : weighs ? 1.0 : 0.0;
        const TestRay rounded{Vec(local.origin), Vec(local.direction), ray.tnear, ray.tfar};
        for (uint p = 0; p < oracle.get_segments().size(); ++p) {
          const CurveCrossing crossing = oracle.intersect(rounded, p);
          const double slack = 1e-9 * (std::fabs(crossing.high) + 1 / ray.direction.get_length());
          if (crossing.answer == SureAnswer::hit)
            truth.hits[{path, p}] = {crossing.answer, crossing.low - slack, crossing.high + slack};
          if (crossing.answer == SureAnswer::close) truth.hits[{path, p}] = {crossing.answer, NAN, NAN};
        }
      } else {
        truth.weights[path] = 1.0;
        const auto corners = get_all_corners(scene.meshes[path[1] / 2].data, time);
        for (uint p = 0; p < corners.size(); ++p) {
          const OracleHit hit = oracle_intersect(local, corners[p]);
          const long double slack = 4096 * hit.tolerance;
          const bool close = hit.answer == SureAnswer::close || hit.edge_distance < 256;
          if (hit.answer != SureAnswer::missed)
            truth.hits[{path, p}] = {close ? SureAnswer::close : SureAnswer::hit, double(hit.t - slack),
                                     double(hit.t + slack)};
        }
      }
    }
  }
  return truth;
}

using Objects = std::span<const GeometryIntersectionPathElement>;

void check_hit(const Truth& truth, const TestRay& ray, const GeometryIntersection& hit, Objects path) {
  ASSERT_EQ(path.size(), 2u);
  const Path objects{path[0].object_index, path[1].object_index};
  const auto found = truth.hits.find({objects, hit.primitive});
  ASSERT_NE(found, truth.hits.end()) << describe(ray) << " of type " << ray.type << " hit " << objects[0] << " "
                                     << objects[1] << " " << hit.primitive;
  const SureHit& sure = found->second;
  EXPECT_FALSE(hit.distance < sure.low || hit.distance > sure.high) << describe(ray) << " at " << hit.distance;
  EXPECT_EQ(hit.weight, truth.weights.at(objects)) << "ray of type " << ray.type;
}

void check_packet(CombinedScene& scene, std::span<const TestRay> rays, std::span<const Truth> truth,
                  const CtxMotionBlur* blur) {
  const std::vector<TestRay> asked(rays.begin(), rays.end());
  GeometryRayPacket packet;
  ask_rays(scene.world, *scene.scene, packet, asked, {true, blur});
  std::vector<int> missing(rays.size());  // sure hits that are not among all hits
  for (uint k = 0; k < rays.size(); ++k) {
    const GeometryIntersection& hit = packet.get_nearest(k);
    double nearest = rays[k].tfar;
    for (const auto& [key, sure] : truth[k].hits) {
      if (sure.answer != SureAnswer::hit) continue;
      nearest = std::min(nearest, sure.high);
      ++missing[k];
    }
    EXPECT_LE(hit.distance, nearest) << describe(rays[k]);
    if (hit.geometry != nullptr) check_hit(truth[k], rays[k], hit, packet.get_nearest_path(k));
  }
  ask_rays(scene.world, *scene.scene, packet, asked, {false, blur});
  GeometryHitList& hits = packet.get_hits();
  std::set<std::tuple<uint, uint, uint, uint>> reported;
  for (const GeometryHit& at : hits.get_hits()) {
    const Objects path = hits.get_path(at.hit);
    check_hit(truth[at.ray], rays[at.ray], at.hit, path);
    if (testing::Test::HasFatalFailure()) return;
    const Path objects{path[0].object_index, path[1].object_index};
    EXPECT_TRUE(reported.insert({at.ray, objects[0], objects[1], at.hit.primitive}).second) << "reported twice";
    missing[at.ray] -= truth[at.ray].hits.at({objects, at.hit.primitive}).answer == SureAnswer::hit;
  }
  for (uint k = 0; k < rays.size(); ++k) EXPECT_EQ(missing[k], 0) << describe(rays[k]);
}

TEST(GasScenePackets, find_what_testing_every_primitive_finds) {
  CombinedScene scene;
  const CtxMotionBlur shutter(0.0, 1.0, 3);
  for (const CtxMotionBlur* blur : {static_cast<const CtxMotionBlur*>(nullptr), &shutter}) {
    const std::vector<TestRay> rays = scene.make_timed_rays(scaled(1024, 512));
    std::vector<Truth> truth;
    uint sure_count = 0;
    for (const TestRay& ray : rays) {
      truth.push_back(get_truth(scene, ray, blur));
      for (const auto& hit : truth.back().hits) sure_count += hit.second.answer == SureAnswer::hit;
    }
    EXPECT_GT(sure_count, rays.size() / 2);
    for (const std::size_t size : {1, 7, 256}) {
      SCOPED_TRACE(testing::Message() << (blur != nullptr ? "moving" : "at rest") << ", packets of " << size);
      for (std::size_t first = 0; first < rays.size() && !testing::Test::HasFailure(); first += size) {
        const std::size_t count = std::min(size, rays.size() - first);
        check_packet(scene, std::span(rays).subspan(first, count), std::span(truth).subspan(first, count), blur);
      }
    }
  }
}

}  // namespace
