// gas/gas_particle_tree.h
//
// The structure over particle objects of a scene, for frustums and beams. It is a tree over the objects' boxes in the
// world; a leaf passes the query, in the object's space, to the object.
//
//   scene_objects  [object]  as given to create(), null entries included
//   valid_indices  [leaf]    the objects in the tree, ascending
//
//   frustum --> tree --> leaf --> visible? --> planes in the object's space --> object --> results in the world
//   beam    --> tree --> leaf --> visible? --> beam in the object's space   --> object --> the same record
//
// Beams keep their parameter t in every space, so a record needs no way back.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_object.h"
#include "vq_gas_base/gas_tree.h"

class AppBase;
class AppProgressBar;
class ModuleSceneObject;

class VQ_EXPORT GasParticleTree : public GasObject {
 public:
  /// An empty structure: queries find nothing.
  GasParticleTree() = default;
  /// Copies share the scene objects. Empty if there is no memory.
  GasParticleTree(const GasParticleTree& other);
  GasParticleTree& operator=(const GasParticleTree& other);
  ~GasParticleTree() override;

  class GasParticleTreeCheckTask;
  class GasParticleTreeBboxTask;

  /// Builds the structure over the particle objects among `objects` and replaces its former content. Left out are null
  /// entries, objects of another kind, without particles, or whose matrix has a determinant of zero or NaN. The objects
  /// must outlive the structure; it is created again after one of them was moved. Empty when there is no memory
  /// (logged) and after a stop request. No query may be running. Throws nothing. Runs on the application's threads,
  /// O(n log n) in the number of objects.
  /// @param progress  or null
  void create(const AppBase& app, const CoreArray<ModuleSceneObject*>& objects, AppProgressBar* progress);
  void create(const AppBase& app, const CoreVector<ModuleSceneObject*>& objects, AppProgressBar* progress);

  /// Particles of all objects in the tree. After create() without any objects it is that of the former ones.
  const double& get_particle_count() const { return particle_count; }
  /// Objects given to create(), and the positions among them of those in the tree, ascending.
  const CoreArray<ModuleSceneObject*>& get_scene_objects() const { return scene_objects; }
  const CoreVector<uint>& get_valid_indices() const { return valid_indices; }
  /// The box of all particles in the world; inverted if there are none. O(1).
  GMathBbox3<double> get_bbox() const override;
  /// Bytes of the object, its arrays and its tree. O(1).
  u64 get_memory_size() const override;

  // Query callbacks of GasObject. None throws: if memory runs out, the query keeps what it has found so far.

  /// Mode any lists the objects with a particle inside, mode all those with all particles inside: by their positions
  /// in the list given to create(), each once. Modes points and vertices append particles in world space. Clears
  /// query.result first.
  static void frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryFrustumCtx&);
  /// The nearest particle of each beam; the record's object is the address of its ModuleSceneObject.
  static void ray_frustum_hit_callback(const GasObject*, const CtxEval&, CtxShader&, GeometryRayFrustumCtx&);

  // Callbacks of the tree; `structure` is the GasParticleTree. Thread-safe; they only read the structure.

  static void leaf_frustum_hit_callback(void* structure, const uint& leaf, const CtxEval&, CtxShader&,
                                        GeometryFrustumCtx&);
  static void leaf_ray_frustum_hit_callback(void* structure, const uint& leaf, const CtxEval&, CtxShader&,
                                            GeometryRayFrustumCtx&);
  void leaf_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                        GeometryFrustumCtx& query) const;
  void leaf_ray_frustum_hit(const unsigned int& leaf, const CtxEval& ctx, CtxShader& shader,
                            GeometryRayFrustumCtx& query) const;

 private:
  void create(const AppBase& app, ModuleSceneObject* const* objects, uint count, AppProgressBar* progress);
  void build(const AppBase& app, AppProgressBar* progress);
  void collect_valid(const AppBase& app);
  void compute_bboxes(const AppBase& app, CoreVector<GMathBbox3<float>>& boxes);
  void install_tree_callbacks();
  void clear();

  CoreArray<ModuleSceneObject*> scene_objects;  ///< not owned
  CoreVector<uint> valid_indices;
  GasTree tree;
  double particle_count = 0.0;
};
