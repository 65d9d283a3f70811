// UV layouts: how near is a point of UV space to the edges of a layout? One lookup a character draws it. The cube has
// no UV map of its own; it gets one by projection: six squares, one for each side of the cube.
#include "examples/example_world.h"
#include "gas/gas_uv_tree.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_object.h"

namespace {

std::shared_ptr<PolyMesh> make_cube() {
  PolyMeshData data;
  add_box(data, {-1, -1, -1}, {1, 1, 1});
  data.uv_projection = PolyMeshProjection::cubic;
  auto mesh = std::make_shared<PolyMesh>();
  create_mesh(*mesh, std::move(data));
  return mesh;
}

/// A lookup is a query of one ray along z: the origin is the point, the extent the tolerance.
class Lookup {
 public:
  explicit Lookup(double tolerance) {
    ray_.set({0, 0, 0}, {0, 0, 1});
    interval_.extent = tolerance;
    query_.rays = reinterpret_cast<const u8*>(&ray_);
    query_.ray_count = 1;
    query_.intervals = &interval_;
  }
  float get_coverage(const GasUvTree& layout, ExampleWorld& world, double u, double v) {
    ray_.origin = {u, v, 0.0};
    return layout.ray_hit(world.ctx, world.shader, query_);
  }

 private:
  GMathRay ray_;
  GeometryRayInterval interval_;
  GeometryRaytraceCtx query_;
};

}  // namespace

int main() {
  ExampleWorld world;
  world.shader.hit_threshold = -1.0;  // coverage alone, no hits
  ModuleGeometry cube("cube", make_cube(), nullptr, ModuleClusterFunctions());
  cube.set_application(&world.app);  // whose contexts evaluate the projection
  OfObject item("cube", &cube);
  CoreSet<OfObject*> items;
  items.add(&item);
  GasUvTree layout;
  layout.update(world.app, items, true, CoreString());
  layout.build();
  expect(layout.get_leaves().get_count() == 24, "each corner has a UV position of its own: four edges a side");

  constexpr int rows = 21, columns = 2 * rows;
  Lookup lookup(0.5 / rows);
  int drawn = 0;
  for (int row = rows; row-- > 0;) {
    for (int column = 0; column < columns; ++column) {
      const bool is_line = lookup.get_coverage(layout, world, (column + 0.5) / columns, (row + 0.5) / rows) < 0.6f;
      std::printf("%c", is_line ? '#' : '.');
      drawn += is_line ? 1 : 0;
    }
    std::printf("\n");
  }
  expect(drawn > 150 && drawn < 450, "lines, and space between them");
  expect(lookup.get_coverage(layout, world, 1.0 / 6.0, 1.0 / 6.0) == 1.0f, "the center of a side is far from edges");
}
