// host/vq_curve/curve_set.h
//
// Storage of curves. Cubics of any basis are stored as Bézier points; neighboring segments share their end point:
//
//   points_          [point]                  ball: x, y, z, radius (16 B); 3 s + 1 for a curve of s cubic segments,
//                                             s + 1 for s linear ones
//   motion_points_   [point * samples + k]    the samples of a point are adjacent
//   segment_point_   [segment]                first point of the segment; absent when all curves have equally many
//                                             segments: a division is then faster than another memory access
//   segment_groups_  [segment]                shading group; absent when all curves are of group 0
//   curve_segment_   [curve]                  first segment of the curve
//   curve_groups_    [curve]                  shading group; absent when all curves are of group 0
//
// Curves with too few points for a segment have no stored points. Read by tube_geometry.h.
#pragma once
#include <vector>

#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_core/core_memory.h"
#include "vq_core/core_string.h"
#include "vq_curve/curve_segment.h"
#include "vq_geometry/geometry_point_cloud.h"
#include "vq_gmath/gmath_time_sampling.h"

enum class CurveBasis {
  linear,       ///< n points, n - 1 segments
  bezier,       ///< n = 3 s + 1 points, s segments
  bspline,      ///< uniform cubic, n points, n - 3 segments
  catmull_rom,  ///< through all points but the first and the last, n points, n - 3 segments
};

/// Input of CurveSet::create(). Coordinates may be NaN or infinite; indices must be in range.
struct CurveData {
  CurveBasis basis = CurveBasis::linear;
  /// Points of all curves, one after the other, at rest. Negative radii of stored Bézier points become 0. Input points
  /// of other bases may be negative, for example the outer ones, so that a curve ends with the radius 0.
  std::vector<CurvePoint<float>> points;
  std::vector<u32> curve_sizes;         ///< points per curve; too few for a segment: the curve has none
  std::vector<u32> curve_groups;        ///< one index into `group_names` per curve; empty: all 0
  std::vector<CoreString> group_names;  ///< empty: one group named "default"
  /// Sample k holds the points at motion_begin + k * motion_step; linear between, constant outside. Empty: at rest at
  /// all times.
  std::vector<std::vector<CurvePoint<float>>> motion_points;
  double motion_begin = 0.0;
  double motion_step = 1.0;
  /// From this number of segments on, a GasFur or GasGeometryBvh4 over the segments of curves at rest (TubeMeshFast)
  /// keeps records of them: rays are faster, and the structure takes 64 bytes more a cubic segment, 32 a linear one.
  /// Smaller sets fit into a cache.
  u32 least_recorded_segments = 100'000;
  static constexpr u32 no_records = 0xFFFFFFFF;
};

class VQ_EXPORT CurveSet {
 public:
  /// How points at a time are computed: the points at rest, or a blend of two motion samples.
  struct MotionBlend {
    bool rest = true;
    uint first = 0;
    uint step = 0;  ///< from the first to the second sample: 0 with a single one
    double fraction = 0.0;
  };

  CurveSet() = default;
  CurveSet(const CurveSet&) = delete;
  CurveSet& operator=(const CurveSet&) = delete;

  /// Replaces the curves. No other thread may use the set. O(points).
  /// @return false, with one sentence in `error` and the set unchanged, when sizes disagree, an index is out of range
  ///         or a Bézier curve of four and more points has not 3 s + 1; false with an empty set when there is no memory
  bool create(CurveData&& data, CoreString& error);

  CurveShape get_shape() const { return shape_; }
  uint get_segment_count() const { return segment_count_; }
  uint get_curve_count() const { return curve_count_; }
  /// First segment of a curve; `curve` may be get_curve_count().
  uint get_first_segment(uint curve) const { return curve < curve_count_ ? curve_segment_[curve] : segment_count_; }
  /// The curve that a segment belongs to. O(log n).
  uint get_curve(uint segment) const;
  bool has_motion() const { return motion_points_.get_count() != 0; }
  const CoreArray<CoreString>& get_group_names() const { return group_names_; }
  uint get_curve_group(uint curve) const { return curve_groups_.empty() ? 0 : curve_groups_[curve]; }
  uint get_segment_group(uint segment) const { return segment_groups_ ? segment_groups_[segment] : 0; }
  /// True if a motion sample of one of the group's points differs from the point at rest.
  bool has_group_motion(uint group) const;
  u64 get_array_bytes() const;

  /// The times of the motion samples.
  const GMathTimeSampling& get_motion_sampling() const { return motion_sampling_; }
  /// NaN: the curves at rest.
  MotionBlend get_motion_blend(double time) const;
  /// `shape` must be get_shape().
  template <CurveShape shape>
  CurveSegment<shape> get_segment(uint segment, const MotionBlend& blend) const {
    CurveSegment<shape> out;
    const std::size_t first = get_first_point(segment);
    for (uint k = 0; k < CurveSegment<shape>::point_count; ++k) out.point[k] = get_point(first + k, blend);
    return out;
  }
  /// True if structures shall keep records of the segments (GeometryObject::get_record_size()).
  bool is_recorded() const { return is_recorded_; }
  uint get_point_count() const { return static_cast<uint>(points_.get_count()); }
  const CurvePoint<float>& get_point(uint point) const { return points_[point]; }
  /// The points at rest, Bézier points that are not on the curve included.
  const GeometryPointCloud& get_point_cloud() const { return point_cloud_; }
  uint get_first_point(uint segment) const {
    return common_length_ != 0 ? segment * point_step_ + segment / common_length_ : segment_point_[segment];
  }

 private:
  void clear();
  bool store(CurveData&& data);
  bool store_curves(const CurveData& data);
  void find_group_motion();
  CurvePoint<double> get_point(std::size_t point, const MotionBlend& blend) const {
    if (blend.rest) return {GMathVec3<double>(points_[point].position), points_[point].radius};
    const CurvePoint<float>* sample = motion_points_.get() + point * motion_sampling_.get_sample_count() + blend.first;
    const double f = blend.fraction;
    return {GMathVec3<double>(sample[0].position) * (1.0 - f) + GMathVec3<double>(sample[blend.step].position) * f,
            sample[0].radius * (1.0 - f) + sample[blend.step].radius * f};
  }

  CoreAlignedArray<CurvePoint<float>> points_;
  CoreAlignedArray<CurvePoint<float>> motion_points_;
  CoreAlignedArray<u32> segment_point_;
  CoreAlignedArray<u32> segment_groups_;
  CoreAlignedArray<u32> curve_segment_;
  GMathTimeSampling motion_sampling_;
  CurveShape shape_ = CurveShape::linear;
  uint segment_count_ = 0, curve_count_ = 0;
  uint point_step_ = 1;     ///< points from one segment's first to the next one's
  uint common_length_ = 0;  ///< segments of every curve that has any; 0: they differ
  bool is_recorded_ = false;
  std::vector<u32> curve_groups_;
  std::vector<u8> group_motion_;
  CoreArray<CoreString> group_names_;
  GeometryPointCloud point_cloud_;
};
