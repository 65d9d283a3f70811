// host/vq_module/module_scene_object.h
//
// An object of a scene: an item that rays can hit. It refers to its structure, and to functions that divide the
// structure into clusters:
//
//   scene tree -- clusters, boxes, weights --> ModuleClusterFunctions --> the object's structure
//              -- rays in the object's space --> ray_hit() ...        --> the same, static or motion queries
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_module/module_scene_item.h"

class CtxEval;
class CtxShader;
class GasObject;
class GeometryFrustumCtx;
class GeometryRayFrustumCtx;
class GeometryRaytraceCtx;
class ModuleSceneObject;
class ShadingGroupTable;
struct GeometryOverride;

/// Callbacks for the clusters of an object's structure. Only the structure can read handles; boxes are in the object's
/// space.
/// Called on several threads at once, for different objects, which may share one structure.
struct ModuleClusterFunctions {
  void (*get_clusters)(ModuleSceneObject*, GeometryOverride*, CoreVector<void*>& clusters, const unsigned int& count,
                       const float& ratio) = nullptr;
  void (*get_clusters_bboxes)(ModuleSceneObject*, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) = nullptr;
  void (*get_clusters_bboxes_at)(ModuleSceneObject*, GeometryOverride*, const CtxEval&, const double& time,
                                 const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) = nullptr;
  /// Null: all clusters have weight 1.
  void (*get_clusters_weights)(ModuleSceneObject*, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                               float* weights) = nullptr;
  /// Weights depend on the structure and the handles alone, so that they are needed once for objects that share one.
  bool weights_depend_on_structure_only = false;
};

class VQ_EXPORT ModuleSceneObject : public ModuleSceneItem {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// Bits of get_flags().
  enum Flag : uint {
    forced_hidden = 0x80,     ///< hidden under the shader's override, unless forced visible
    moving = 0x2000,          ///< matrix or shape changes over time
    has_mask = 0x4000,        ///< the visibility mask applies; without this bit only to lookups
    forced_visible = 0x8000,  ///< visible under the shader's override, whatever the mask
  };

  explicit ModuleSceneObject(const CoreString& name) : ModuleSceneItem(name) {}

  /// The bit `moving` is computed from keys and shape; set_flag() has no effect on it.
  uint get_flags() const {
    return (flags_ & ~uint{moving}) | (is_keyframed() || has_moving_shape() ? uint{moving} : 0u);
  }
  /// Bit t: visible to rays of type t (modulo 32).
  uint get_visibility_mask() const { return visibility_mask_; }
  /// True if rays of type `type` can hit an object with these flags and this mask.
  /// @param visibility_override  the shader's
  static bool is_visible(uint flags, uint mask, uint type, bool visibility_override) {
    if ((flags & has_mask) == 0 && type != GMathRay::lookup) return true;
    if (visibility_override && (flags & forced_visible) != 0) return true;
    if ((mask >> (type & 31u) & 1u) == 0) return false;
    return !(visibility_override && (flags & forced_hidden) != 0);
  }
  bool is_visible(uint type, bool visibility_override) const {
    return is_visible(flags_, visibility_mask_, type, visibility_override);
  }
  /// Rays that the object emits do not hit it nearer than this.
  double get_raytrace_distance() const { return raytrace_distance_; }
  bool is_matte() const { return matte_; }
  const ModuleClusterFunctions& get_cluster_functions() const { return *cluster_functions_; }
  /// The structure that is queried for the object; null: the object cannot be hit.
  const GasObject* get_structure() const { return structure_; }

  // Setters. Not to be called while another thread reads the object.
  void set_flag(Flag flag, bool set) { flags_ = set ? flags_ | flag : flags_ & ~uint{flag}; }
  void set_visibility_mask(uint mask) { visibility_mask_ = mask; }
  void set_raytrace_distance(double distance) { raytrace_distance_ = distance; }
  void set_matte(bool matte) { matte_ = matte; }

  /// As doubles: a scene may hold more than fits 32 bits many times over.
  virtual double get_geometry_count() const = 0;
  virtual double get_primitive_count() const = 0;
  virtual uint get_shading_group_count() const { return 0; }
  virtual bool has_moving_shape() const { return false; }
  /// The structure's box, in the object's space; empty without a structure.
  GMathBbox3<double> get_local_bbox() const;

  // Queries in the object's space, passed to the structure. Ray queries with motion spans of the shader's motion blur
  // (nested in a motion query of a scene) call the structure's motion form, others the static form. They set
  // query.shading to the object's table, if it has one, and the group offset to 0, and do not restore them. During the
  // query the override material of the path's last element is the shader's override material. Threads: as for the
  // structure.
  void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;
  /// Beams find particles, which have no shading: table and materials do not matter.
  void ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query) const;

  /// Functions for structures without clusters: one cluster for the whole. Its handle is null, its box the structure's
  /// (rounded outwards), its weight 1. A structure with an empty box has no cluster.
  static const ModuleClusterFunctions& get_whole_functions();

 protected:
  /// Sets structure and cluster functions. Both must outlive the object.
  void set_structure(const GasObject* structure, const ModuleClusterFunctions& functions) {
    structure_ = structure;
    cluster_functions_ = &functions;
  }
  /// Sets the table of the object's own shading groups, which queries read; without one, its parts have their own
  /// tables.
  void set_shading_table(const ShadingGroupTable* table) { shading_table_ = table; }

 private:
  template <class Query, class Run>
  void query_structure(CtxShader& shader, Query& query, const Run& run) const;

  // All that a ray reads is in one cache line, the one after the matrix, which is prefetched with it.
  const GasObject* structure_ = nullptr;
  const ShadingGroupTable* shading_table_ = nullptr;
  uint flags_ = 0;
  uint visibility_mask_ = 0xFFFFFFFFu;
  double raytrace_distance_ = 0.0;
  const ModuleClusterFunctions* cluster_functions_ = &get_whole_functions();
  bool matte_ = false;
};
