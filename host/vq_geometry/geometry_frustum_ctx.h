// host/vq_geometry/geometry_frustum_ctx.h
//
// A frustum query: finds the geometry inside a set of planes. Modes:
//
//   0 any        does anything touch the frustum?     hit_count > 0; finished = 1 ends the query
//   1 all        is everything inside?                hit_count == total; outside = 1 for anything not inside
//   2 points     the positions of the points inside   push_point
//   3 vertices   the point-cloud vertices inside      push_point_cloud_vertex
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_matrix.h"
#include "vq_shading_variable/shading_variables.h"

class GeometryIntersectionPath;
class GeometryObject;

/// inside = normal . p + offset >= 0, with offset = -(normal . point). The normal need not be of unit length.
struct GeometryPlane {
  GMathVec3<double> point, normal;
  double offset = 0.0;

  GeometryPlane() = default;
  GeometryPlane(const GMathVec3<double>& point, const GMathVec3<double>& normal)
      : point(point), normal(normal), offset(-normal.dot(point)) {}
  double measure(const GMathVec3<double>& p) const { return normal.dot(p) + offset; }
  /// The same plane in another space. `inverse` transforms into that space, `matrix` back. measure() gives the same
  /// value in both spaces.
  GeometryPlane get_transformed(const GMathMatrix4x4<double>& inverse, const GMathMatrix4x4<double>& matrix) const {
    return {inverse.transform_point(point), matrix.transform_normal_transposed(normal)};
  }
};

/// Result of a query. A nested query starts with a cleared one, which its caller then adds to its own.
#pragma pack(push, 1)
struct GeometryFrustumResult {
  uint hit_count = 0;  ///< mode any: primitives or objects that touch; mode all: those that are inside
  uint total = 0;      ///< mode all: visible primitives or objects in all
  u8 finished = 0;     ///< mode any: 1 ends the query
  u8 outside = 0;      ///< mode all: 1 when something is not inside
};
#pragma pack(pop)
static_assert(sizeof(GeometryFrustumResult) == 10);

enum class GeometryFrustumMode : uint { any = 0, all = 1, points = 2, vertices = 3 };
enum class GeometryBoxPlace { outside, straddling, inside };

struct VQ_EXPORT GeometryFrustumData {
  static constexpr uint plane_capacity = 8;

  GeometryPlane planes[plane_capacity];  ///< side planes
  uint plane_count = 0;                  ///< number of side planes
  GeometryPlane end_planes[2];           ///< near and far plane
  uint end_plane_count = 0;              ///< number of end planes

  uint mode = 0;                               ///< a GeometryFrustumMode; other values do nothing
  uint kind = 0;                               ///< ray type (GMathRay::Type) for visibility masks
  uint shading_group_offset = 0;               ///< added to a geometry's group number: index into `shading`
  uint identification2 = 0;                    ///< number of the outermost instance
  uint depth = 0;                              ///< instancing depth
  uint instance = 0;                           ///< number of the instance within its bundle
  u64 cluster = 0;                             ///< handle of the cluster that is queried; 0: the whole structure
  const ShadingGroupTable* shading = nullptr;  ///< null: nothing is shaded, so nothing is found
  GeometryIntersectionPath* path = nullptr;    ///< objects entered so far; null in the outermost query
  const GeometryObject* geometry = nullptr;    ///< of the primitive being tested
  uint shading_group = 0;                      ///< of the primitive being tested
  uint current_instance = 0;                   ///< `instance` of the primitive being tested
  GeometryFrustumResult result;                ///< written by the query

  /// Transforms all planes into another space. `inverse` transforms points into that space, `matrix` back.
  void transform(const GMathMatrix4x4<double>& inverse, const GMathMatrix4x4<double>& matrix);
};

struct GeometryFrustumVertex {
  GMathVec3<double> position;                ///< in the space of the structure that found it
  const GeometryObject* geometry = nullptr;  ///< null in mode points
  uint index = 0;                            ///< of the vertex in the geometry's point cloud
};

class VQ_EXPORT GeometryFrustumCtx : public GeometryFrustumData {
 public:
  /// Removes all results. Without it, a query adds its results to the previous ones.
  void clear_results();
  /// Adds a side plane. False when there are plane_capacity planes already.
  bool add_plane(const GeometryPlane& plane);

  /// Modes any and all: adds one primitive to the result. The functions take nothing and return bool; only that of the
  /// mode is called.
  template <class Touches, class LiesInside>
  void add_primitive(const Touches& touches, const LiesInside& lies_inside);
  /// Mode 2: appends a position.
  void push_point(const GMathVec3<double>& position) { points_->push_back({position, nullptr, 0}); }
  /// Mode 3: appends a point-cloud vertex with its position.
  void push_point_cloud_vertex(const GMathVec3<double>& position, const GeometryObject* geometry, const uint& index) {
    points_->push_back({position, geometry, index});
  }
  /// Scene queries of modes 0 and 1: adds object `index` of the scene to the list of found objects, once.
  void add_object(const uint& index);
  /// Marks object `index` as decided: this query does not test it again. add_object() marks it, too.
  void set_decided(const uint& index);
  bool is_decided(const uint& index) const {
    return index < object_states_.size() && object_states_[index] != ObjectState::unknown;
  }

  /// Makes this the nested query of `outer` in another space: the same description with transformed planes, a cleared
  /// result and no objects; points are added to the list of `outer`. `inverse` transforms points into the other space,
  /// `matrix` back. Does not allocate.
  void begin_nested(GeometryFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                    const GMathMatrix4x4<double>& matrix);

  /// Position of a box: outside when it is behind one of the planes, inside when it is in front of all, else
  /// straddling. A box near a corner of the frustum may be outside and still give straddling. A NaN bound gives
  /// straddling.
  GeometryBoxPlace classify(const GMathBbox3<float>& box) const;
  bool contains(const GMathVec3<double>& point) const;

  std::vector<GeometryFrustumVertex>& get_points() { return *points_; }
  const std::vector<uint>& get_objects() const { return objects_; }

  std::vector<u8> mask;  ///< modes 2 and 3: one byte per point of the geometry's cloud, 1: inside; grows, never shrinks
  uint point_count = 0;  ///< modes 2 and 3: points of the geometry's cloud

  GeometryFrustumCtx() = default;
  GeometryFrustumCtx(const GeometryFrustumCtx&) = delete;
  GeometryFrustumCtx& operator=(const GeometryFrustumCtx&) = delete;

 private:
  void clear_objects();

  std::vector<GeometryFrustumVertex> own_points_;
  std::vector<GeometryFrustumVertex>* points_ = &own_points_;
  std::vector<uint> objects_;
  enum class ObjectState : u8 { unknown, decided, listed };
  std::vector<ObjectState> object_states_;  ///< indexed by object
  std::vector<uint> decided_;               ///< objects whose state is not unknown
};

template <class Touches, class LiesInside>
void GeometryFrustumCtx::add_primitive(const Touches& touches, const LiesInside& lies_inside) {
  if (mode == static_cast<uint>(GeometryFrustumMode::any) && touches()) {
    ++result.hit_count;
    result.finished = 1;
  }
  if (mode != static_cast<uint>(GeometryFrustumMode::all)) return;
  if (lies_inside())
    ++result.hit_count;
  else
    result.outside = 1;
}
