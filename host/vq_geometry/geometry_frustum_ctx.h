// host/vq_geometry/geometry_frustum_ctx.h
//
// A frustum query: what lies inside a set of planes. Modes:
//
//   0 any        does anything touch the frustum?     hit_count counts, finished may end the query
//   1 all        is everything inside?                hit_count == total; outside is set by whatever is not
//   2 points     the positions of the points inside   push_point
//   3 vertices   the point-cloud vertices inside      push_point_cloud_vertex
#pragma once
#include <vector>

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
  /// The same plane in another space, that `inverse` leads to and `matrix` back from. A point measures the same in
  /// both.
  GeometryPlane get_transformed(const GMathMatrix4x4<double>& inverse, const GMathMatrix4x4<double>& matrix) const {
    return {inverse.transform_point(point), matrix.transform_normal_transposed(normal)};
  }
};

/// The ten bytes that a nested query clears and its caller folds into its own.
#pragma pack(push, 1)
struct GeometryFrustumResult {
  uint hit_count = 0;
  uint total = 0;
  u8 finished = 0;
  u8 outside = 0;
};
#pragma pack(pop)
static_assert(sizeof(GeometryFrustumResult) == 10);

enum class GeometryFrustumMode : uint { any = 0, all = 1, points = 2, vertices = 3 };
enum class GeometryBoxPlace { outside, straddling, inside };

struct GeometryFrustumData {
  static constexpr uint plane_capacity = 8;

  GeometryPlane planes[plane_capacity];  ///< the sides
  uint plane_count = 0;
  GeometryPlane end_planes[2];  ///< near and far
  uint end_plane_count = 0;

  uint mode = 0;  ///< a GeometryFrustumMode; other values do nothing
  uint kind = 0;  ///< ray type that visibility masks are asked for
  uint shading_group_offset = 0;
  uint identification2 = 0;
  uint depth = 0;
  uint instance = 0;
  u64 cluster = 0;
  const ShadingGroupTable* shading = nullptr;
  GeometryIntersectionPath* path = nullptr;
  const GeometryObject* geometry = nullptr;
  uint shading_group = 0;
  uint current_instance = 0;
  GeometryFrustumResult result;

  /// Carries all planes into the space that `inverse` leads to and `matrix` back from.
  void transform(const GMathMatrix4x4<double>& inverse, const GMathMatrix4x4<double>& matrix);
};

struct GeometryFrustumVertex {
  GMathVec3<double> position;
  const GeometryObject* geometry = nullptr;
  uint index = 0;
};

class GeometryFrustumCtx : public GeometryFrustumData {
 public:
  /// Forgets what was found, so that the same can be asked again. What a query finds is added to what was found before.
  void clear_results();
  /// Adds a side plane. False when all places are taken.
  bool add_plane(const GeometryPlane& plane);

  /// Mode 2: appends a position.
  void push_point(const GMathVec3<double>& position);
  /// Mode 3: appends a point-cloud vertex with its position.
  void push_point_cloud_vertex(const GMathVec3<double>& position, const GeometryObject* geometry, const uint& index);
  /// Scene queries of modes 0 and 1: lists object `index` of the scene, once however often it is added.
  void add_object(const uint& index);
  /// Notes that object `index` need not be looked at again in this query; one that was added need not either.
  void set_decided(const uint& index);
  bool is_decided(const uint& index) const { return index < places_.size() && places_[index] != ObjectPlace::unknown; }

  /// Becomes the query that `outer` puts to what lies in the space that `inverse` leads to and `matrix` back from:
  /// described as `outer` is, but with nothing found and no objects listed; points go to the list of `outer`. Does not
  /// allocate.
  void begin_nested(GeometryFrustumCtx& outer, const GMathMatrix4x4<double>& inverse,
                    const GMathMatrix4x4<double>& matrix);

  /// Where a box lies: outside when one plane has it wholly behind itself, inside when no plane cuts it. A box near a
  /// frustum's corner may count as straddling though it is outside. A NaN bound straddles.
  GeometryBoxPlace classify(const GMathBbox3<float>& box) const;
  bool contains(const GMathVec3<double>& point) const;

  std::vector<GeometryFrustumVertex>& get_points() { return *points_; }
  const std::vector<uint>& get_objects() const { return objects_; }

  std::vector<u8> mask;  ///< modes 2 and 3: one byte a point of the geometry's cloud; grows, never shrinks
  uint point_count = 0;  ///< modes 2 and 3: points of the geometry's cloud

  GeometryFrustumCtx() = default;
  GeometryFrustumCtx(const GeometryFrustumCtx&) = delete;
  GeometryFrustumCtx& operator=(const GeometryFrustumCtx&) = delete;

 private:
  void forget_objects();

  std::vector<GeometryFrustumVertex> own_points_;
  std::vector<GeometryFrustumVertex>* points_ = &own_points_;
  std::vector<uint> objects_;
  enum class ObjectPlace : u8 { unknown, decided, listed };
  std::vector<ObjectPlace> places_;  ///< per object, to find doubles by
  std::vector<uint> decided_;        ///< those that are not unknown
};
