// The programs behind the fragments of docs/: each function has one fragment, with what it takes for granted.
#include <csignal>

#include "examples/example_world.h"
#include "gas/gas_fur.h"
#include "gas/gas_geometry.h"
#include "gas/gas_geometry_bundle.h"
#include "gas/gas_point.h"
#include "gas/gas_uv_tree.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_object.h"
#include "vq_particle/particle_cloud.h"

namespace {

ExampleWorld world;
OfApp* the_app = &world.app;
const CtxEval& ctx = world.ctx;
CtxShader& shader = world.shader;
const ShadingGroupTable& shading = world.shading;
CoreString error;

PolyMeshData make_box() {
  PolyMeshData data;
  add_box(data, {0, 0, 0}, {1, 1, 1});
  return data;
}

void build_and_query() {
  const GMathVec3<double> origin(0.5, 0.5, 3), direction(0, 0, -1);
  PolyMeshData data = make_box();
  OfApp app;
  OfObjectFactory factory(app);
  CtxEval ctx(factory);
  CtxShader shader;

  PolyMesh mesh;
  mesh.create(std::move(data), error);
  GasGeometryBvh4 structure;
  structure.create(ctx, &mesh, &mesh, nullptr);

  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction);
  structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  expect(hit.geometry == &mesh && hit.distance == 2, "the box is hit");
  expect(packet.get_nearest(0).geometry != nullptr, "the same");
}

void use_grid() {
  PolyMesh mesh;
  create_mesh(mesh, make_box());
  GasGeometry structure;
  structure.create(ctx, &mesh, &mesh, nullptr);
  expect(structure.get_bbox().max == GMathVec3<double>(1, 1, 1), "the box of the mesh");
}

void use_hair() {
  CurveData curves;
  curves.basis = CurveBasis::linear;
  curves.points = {{{0, 0, 0}, 0.1f}, {{0, 0, 1}, 0.1f}};
  curves.curve_sizes = {2};
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {-3, 0, 0.5}, {1, 0, 0});

  TubeMeshFast hair;
  hair.create(std::move(curves), error);
  GasFur structure;
  structure.create(ctx, &hair, &hair, nullptr);
  structure.ray_hit_nearest_static(ctx, shader, packet.begin_nearest(shading));
  expect(packet.get_nearest(0).geometry == &hair, "the curve is hit");
}

void use_points() {
  OfApp& app = world.app;
  ParticleData particles;
  particles.positions = {{0, 0, 5}, {0, 0, 7}};
  constexpr uint count = 1;
  GeometryRayFrustumBeam beams[count];
  GeometryRayFrustumRecord records[count];
  GeometryRayFrustumCtx query;
  const GMathVec3<double> corners[4] = {{-1, -1, 9}, {1, -1, 9}, {1, 1, 9}, {-1, 1, 9}};
  expect(beams[0].set_perspective({0, 0, 0}, {0, 0, 1}, corners, 0, 100), "a beam along z");

  ParticleCloud cloud;
  cloud.create(std::move(particles), error);
  GasPoint structure;
  structure.create(app, ctx, &cloud, nullptr);
  query.begin(beams, records, count);
  structure.ray_frustum_hit(ctx, shader, query);
  expect(records[0].index == 0 && records[0].t == 5, "the nearest point");
}

void use_uv_layout() {
  OfApp& app = world.app;
  PolyMeshData data = make_box();
  data.uv_projection = PolyMeshProjection::cubic;
  auto mesh = std::make_shared<PolyMesh>();
  create_mesh(*mesh, std::move(data));
  ModuleGeometry module("box", mesh, nullptr, ModuleClusterFunctions());
  module.set_application(&app);
  OfObject item("box", &module);
  GMathRay point;
  point.set({0.4, 0.4, 0}, {0, 0, 1});
  GeometryRayInterval interval;
  interval.extent = 0.01;
  GeometryRaytraceCtx query;
  query.rays = reinterpret_cast<const u8*>(&point);
  query.ray_count = 1;
  query.intervals = &interval;
  shader.hit_threshold = -1.0;

  CoreSet<OfObject*> items;
  items.add(&item);
  GasUvTree layout;
  layout.update(app, items, false, "uv");
  layout.build();
  float coverage = layout.ray_hit(ctx, shader, query);
  expect(coverage == 1.0f, "no edge is near, or there is no map of this name");
}

void use_bundle() {
  OfApp& app = world.app;
  PolyMesh mesh;
  create_mesh(mesh, make_box());
  CoreBasicArray<GeometryObject*> geometries(1);
  geometries[0] = &mesh;
  CoreBasicArray<uint> indices(2), group_offsets(1);
  indices[0] = indices[1] = group_offsets[0] = 0;
  CoreBasicArray<GMathMatrix4x4<double>> matrices(2), inverse_matrices;
  matrices[0] = matrices[1] = GMathMatrix4x4<double>();
  matrices[1].m[0][3] = 5.0;
  CoreBasicArray<bool> visibility;
  AppProgressBar* progress = nullptr;

  GasGeometryBundle bundle;
  bundle.create(app, geometries, geometries, indices, indices, group_offsets, matrices, inverse_matrices, visibility,
                {}, /*merge_shading_groups*/ true, progress);
  expect(bundle.get_valid_instance_count() == 2, "both instances are in it");
}

void show_progress() {
  OfApp& app = world.app;
  double last = 0.0;
  const auto show = [&](double fraction, const CoreString&) { last = fraction; };
  PolyMesh mesh;
  create_mesh(mesh, make_box());
  GasGeometryBvh4 structure;

  AppProgressBar* progress = app.create_progress_bar("Build");
  progress->set_sink([&](const AppProgressReport& report) { show(report.fraction, report.task); });
  structure.create(ctx, &mesh, &mesh, progress);
  progress->finish();
  expect(last == 1.0, "the last report is of the whole");
}

void stop() {
  OfApp& app = world.app;
  PolyMesh mesh;
  create_mesh(mesh, make_box());
  GasGeometryBvh4 structure;
  AppProgressBar* progress = nullptr;

  std::signal(SIGINT, [](int) { the_app->request_stop(); });
  std::raise(SIGINT);
  structure.create(ctx, &mesh, &mesh, progress);
  if (app.is_stop_requested()) {
    app.clear_stop_request();
    expect(!(structure.get_bbox().min.x <= structure.get_bbox().max.x), "the structure is empty");
    return;
  }
  expect(false, "the request stands until it is cleared");
}

}  // namespace

int main() {
  build_and_query();
  use_grid();
  use_hair();
  use_points();
  use_uv_layout();
  use_bundle();
  show_progress();
  stop();
}
