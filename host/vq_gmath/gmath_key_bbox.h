// host/vq_gmath/gmath_key_bbox.h
//
// Boxes at the samples of a shutter, for a shape that moves linearly between its own keys. A query blends the boxes of
// two samples linearly; a key between them may be outside of the blended box:
//
//   upper bound         key           d   distance of the bound at the key above the line from a to b;
//                     .'   '.   ^         of several keys the largest
//                   .'       '. |d    Both ends grow by d. The line then holds the bound at every key, and so
//              a  .' - - - - - '.     everywhere: between keys, the bound of a union of straight motions bends
//       sample i -'              '-   downwards only. The box of a sample serves the spans on both of its sides and
//                              b      grows by the larger of their d.
//                        sample i + 1
#pragma once
#include <algorithm>
#include <cmath>

#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_time_sampling.h"

/// Largest distance of the bounds at keys outside of the linearly blended bounds; 0 where they are inside.
struct GMathBboxSurplus {
  GMathVec3<double> below, above;

  /// `first` and `last` are the boxes at the ends of a span, `key` is the one at `fraction` of it.
  void add(const GMathBbox3<double>& first, const GMathBbox3<double>& last, const GMathBbox3<double>& key,
           double fraction) {
    for (uint axis = 0; axis < 3; ++axis) {
      add(below[axis], -first.min[axis], -last.min[axis], -key.min[axis], fraction);
      add(above[axis], first.max[axis], last.max[axis], key.max[axis], fraction);
    }
  }
  /// Bounds that grow are rounded outwards to single precision, so that converting them is exact.
  GMathBbox3<double> grow(GMathBbox3<double> box) const {
    for (uint axis = 0; axis < 3; ++axis) {
      if (below[axis] > 0.0) box.min[axis] = gmath_round_towards(box.min[axis] - below[axis], -1.0);
      if (above[axis] > 0.0) box.max[axis] = gmath_round_towards(box.max[axis] + above[axis], 1.0);
    }
    return box;
  }

 private:
  /// Differences of the size of rounding errors, NaN and infinity are ignored.
  static void add(double& surplus, double first, double last, double key, double fraction) {
    const double noise = 0x1p-40 * std::max({std::fabs(first), std::fabs(last), std::fabs(key)});
    const double deficit = key - (first * (1.0 - fraction) + last * fraction);
    if (deficit > noise && gmath_isfinited(deficit)) surplus = std::max(surplus, deficit + noise);
  }
};

/// The surplus of the keys in the spans next to `time`. `box` is the box at `time`.
template <class GetBox>
[[gnu::noinline]] GMathBboxSurplus gmath_get_key_surplus(const GMathTimeSampling& shutter,
                                                         const GMathTimeSampling& keys, double time,
                                                         const GMathBbox3<double>& box, const GetBox& get_box) {
  constexpr double same = 0x1p-32;  // times that are so close, in steps, differ by rounding only
  GMathBboxSurplus surplus;
  const auto get_place = [](const GMathTimeSampling& sampling, double at) {
    return (at - sampling.get_begin()) / sampling.get_step();
  };
  const double place = get_place(shutter, time), sample = std::nearbyint(place);
  const bool on_sample = std::fabs(place - sample) <= same;
  const double first = on_sample ? sample - 1.0 : std::floor(place), last = on_sample ? sample : first;
  for (double span = std::max(0.0, first); span <= std::min(shutter.get_sample_count() - 2.0, last); ++span) {
    const double begin = shutter.get_sample_time(static_cast<uint>(span));
    const double end = shutter.get_sample_time(static_cast<uint>(span) + 1);
    const double first_key = std::max(0.0, std::floor(get_place(keys, begin) + same) + 1.0);
    const double last_key = std::min(keys.get_sample_count() - 1.0, std::ceil(get_place(keys, end) - same) - 1.0);
    if (!(first_key <= last_key)) continue;
    const GMathBbox3<double> begin_box = begin == time ? box : get_box(begin);
    const GMathBbox3<double> end_box = end == time ? box : get_box(end);
    for (double key = first_key; key <= last_key; ++key) {
      const double at = keys.get_sample_time(static_cast<uint>(key));
      surplus.add(begin_box, end_box, get_box(at), (at - begin) / (end - begin));
    }
  }
  return surplus;
}

/// The box at `time` of a shape whose motion is linear between the samples of `keys` and constant outside. The boxes at
/// two neighboring samples of `shutter`, blended linearly, contain the shape at all times between them. For a time
/// between two samples: the box at that time, enlarged for the keys of that span. Exactly `get_box(time)` if no key is
/// strictly between the samples next to `time`, for linear motion, for a NaN time and for a null `shutter`.
///
/// @param get_box  (time) -> GMathBbox3<double>, not rounded to single precision
/// Cost: one box where `keys` are the samples of `shutter`; else some divisions, and for a span with keys a box for
/// each of them and for its other end.
template <class GetBox>
GMathBbox3<double> gmath_get_bbox_between_keys(const GMathTimeSampling* shutter, const GMathTimeSampling& keys,
                                               double time, const GetBox& get_box) {
  const GMathBbox3<double> box = get_box(time);
  if (shutter == nullptr || shutter->get_sample_count() < 2 || keys.get_sample_count() < 2 || *shutter == keys ||
      std::isnan(time))
    return box;
  return gmath_get_key_surplus(*shutter, keys, time, box, get_box).grow(box);
}
