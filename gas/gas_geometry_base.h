// gas/gas_geometry_base.h
//
// What the mesh structures share: turning the host's geometry into a tree builder's input. Every usable primitive gets
// one position, where its box and its index stand:
//
//   position   0 .. geometry_count-1 | .. geometry_alt_end-1 | ..
//   owner      geometry              | alt_geometry          | extra_geometry
//
// Flags per shading group say where its primitives come from: bit 0, from alt_geometry instead of geometry; bit 1, from
// extra_geometry as well.
#pragma once
#include <vector>

#include "gas/gas_clusterable.h"

class AppProgressBar;
class GeometryObject;

class GasGeometryBase : public GasClusterable {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  class BboxTask;

  /// Asks `object` for the box of each of the `count` primitives in `indices`. Those whose six bounds are finite and in
  /// order are written, rounded to single precision, one after the other to `boxes`, with their indices to `kept`; the
  /// others are dropped. Steps the bar to first_step + 1 + position after each. Returns how many were kept.
  static uint compute_bboxes(const CtxEval& ctx, const GeometryObject& object, const uint* indices,
                             const uint& first_step, const uint& count, GMathBbox3<float>* boxes, uint* kept,
                             AppProgressBar* progress);

  /// Kept primitives, all owners together. 0 before the structure was built.
  uint get_kept_count() const { return kept_count; }
  /// Primitives that were asked for; what is missing in get_kept_count() had no usable box.
  uint get_candidate_count() const { return candidate_count; }
  /// Whether anything in the structure moves. If not, queries with times answer as those at rest, at the same speed.
  bool get_has_motion() const { return has_motion; }

 protected:
  GasGeometryBase() = default;
  GasGeometryBase(const GasGeometryBase&) = default;
  GasGeometryBase(GasGeometryBase&&) = default;
  GasGeometryBase& operator=(const GasGeometryBase&) = default;
  GasGeometryBase& operator=(GasGeometryBase&&) = default;

  /// Fills the fields below and `boxes`, one box per kept primitive. In slices on the application's threads,
  /// and dropped primitives are then reported once, as a warning; with a context that is one thread's own on the
  /// calling thread, and silently. Throws std::bad_alloc, and AppStopped when the application asks to stop.
  /// @param group_flags  one word per shading group of base_geometry; looked at only when there is a third or fourth
  ///                     geometry
  /// @return false, with everything as it was, when group_flags has another size; true otherwise, also when no
  ///         primitive is left
  bool init_primitives(const CtxEval& ctx, const GeometryObject* base_geometry, const GeometryObject* geometry,
                       const GeometryObject* alt_geometry, const GeometryObject* extra_geometry,
                       const CoreBasicArray<uint>& group_flags, CoreVector<GMathBbox3<float>>& boxes,
                       AppProgressBar* progress);

  /// Who owns the primitive at `position`.
  const GeometryObject* get_owner(uint position) const {
    if (position < geometry_count) return geometry;
    return position < geometry_alt_end ? alt_geometry : extra_geometry;
  }
  uint get_primitive(uint position) const { return primitives.is_empty() ? position : primitives[position]; }
  /// Whether `position` is its primitive's own index for all primitives of base_geometry.
  bool is_identity_order() const;
  /// Of both arrays.
  u64 get_primitive_array_bytes() const;
  void clear_primitives();
  /// False when there was no memory for a copy's arrays.
  bool is_whole_copy_of(const GasGeometryBase& other) const;

  const GeometryObject* base_geometry = nullptr;  ///< defines primitives and shading groups
  const GeometryObject* geometry = nullptr;
  const GeometryObject* alt_geometry = nullptr;
  const GeometryObject* extra_geometry = nullptr;
  CoreBasicArray<uint> group_primitive_counts;  ///< [shading group] candidates; a group taken twice counts twice
  CoreBasicArray<uint> primitives;              ///< index of the primitive at each position
  uint geometry_count = 0;
  uint geometry_alt_end = 0;
  u8 has_motion = 0;
  uint kept_count = 0;
  uint candidate_count = 0;

 private:
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
