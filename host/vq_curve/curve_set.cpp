#include "vq_curve/curve_set.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "vq_core/core_log.h"

namespace {

using Point = CurvePoint<float>;

CurveShape get_basis_shape(CurveBasis basis) {
  return basis == CurveBasis::linear ? CurveShape::linear : CurveShape::cubic;
}

u32 count_segments(CurveBasis basis, u32 points) {
  if (basis == CurveBasis::linear) return points < 2 ? 0 : points - 1;
  if (points < 4) return 0;
  return basis == CurveBasis::bezier ? (points - 1) / 3 : points - 3;
}

/// Number of points from one segment's first point to the next one's.
u32 get_point_step(CurveShape shape) { return shape == CurveShape::linear ? 1 : 3; }

u64 count_stored_points(const CurveData& data) {
  u64 points = 0;
  for (const u32 size : data.curve_sizes) {
    const u64 segments = count_segments(data.basis, size);
    if (segments > 0) points += segments * get_point_step(get_basis_shape(data.basis)) + 1;
  }
  return points;
}

/// A sentence about the first error of the input; null without one.
const char* find_fault(const CurveData& data) {
  u64 points = 0;
  for (const u32 size : data.curve_sizes) points += size;
  if (points != data.points.size()) return "The sizes of the curves do not add up to the number of points.";
  if (std::max<u64>({points, count_stored_points(data), data.curve_sizes.size(), data.motion_points.size()}) >=
      core_invalid_index)
    return "There are too many curves, points or motion samples.";
  const auto is_torn = [](u32 size) { return size >= 4 && size % 3 != 1; };
  if (data.basis == CurveBasis::bezier && std::any_of(data.curve_sizes.begin(), data.curve_sizes.end(), is_torn))
    return "A Bézier curve must have one point more than a multiple of three.";

  const std::vector<u32>& groups = data.curve_groups;
  const std::size_t group_count = std::max<std::size_t>(data.group_names.size(), 1);
  if (!groups.empty() && groups.size() != data.curve_sizes.size()) return "There must be one shading group per curve.";
  if (std::any_of(groups.begin(), groups.end(), [&](u32 group) { return group >= group_count; }))
    return "A curve refers to a shading group that does not exist.";

  const auto fits = [&](const std::vector<Point>& sample) { return sample.size() == points; };
  if (!std::all_of(data.motion_points.begin(), data.motion_points.end(), fits))
    return "Every motion sample must have as many points as the curves.";
  if (data.motion_points.size() < 2) return nullptr;
  if (!gmath_isfinited(data.motion_begin) || !gmath_isfinited(data.motion_step) || data.motion_step <= 0.0)
    return "The motion samples must begin at a finite time and follow each other in positive steps.";
  return nullptr;
}

/// Bézier points of a segment as weighted sums of four input points, in sixths.
using BasisWeights = double[4][4];
constexpr BasisWeights bspline_weights = {{1, 4, 1, 0}, {0, 4, 2, 0}, {0, 2, 4, 0}, {0, 1, 4, 1}};
constexpr BasisWeights catmull_rom_weights = {{0, 6, 0, 0}, {-1, 6, 1, 0}, {0, 1, 6, -1}, {0, 0, 6, 0}};

/// 0 for a negative radius; NaN stays.
float cut_radius(float radius) { return radius < 0.0f ? 0.0f : radius; }

Point blend(const Point* points, const double (&weights)[4]) {
  GMathVec3<double> position;
  double radius = 0.0;
  for (uint k = 0; k < 4; ++k) {
    if (weights[k] == 0.0) continue;  // a NaN with weight 0 must not reach this point
    position += GMathVec3<double>(points[k].position) * weights[k];
    radius += points[k].radius * weights[k];
  }
  const GMathVec3<double> sixth(position.x / 6.0, position.y / 6.0, position.z / 6.0);
  return {GMathVec3<float>(sixth), cut_radius(static_cast<float>(radius / 6.0))};
}

/// Calls `write` with the points to be stored of a curve of `segments` segments, in order.
template <class Write>
void convert_curve(CurveBasis basis, const Point* points, u32 segments, const Write& write) {
  if (segments == 0) return;
  if (basis == CurveBasis::linear || basis == CurveBasis::bezier) {
    const u32 last = segments * get_point_step(get_basis_shape(basis));
    for (u32 k = 0; k <= last; ++k) write({points[k].position, cut_radius(points[k].radius)});
    return;
  }
  const BasisWeights& weights = basis == CurveBasis::bspline ? bspline_weights : catmull_rom_weights;
  write(blend(points, weights[0]));
  for (u32 segment = 0; segment < segments; ++segment)
    for (uint k = 1; k < 4; ++k) write(blend(points + segment, weights[k]));
}

/// Writes to every `stride`-th element of `to`.
void convert_curves(const CurveData& data, const std::vector<Point>& points, Point* to, std::size_t stride) {
  const Point* from = points.data();
  for (const u32 size : data.curve_sizes) {
    convert_curve(data.basis, from, count_segments(data.basis, size), [&](const Point& point) {
      *to = point;
      to += stride;
    });
    from += size;
  }
}

template <class T>
bool allocate(CoreAlignedArray<T>& array, std::size_t count) {
  array = CoreAlignedArray<T>(count, 64);
  return count == 0 || array;
}

}  // namespace

bool CurveSet::create(CurveData&& data, CoreString& error) {
  if (const char* fault = find_fault(data)) {
    error = fault;
    return false;
  }
  clear();
  try {
    if (store(std::move(data))) return true;
  } catch (const std::bad_alloc&) {
  }
  clear();
  error = "There is not enough memory for the curves.";
  return false;
}

void CurveSet::clear() {
  points_.reset();
  motion_points_.reset();
  segment_point_.reset();
  segment_groups_.reset();
  curve_segment_.reset();
  motion_sampling_ = GMathTimeSampling();
  shape_ = CurveShape::linear;
  segment_count_ = curve_count_ = 0;
  point_step_ = 1;
  common_length_ = 0;
  is_recorded_ = false;
  curve_groups_ = {};
  group_motion_ = {};
  group_names_.remove_all();
  point_cloud_ = GeometryPointCloud();
}

bool CurveSet::store(CurveData&& data) {
  shape_ = get_basis_shape(data.basis);
  curve_count_ = static_cast<uint>(data.curve_sizes.size());
  point_step_ = get_point_step(shape_);
  bool is_common = true;
  for (const u32 size : data.curve_sizes) {
    const u32 length = count_segments(data.basis, size);
    segment_count_ += length;
    if (length == 0) continue;
    is_common = is_common && (common_length_ == 0 || length == common_length_);
    common_length_ = length;
  }
  if (!is_common) common_length_ = 0;
  if (std::all_of(data.curve_groups.begin(), data.curve_groups.end(), [](u32 group) { return group == 0; }))
    data.curve_groups = {};
  curve_groups_ = std::move(data.curve_groups);
  if (!store_curves(data)) return false;

  const std::size_t points = count_stored_points(data), samples = data.motion_points.size();
  if (!allocate(points_, points) || !allocate(motion_points_, points * samples)) return false;
  convert_curves(data, data.points, points_.get(), 1);
  for (std::size_t sample = 0; sample < samples && points > 0; ++sample)
    convert_curves(data, data.motion_points[sample], motion_points_.get() + sample, samples);
  if (has_motion())
    motion_sampling_ = GMathTimeSampling(data.motion_begin, data.motion_step, static_cast<uint>(samples));
  is_recorded_ = !has_motion() && data.least_recorded_segments != CurveData::no_records &&
                 segment_count_ >= data.least_recorded_segments;
  if (points > 0) point_cloud_ = GeometryPointCloud(&points_[0].position, get_point_count(), sizeof(Point));

  if (data.group_names.empty()) data.group_names.emplace_back("default");
  if (!group_names_.assign(data.group_names.data(), static_cast<uint>(data.group_names.size()))) return false;
  find_group_motion();
  return true;
}

bool CurveSet::store_curves(const CurveData& data) {
  if (!allocate(curve_segment_, curve_count_) || !allocate(segment_point_, common_length_ != 0 ? 0 : segment_count_) ||
      !allocate(segment_groups_, curve_groups_.empty() ? 0 : segment_count_))
    return false;
  u32 segment = 0, point = 0;
  for (uint curve = 0; curve < curve_count_; ++curve) {
    curve_segment_[curve] = segment;
    const u32 end = segment + count_segments(data.basis, data.curve_sizes[curve]);
    if (segment == end) continue;
    for (; segment < end; ++segment, point += point_step_) {
      if (segment_point_) segment_point_[segment] = point;
      if (segment_groups_) segment_groups_[segment] = curve_groups_[curve];
    }
    ++point;
  }
  return true;
}

void CurveSet::find_group_motion() {
  group_motion_.assign(group_names_.get_count(), 0);
  if (!has_motion()) return;
  const std::size_t samples = motion_sampling_.get_sample_count();
  for (uint segment = 0; segment < segment_count_; ++segment) {
    u8& moves = group_motion_[get_segment_group(segment)];
    for (std::size_t point = get_first_point(segment), k = 0; k <= point_step_ && moves == 0; ++k, ++point) {
      const Point* sample = motion_points_.get() + point * samples;
      moves = !std::all_of(sample, sample + samples, [&](const Point& moved) { return moved == points_[point]; });
    }
  }
}

uint CurveSet::get_curve(uint segment) const {
  // A curve without segments has the same first segment as the next one: take the last curve that begins at or before
  // the segment.
  const u32* after = std::upper_bound(curve_segment_.begin(), curve_segment_.end(), segment);
  return static_cast<uint>(after - curve_segment_.begin()) - 1;
}

bool CurveSet::has_group_motion(uint group) const { return group < group_motion_.size() && group_motion_[group] != 0; }

u64 CurveSet::get_array_bytes() const {
  return points_.get_bytes() + motion_points_.get_bytes() + segment_point_.get_bytes() + segment_groups_.get_bytes() +
         curve_segment_.get_bytes() + curve_groups_.capacity() * sizeof(u32) + group_motion_.capacity() +
         group_names_.get_count() * sizeof(CoreString);
}

CurveSet::MotionBlend CurveSet::get_motion_blend(double time) const {
  if (!has_motion() || std::isnan(time)) return {};
  MotionBlend blend{.rest = false, .step = motion_sampling_.get_sample_count() > 1 ? 1u : 0u};
  motion_sampling_.get_span(time, blend.first, blend.fraction);
  return blend;
}
