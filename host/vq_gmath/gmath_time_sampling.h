// host/vq_gmath/gmath_time_sampling.h
//
// Equally spaced sample times begin, begin + step, … and the mapping of a time to the two samples around it.
#pragma once
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class VQ_EXPORT GMathTimeSampling {
 public:
  GMathTimeSampling() = default;
  GMathTimeSampling(double begin, double step, uint count) : begin_(begin), step_(step), count_(count) {}

  bool operator==(const GMathTimeSampling&) const = default;

  double get_begin() const { return begin_; }
  double get_step() const { return step_; }
  uint get_sample_count() const { return count_; }
  double get_sample_time(const uint& sample) const { return begin_ + sample * step_; }

  /// The span around `time`: the value at that time is (1 - fraction) of sample `index` and fraction of the next.
  /// index is at most count - 2 (0 with fewer than three samples) and fraction lies in [0, 1]: at and before the first
  /// sample (0, 0.0), on an inner sample k (k, 0.0), at and after the last (count - 2, 1.0); a single sample always
  /// gives (0, 0.0), and so does a NaN time.
  void get_span(const double& time, uint& index, double& fraction) const;

 private:
  double begin_ = 0.0;
  double step_ = 1.0;
  uint count_ = 1;
};
