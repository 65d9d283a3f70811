// host/vq_module/module_scene_object.h
//
// What a scene is made of: an item that rays can hit. It owns no structure by itself; it knows the one that answers for
// it and how that is cut into clusters:
//
//   scene tree -- clusters, boxes, weights --> ModuleClusterFunctions --> the object's structure
//              -- rays in the object's space --> ray_hit() ...        --> the same, still or moving
#pragma once
#include "vq_core/core_array.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_module/module_scene_item.h"

class CtxEval;
class CtxShader;
class GasObject;
class GeometryFrustumCtx;
class GeometryRaytraceCtx;
class ModuleSceneObject;
class ShadingGroupTable;
struct GeometryOverride;

/// How an object's structure is cut. Handles mean something to the structure only; boxes are in the object's space.
/// Called on several threads at once, for different objects, which may share one structure.
struct ModuleClusterFunctions {
  void (*get_clusters)(ModuleSceneObject*, GeometryOverride*, CoreVector<void*>& clusters, const unsigned int& count,
                       const float& ratio) = nullptr;
  void (*get_clusters_bboxes)(ModuleSceneObject*, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                              GMathBbox3<float>* boxes) = nullptr;
  void (*get_clusters_bboxes_at)(ModuleSceneObject*, GeometryOverride*, const CtxEval&, const double& time,
                                 const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) = nullptr;
  /// May be null: all clusters weigh 1.
  void (*get_clusters_weights)(ModuleSceneObject*, GeometryOverride*, const CoreBasicArray<void*>& clusters,
                               float* weights) = nullptr;
};

class ModuleSceneObject : public ModuleSceneItem {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// Bits of get_flags().
  enum Flag : uint {
    forced_hidden = 0x80,     ///< hidden under the shader's override, unless forced visible
    moving = 0x2000,          ///< matrix or shape changes over time
    has_mask = 0x4000,        ///< the visibility mask counts; without it only for lookups
    forced_visible = 0x8000,  ///< visible under the shader's override, whatever the mask
  };

  explicit ModuleSceneObject(const CoreString& name) : ModuleSceneItem(name) {}

  /// `moving` is the object's own affair, whatever was set.
  uint get_flags() const {
    return (flags_ & ~uint{moving}) | (is_keyframed() || has_moving_shape() ? uint{moving} : 0u);
  }
  /// Bit t: visible to rays of type t (modulo 32).
  uint get_visibility_mask() const { return visibility_mask_; }
  /// Whether rays of type `type` see an object with these flags and this mask.
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
  /// What answers for the object; null for one that cannot be hit.
  const GasObject* get_structure() const { return structure_; }

  // Not while anything reads the object.
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

  // Queries in the object's space: they go to the structure, rays to its moving side when the query has their spans
  // under the shader's motion blur, as a query has that came through the moving side of a scene.
  // The query is given the object's shading table, and keeps it; an object without a table leaves the query's. While
  // the query runs, the material of the last override on its path is the shader's override material. Threads: as the
  // structure's.
  void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query) const;

  /// One cluster, the whole: what structures that cannot be cut are asked through. Its handle is null, its box the
  /// structure's (rounded outwards), its weight 1. A structure with an empty box has none.
  static const ModuleClusterFunctions& get_whole_functions();

 protected:
  /// What the object is hit through. Both must outlive it.
  void set_structure(const GasObject* structure, const ModuleClusterFunctions& functions) {
    structure_ = structure;
    cluster_functions_ = &functions;
  }
  /// The table that primitives of the object's own groups are looked up in; null for an object whose parts bring
  /// theirs.
  virtual const ShadingGroupTable* get_shading_table() const { return nullptr; }

 private:
  template <class Query, class Ask>
  void ask(CtxShader& shader, Query& query, const Ask& ask) const;

  const GasObject* structure_ = nullptr;
  const ModuleClusterFunctions* cluster_functions_ = &get_whole_functions();
  uint flags_ = 0;
  uint visibility_mask_ = 0xFFFFFFFFu;
  double raytrace_distance_ = 0.0;
  bool matte_ = false;
};
