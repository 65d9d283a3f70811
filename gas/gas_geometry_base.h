// gas/gas_geometry_base.h
//
// Shared by the mesh structures: makes a tree builder's input from the host's geometry. Every usable primitive gets one
// position, the index of its box and of its number in the arrays:
//
//   position   0 .. geometry_count-1 | .. geometry_alt_end-1 | ..
//   owner      geometry              | alt_geometry          | extra_geometry
//
// One flag word per shading group. Bit 0: alt_geometry replaces geometry. Bit 1: extra_geometry adds its primitives.
#pragma once
#include <vector>

#include "gas/gas_clusterable.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_core/core_export.h"

class AppProgressBar;
class GeometryObject;

class VQ_EXPORT GasGeometryBase : public GasClusterable {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  class BboxTask;

  /// Computes the boxes of `count` primitives of `object`, rounded to single precision. A primitive whose box is not
  /// finite or inverted is dropped; the others are stored without gaps. Any number of threads, each with its own
  /// context. O(count).
  /// @param indices     [count] primitives
  /// @param first_step  the bar is stepped to first_step + 1, first_step + 2, ...
  /// @param boxes       [count], the first of them written: those of the kept primitives
  /// @param kept        [count], the first of them written: the numbers of the kept primitives
  /// @param progress    may be null
  /// @return number of kept primitives
  static uint compute_bboxes(const CtxEval& ctx, const GeometryObject& object, const uint* indices,
                             const uint& first_step, const uint& count, GMathBbox3<float>* boxes, uint* kept,
                             AppProgressBar* progress);

  /// Number of primitives in the tree, of all owners. 0 before the first build. Thread-safe between builds, O(1).
  uint get_kept_count() const { return kept_count; }
  /// Number of primitives of the last create(). Those not in get_kept_count() had no usable box.
  uint get_candidate_count() const { return candidate_count; }
  /// True if a geometry has motion. If not, motion queries return the static hits at the speed of static queries.
  bool get_has_motion() const { return has_motion; }

 protected:
  GasGeometryBase() = default;
  GasGeometryBase(const GasGeometryBase&) = default;
  GasGeometryBase(GasGeometryBase&&) = default;
  GasGeometryBase& operator=(const GasGeometryBase&) = default;
  GasGeometryBase& operator=(GasGeometryBase&&) = default;

  /// Fills the fields below and `boxes`, one box per kept primitive. With a top-level context in tasks on the
  /// application's threads, and dropped primitives are logged once as a warning; with the context of one thread on the
  /// calling thread, without a warning. Throws std::bad_alloc, and AppStopped if the application requests a stop.
  /// @param group_flags  [shading group of base_geometry]; read only if alt_geometry or extra_geometry is given
  /// @return false, with nothing changed, if group_flags has another size; else true, also if no primitive is left
  bool init_primitives(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
                       const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
                       const CoreBasicArray<uint>& group_flags, CoreVector<GMathBbox3<float>>& boxes,
                       AppProgressBar* progress);

  /// The two stages of create(), of weight 0.5 each: init_primitives(), then build_tree(boxes) unless that returned
  /// false. Keeps no list of primitives that would be 0, 1, 2, ...
  /// @param stage  name of the second stage
  template <class BuildTree>
  bool prepare_and_build(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
                         const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
                         const CoreBasicArray<uint>& group_flags, AppProgressBar* progress, const char* stage,
                         const BuildTree& build_tree) {
    CoreVector<GMathBbox3<float>> boxes;
    {
      const AppProgressScope prepare(progress, "Prepare primitives", 0.5);
      if (!init_primitives(ctx, base_geometry, geometry, alt_geometry, extra_geometry, group_flags, boxes, progress))
        return false;
    }
    if (is_identity_order()) primitives.remove_all();
    const AppProgressScope build(progress, stage, 0.5);
    build_tree(boxes);
    return true;
  }

  /// The geometry that owns the primitive at `position`.
  const GeometryObject* get_owner(uint position) const {
    if (position < geometry_count) return geometry;
    return position < geometry_alt_end ? alt_geometry : extra_geometry;
  }
  uint get_primitive(uint position) const { return primitives.is_empty() ? position : primitives[position]; }
  /// True if every primitive of base_geometry was kept at the position that equals its number.
  bool is_identity_order() const;
  /// True if every primitive is in group 0: leaves then need no lookup. Checks each primitive unless they were counted,
  /// because a geometry that lists one group may still return others. Throws AppStopped if the application requests a
  /// stop.
  bool is_one_group(const CtxEval& ctx) const;
  /// The result of choose.operator()<indexed, many_owners, one_group>() for the variant of GasMeshLeaf that serves all
  /// positions.
  template <class Choose>
  auto choose_leaf(const CtxEval& ctx, const Choose& choose) const {
    const auto choose_owner = [&]<bool one_group>() {
      if (primitives.is_empty()) return choose.template operator()<false, false, one_group>();
      const bool many_owners = alt_geometry != nullptr || extra_geometry != nullptr;
      return many_owners ? choose.template operator()<true, true, one_group>()
                         : choose.template operator()<true, false, one_group>();
    };
    return is_one_group(ctx) ? choose_owner.template operator()<true>() : choose_owner.template operator()<false>();
  }
  /// Bytes of group_primitive_counts and primitives.
  u64 get_primitive_array_bytes() const;
  void clear_primitives();
  /// False if there was no memory to copy an array of `other`.
  bool is_whole_copy_of(const GasGeometryBase& other) const;

  const GeometryObject* base_geometry = nullptr;  ///< defines primitives and shading groups
  const GeometryObject* geometry = nullptr;
  const GeometryObject* alt_geometry = nullptr;
  const GeometryObject* extra_geometry = nullptr;
  CoreBasicArray<uint> group_primitive_counts;  ///< [shading group] candidates; with extra_geometry counted twice
  CoreBasicArray<uint> primitives;              ///< [position] primitive; empty: the position is the primitive
  uint geometry_count = 0;
  uint geometry_alt_end = 0;
  u8 has_motion = 0;
  uint kept_count = 0;
  uint candidate_count = 0;

 private:
  template <class Mesh, bool indexed, bool many_owners, bool one_group>
  friend struct GasMeshLeaf;
  struct ObjectLists;
  void list_all(const CtxEval& ctx, ObjectLists& lists, AppProgressBar* progress);
  void list_by_groups(const CtxEval& ctx, ObjectLists& lists, const CoreBasicArray<uint>& group_flags,
                      AppProgressBar* progress);
  void sort_by_group(const CtxEval& ctx, std::vector<CoreVector<uint>>& groups, AppProgressBar* progress) const;
  static uint compute_slice(const CtxEval& ctx, const GeometryObject& object, const uint* indices, uint first_step,
                            uint count, GMathBbox3<float>* boxes, uint* kept, AppProgressBar* progress);
  void compute_serial(const CtxEval& ctx, const ObjectLists& lists, GMathBbox3<float>* boxes, AppProgressBar* progress);
  void compute_parallel(const CtxEval& ctx, const ObjectLists& lists, GMathBbox3<float>* boxes,
                        AppProgressBar* progress);
};
