// tools/vqgas/scene/scene_objects.h
//
// From the sources of objects to the host's scene objects and the trees over them.
#pragma once
#include <memory>
#include <vector>

#include "gas/gas_geometry_bundle.h"
#include "gas/gas_particle_tree.h"
#include "gas/gas_scene_tree.h"
#include "tools/vqgas/scene/scene_cloud.h"
#include "tools/vqgas/scene/scene_shape.h"
#include "vq_module/module_scene_object.h"
#include "vq_shading_variable/shading_variables.h"

class ModuleBundle;
class OfApp;

/// A bundle with what it is made of.
struct SceneBundle {
  std::shared_ptr<GasGeometryBundle> structure;
  std::vector<uint> shapes;                          ///< [slot of the structure] number of the shape
  std::vector<uint> slots;                           ///< [instance]
  std::vector<GMathMatrix4x4<double>> matrices;      ///< [instance] at the frame of the scene
  std::shared_ptr<const ModuleMatrixSource> motion;  ///< null: instances stand still

  uint get_shape(uint instance) const { return shapes[slots[instance]]; }
  /// The matrices at `time`.
  std::vector<GMathMatrix4x4<double>> get_matrices_at(double time) const;
};

struct SceneObjects {
  std::vector<std::shared_ptr<ModuleSceneObject>> objects;
  std::shared_ptr<GasSceneTree> tree;          ///< over all but particle objects
  std::shared_ptr<GasParticleTree> particles;  ///< over particle objects; null in groups. Both number all objects
  std::vector<SceneBundle> bundles;            ///< of all objects and groups

  const SceneBundle& get_bundle(const ModuleBundle& object) const;
};

/// True if the matrix is finite and invertible; trees leave out other objects and instances.
bool is_invertible(const GMathMatrix4x4<double>& matrix);
/// The same of the item's matrix.
bool has_invertible_matrix(const ModuleSceneItem& item);

/// Sets the item's keys, and its static matrix from `frame`. If that is not invertible, as for an object that grows
/// from zero, the static matrix is that of the first invertible key: else the tree would leave the object out at all
/// times.
void set_matrix(ModuleSceneItem& item, const ObjectSource& source, double frame);

class SceneObjectMaker {
 public:
  /// All arguments must outlive the maker; `shapes`, `clouds` and the material of `links` also all objects made.
  /// @param links      of every shading group
  /// @param hair       how bundles build hair
  /// @param frame      of the static matrices of moving objects
  SceneObjectMaker(OfApp& application, const std::vector<SceneShape>& shapes, const std::vector<SceneCloud>& clouds,
                   const ShadingGroupLinks& links, const HairSettings& hair, double frame)
      : application_(application), shapes_(shapes), clouds_(clouds), links_(links), hair_(hair), frame_(frame) {}

  /// @param for_all_hits  use the shapes' structures for all hits; bundles have no oriented nodes
  SceneObjects make(const SceneSource& source, bool for_all_hits, AppProgressBar* progress) const;

 private:
  using ObjectList = std::vector<std::shared_ptr<ModuleSceneObject>>;

  /// What objects refer to.
  struct Parts {
    std::vector<SceneObjects> groups;
    std::vector<SceneBundle> bundles;
    bool for_all_hits;
  };
  SceneBundle make_bundle(const BundleSource& source, bool for_all_hits, AppProgressBar* progress) const;
  SceneObjects make_list(const std::vector<ObjectSource>& sources, const Parts& parts, AppProgressBar* progress) const;
  std::shared_ptr<ModuleSceneObject> make_object(const ObjectSource& source, const Parts& parts) const;
  std::shared_ptr<ModuleSceneObject> make_geometry(const CoreString& name, const SceneShape& shape,
                                                   bool for_all_hits) const;
  std::shared_ptr<ModuleSceneObject> make_bundle_object(const CoreString& name, const SceneBundle& bundle) const;

  OfApp& application_;
  const std::vector<SceneShape>& shapes_;
  const std::vector<SceneCloud>& clouds_;
  const ShadingGroupLinks links_;
  const HairSettings hair_;
  const double frame_;
};
