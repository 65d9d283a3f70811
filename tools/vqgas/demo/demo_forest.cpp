#include "tools/vqgas/demo/demo_forest.h"

#include <algorithm>
#include <cmath>

#include "tools/vqgas/demo/demo_placing.h"
#include "tools/vqgas/demo/demo_relief.h"
#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/source/scatter.h"
#include "tools/vqgas/support/random.h"

namespace {

constexpr uint columns = 150, rate = 6;  // 1.6 million micro-triangles
constexpr double side = 44.0, water_level = -0.42, bound = 0.12;

/// Hills around a clearing with a pond, and the clods that displace them.
class ForestLand {
 public:
  Point get_place(double x, double z) const {
    const double away = std::hypot(x, z), shore = std::hypot(1.25 * (x + 0.6), z - 1.0);
    const double wide = broad_.get_height({{x, 0.0, z}, {}}), hills = demo_ease(6.0, 20.0, away) * (2.6 + 2.2 * wide);
    const double dam = 1.4 * demo_ease(4.0, 16.0, -0.6 * x - 0.8 * z);  // higher at the back of the usual view
    return {x, 0.35 * wide + hills + dam - 1.1 * (1.0 - demo_ease(1.5, 4.6, shore + 0.8 * wide)), z};
  }
  const std::shared_ptr<const GeometryHeight>& get_clods() const { return clods_; }
  /// How densely trees stand: 0 in the clearing, which is longer to the front (z), 1 in the wood.
  double get_wood(const Point& at) const {
    const double edge = std::hypot(0.9 * at.x, at.z < 0.0 ? at.z : 0.5 * at.z) +
                        3.0 * broad_.get_height({{1.7 * at.x, 9.0, 1.7 * at.z}, {}});
    return demo_ease(6.5, 10.5, edge);
  }
  /// Patches in which flowers of one kind stand, in [-1, 1].
  double get_patch(const Point& at, double kind) const { return narrow_.get_height({{at.x, 7.0 * kind, at.z}, {}}); }

 private:
  GeometryNoiseHeight broad_{demo_make_noise(11, 3, 0.13, 1.0)}, narrow_{demo_make_noise(12, 2, 0.45, 1.0)};
  std::shared_ptr<const GeometryHeight> clods_ =
      std::make_shared<GeometryNoiseHeight>(demo_make_noise(13, 3, 1.6, bound));
};

MeshSource make_ground(const ForestLand& land) {
  MeshBuilder builder;
  const uint soil = builder.add_group("soil", color_from_srgb(0x5f6b3a));
  const uint mud = builder.add_group("mud", color_from_srgb(0x8a7a5a));
  const auto place = [&](double u, double v) { return land.get_place((u - 0.5) * side, (v - 0.5) * side); };
  add_sheet(builder, columns, columns, place,
            [&](double u, double v) { return place(u, v).y < water_level + 0.2 ? mud : soil; });
  return builder.finish();
}

MeshSource make_water() {
  MeshBuilder builder;
  const uint water = builder.add_group("water", color_from_srgb(0x6f9296));
  const auto place = [](double u, double v) { return Point(12.0 * (u - 0.5), water_level, 12.0 * (v - 0.5) + 1.0); };
  add_sheet(builder, 1, 1, place, [&](double, double) { return water; });
  return builder.finish();
}

/// Plants of several shapes that grow in the same places.
struct Kind {
  uint count;  // points, of which `grows` keeps a part
  double least_scale, greatest_scale, tilt_degrees, sway_degrees;
  std::vector<ShapeSource> shapes;
  bool (*grows)(const ForestLand& land, const Point& at, double chance);
};

class ForestPlanter {
 public:
  ForestPlanter(const ForestLand& land, const GroomSurface& surface, SceneSource& scene)
      : land_(land), surface_(surface), scene_(scene) {}

  void plant(Kind&& kind) {
    const auto first_shape = static_cast<uint>(scene_.shapes.size()), seed = first_shape;
    const ScatterSettings placing{kind.least_scale, kind.greatest_scale, false, kind.tilt_degrees, seed};
    uint number = 0;
    for (GroomSurface::Root point : scatter_points(surface_, kind.count, seed, nullptr)) {
      const uint own = hash_bits(++number + hash_bits(seed));
      if (point.position.y < water_level + 0.12 || !kind.grows(land_, point.position, random_unit(own, 1))) continue;
      const double height = land_.get_clods()->get_height({point.position, {}});
      point.position += point.normal * std::clamp(height, -bound, bound);
      bundle_.shapes.push_back(first_shape + static_cast<uint>(random_unit(own, 2) * double(kind.shapes.size())));
      bundle_.matrices.push_back(place_instance(point, number, placing));
      degrees_.push_back(kind.sway_degrees);
    }
    for (ShapeSource& shape : kind.shapes) scene_.shapes.push_back(std::move(shape));
  }

  BundleSource finish() {
    constexpr double period = 2.0, wavelength = 14.0;
    bundle_.motion = make_sway(bundle_.matrices, degrees_, {period, wavelength});
    return std::move(bundle_);
  }

 private:
  const ForestLand& land_;
  const GroomSurface& surface_;
  SceneSource& scene_;
  BundleSource bundle_;
  std::vector<double> degrees_;
};

template <class... Sources>
std::vector<ShapeSource> list_shapes(Sources&&... sources) {
  std::vector<ShapeSource> shapes;
  (shapes.emplace_back(std::move(sources)), ...);
  return shapes;
}

void plant_wood(ForestPlanter& planter) {
  const auto in_wood = [](const ForestLand& land, const Point& at, double chance) {
    return chance < land.get_wood(at);
  };
  planter.plant({1500, 0.75, 1.35, 3.0, 1.2,
                 list_shapes(make_forest_conifer(1, {0x46683f, 0x6b5540}), make_forest_conifer(2, {0x35583f, 0x5d4a3a}),
                             make_forest_conifer(3, {0x5a7a48, 0x6b5540})),
                 in_wood});
  planter.plant({1000, 0.7, 1.2, 4.0, 1.8,
                 list_shapes(make_forest_tree(4, {0x7c9a45, 0x7a6650}), make_forest_tree(5, {0x93a84a, 0xd8d2c4}),
                             make_forest_tree(6, {0xd9a441, 0xd8d2c4}), make_forest_tree(7, {0xc4703a, 0x7a6650})),
                 [](const ForestLand& land, const Point& at, double chance) {
                   const double wood = land.get_wood(at);
                   return chance < 0.02 + 0.9 * wood && land.get_patch(at, 4.0) > -0.1;
                 }});
  planter.plant(
      {2200, 0.6, 1.3, 8.0, 2.5,
       list_shapes(make_forest_bush(8, 0x6f8f42), make_forest_bush(9, 0x55773f), make_forest_bush(10, 0x8a8f4a)),
       [](const ForestLand& land, const Point& at, double chance) {
         return chance < 0.08 + 0.6 * land.get_wood(at) * (1.0 - 0.6 * land.get_wood(at));
       }});
  planter.plant(
      {9000, 0.6, 1.25, 10.0, 4.0,
       list_shapes(make_forest_fern(11, 0x6d9440), make_forest_fern(12, 0x86a24a), make_forest_fern(13, 0x577f3b)),
       [](const ForestLand& land, const Point& at, double chance) { return chance < 0.1 + 0.7 * land.get_wood(at); }});
}

void plant_meadow(ForestPlanter& planter) {
  planter.plant(
      {62000, 0.75, 1.6, 8.0, 9.0,
       list_shapes(make_forest_grass(14, 0x83a548, false), make_forest_grass(15, 0x9bb457, false),
                   make_forest_grass(16, 0x6f9440, false), make_forest_grass(17, 0xa9b15f, true)),
       [](const ForestLand& land, const Point& at, double chance) { return chance < 1.0 - 0.35 * land.get_wood(at); }});
  const ForestColors colors[] = {
      {0xf2efe6, 0xe8b93a}, {0xd85a5f, 0x3f3540}, {0x8b7cc4, 0xf0d060}, {0xf0c440, 0xb8792c}};
  for (uint k = 0; k < 4; ++k) {
    static constexpr auto make_test = []<int kind>() {
      return [](const ForestLand& land, const Point& at, double chance) {
        return land.get_patch(at, kind) > 0.12 && chance < 0.9 * (1.0 - land.get_wood(at));
      };
    };
    bool (*const tests[])(const ForestLand&, const Point&, double) = {
        make_test.operator()<0>(), make_test.operator()<1>(), make_test.operator()<2>(), make_test.operator()<3>()};
    planter.plant({9000, 0.7, 1.25, 10.0, 8.0, list_shapes(make_forest_flower(colors[k])), tests[k]});
  }
  planter.plant({1500, 0.35, 1.9, 40.0, 0.0, list_shapes(make_forest_stone(18), make_forest_stone(19)),
                 [](const ForestLand&, const Point& at, double chance) {
                   return chance < (at.y < water_level + 0.5 ? 0.9 : 0.12);
                 }});
}

}  // namespace

SceneSource make_demo_forest() {
  const ForestLand land;
  MeshSource ground = make_ground(land);
  PolyMesh mesh;
  create_groom_mesh(MeshSource(ground), 180.0, mesh);
  ground.displacement = DisplacedMeshSettings();
  ground.displacement->height = land.get_clods();
  ground.displacement->bound = bound;
  ground.displacement->rate = rate;
  ground.displacement->cache_bytes = u64{256} << 20;
  SceneSource scene;
  scene.add_object("ground", std::move(ground));
  scene.add_object("water", make_water());
  const GroomSurface surface(mesh);
  ForestPlanter planter(land, surface, scene);
  plant_wood(planter);
  plant_meadow(planter);
  ObjectSource plants{"plants"};
  plants.bundle = 0;
  plants.is_animated = true;
  scene.objects.push_back(plants);
  scene.bundles.push_back(planter.finish());
  return scene;
}
