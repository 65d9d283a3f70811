// bench/bench_scene.h
//
// This library as it is measured: a geometry, its structure and the contexts of a query.
#pragma once
#include <functional>
#include <memory>
#include <vector>

#include "bench/bench_groom.h"
#include "bench/bench_mesh.h"
#include "bench/bench_objects.h"
#include "bench/bench_tracer.h"
#include "gas/gas_fur.h"
#include "gas/gas_geometry.h"
#include "gas/gas_geometry_bundle.h"
#include "gas/gas_geometry_bvh4.h"
#include "gas/gas_scene_tree.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_ray_packet.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object_factory.h"

/// An application with `thread_count` threads and one shaded group.
struct BenchWorld {
  explicit BenchWorld(uint thread_count) : app(thread_count), factory(app), ctx(factory) {
    links.material = &material;
    shading = ShadingGroupTable(entries);
  }

  OfApp app;
  OfObjectFactory factory;
  CtxEval ctx;
  Material material;
  ShadingGroupLinks links;
  const ShadingGroupLinks* entries[1] = {&links};
  ShadingGroupTable shading;
};

/// Any structure of this library, traced.
class BenchStructure : public BenchTracer {
 public:
  /// Sets with times use motion queries, under the motion blur of the world's context.
  void trace(uint thread, const BenchRaySet& set, std::size_t first, std::size_t end, BenchHit* hits) override;

  /// Nodes and leaves that queries of the set visit: means per ray.
  struct MeanVisits {
    double nodes = 0.0, leaves = 0.0;
  };
  MeanVisits count_visits(const BenchRaySet& set);

  static constexpr uint packet_size = 256;

 protected:
  /// The world's context must not change afterwards.
  BenchStructure(BenchWorld& world, uint worker_count);
  virtual const GasObject& get_doors() const = 0;
  void build(const std::function<void(AppProgressBar*)>& create);
  /// Hits then have primitive numbers over all objects: [object] is the number of its first primitive. In a bundle
  /// objects are instances.
  void set_first_primitives(const u32* first_primitives, bool is_bundle = false) {
    first_primitives_ = first_primitives;
    is_bundle_ = is_bundle;
  }
  BenchWorld& get_world() { return world_; }

 private:
  struct Worker {
    explicit Worker(const CtxEval& parent) : ctx(parent) { shader.motion_blur = parent.get_motion_blur(); }
    CtxEval ctx;
    CtxShader shader;
    GeometryRayPacket packet;
  };
  static uint fill_packet(Worker& worker, const BenchRaySet& set, std::size_t first, std::size_t end);
  void ask(Worker& worker, const BenchRaySet& set, GeometryRayVisits* visits) const;
  void read_hits(Worker& worker, BenchHit* hits, uint count) const;

  BenchWorld& world_;
  std::vector<std::unique_ptr<Worker>> workers_;
  const u32* first_primitives_ = nullptr;
  bool is_bundle_ = false;
};

/// The structure over a mesh.
class BenchScene final : public BenchStructure {
 public:
  /// The constructor calls create(); `mesh` must outlive the scene.
  BenchScene(BenchWorld& world, const PolyMesh& mesh, uint worker_count);

  u64 get_tree_bytes() const override { return structure_.get_tree().get_array_bytes(); }
  u64 get_record_bytes() const override { return structure_.get_record_bytes(); }
  u64 get_total_bytes() const override { return structure_.get_memory_size(); }
  const GasGeometryBvh4& get_structure() const { return structure_; }

 private:
  const GasObject& get_doors() const override { return structure_; }

  GasGeometryBvh4 structure_;
};

/// The structure over a mesh, or a displaced one, on the grid tree.
class BenchGridScene final : public BenchStructure {
 public:
  /// As BenchScene.
  BenchGridScene(BenchWorld& world, const GeometryObject& mesh, uint worker_count);

  /// Grows while queries build parts.
  u64 get_tree_bytes() const override { return structure_.get_grid().get_memory_size(); }
  u64 get_total_bytes() const override { return structure_.get_memory_size(); }

 private:
  const GasObject& get_doors() const override { return structure_; }

  GasGeometry structure_;
};

/// A scene tree over objects that share meshes.
class BenchObjectsScene final : public BenchStructure {
 public:
  /// Makes the structures of the meshes and the objects, but no tree. `objects` and `meshes` must outlive the scene.
  /// @param cut  true: the leaves of the scene are clusters of the objects; false: whole objects
  BenchObjectsScene(BenchWorld& world, const BenchObjects& objects,
                    const std::vector<std::shared_ptr<PolyMesh>>& meshes, bool cut, uint worker_count);

  /// Builds the tree; this is the measured build time.
  void create_tree();
  u64 get_tree_bytes() const override { return tree_.get_memory_size(); }
  u64 get_total_bytes() const override;

 private:
  const GasObject& get_doors() const override { return tree_; }

  std::vector<std::shared_ptr<GasGeometryBvh4>> structures_;
  std::vector<std::unique_ptr<ModuleGeometry>> objects_;
  GasSceneTree tree_;
};

/// A bundle of instances that share meshes.
class BenchBundleScene final : public BenchStructure {
 public:
  /// Prepares the arrays, but makes no structure. `objects` and `meshes` must outlive the scene.
  BenchBundleScene(BenchWorld& world, const BenchObjects& objects, const std::vector<std::shared_ptr<PolyMesh>>& meshes,
                   uint worker_count);

  /// Builds the structures of the meshes and the bundle's own.
  void create();
  u64 get_tree_bytes() const override { return bundle_.get_memory_size(); }
  u64 get_total_bytes() const override;

 private:
  const GasObject& get_doors() const override { return bundle_; }

  const BenchObjects& objects_;
  CoreBasicArray<GeometryObject*> geometries_;
  CoreBasicArray<uint> kinds_;
  CoreBasicArray<BenchMatrix> matrices_;
  GasGeometryBundle bundle_;
};

/// The structure over hair.
class BenchHairScene final : public BenchStructure {
 public:
  /// As BenchScene. With `oriented` false the tree has no oriented nodes.
  BenchHairScene(BenchWorld& world, const TubeMeshFast& tubes, bool oriented, uint worker_count);

  u64 get_tree_bytes() const override { return structure_.get_tree().get_array_bytes(); }
  u64 get_record_bytes() const override { return structure_.get_record_bytes(); }
  u64 get_total_bytes() const override { return structure_.get_memory_size(); }
  const GasFur& get_structure() const { return structure_; }

 private:
  const GasObject& get_doors() const override { return structure_; }

  GasFur structure_;
};
