#include "vq_gmath/gmath_time_sampling.h"

void GMathTimeSampling::get_span(const double& time, uint& index, double& fraction) const {
  index = 0;
  fraction = 0.0;
  if (count_ < 2 || !(time > begin_)) return;
  if (time >= get_sample_time(count_ - 1)) {
    index = count_ - 2;
    fraction = 1.0;
    return;
  }
  const double position = (time - begin_) / step_;
  const uint last_span = count_ - 2;
  index = position < last_span ? static_cast<uint>(position) : last_span;
  // The division may round across a sample time; a time on sample k must give (k, 0.0).
  if (index < last_span && time >= get_sample_time(index + 1)) ++index;
  if (index > 0 && time < get_sample_time(index)) --index;
  const double first = get_sample_time(index);
  fraction = (time - first) / (get_sample_time(index + 1) - first);
  if (!(fraction >= 0.0)) fraction = 0.0;
  if (fraction > 1.0) fraction = 1.0;
}
