// host/vq_ctx/ctx_motion_blur.h
//
// A description of a shutter: the times of the motion samples. Each description has a slot (a small number, reused
// after its destruction) and a stamp (never 0, never reused). A structure stores motion data per slot and compares the
// stamp to find out if the data is current.
//
// A description must not change while queries use it.
#pragma once
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_time_sampling.h"

class GeometryRaytraceCtx;

class VQ_EXPORT CtxMotionBlur {
 public:
  /// Samples the shutter [`open`, `close`] at `sample_count` equally spaced times, both ends included. An open shutter
  /// (close > open) has at least two samples, a closed one exactly one. Takes the lowest free slot. Thread-safe.
  CtxMotionBlur(double open, double close, uint sample_count);
  ~CtxMotionBlur();
  CtxMotionBlur(const CtxMotionBlur&) = delete;
  CtxMotionBlur& operator=(const CtxMotionBlur&) = delete;

  /// Changes the sample times and the stamp. No query may be using this description.
  void set_shutter(double open, double close, uint sample_count);

  /// One more than the highest slot in use. Thread-safe, no lock.
  static uint get_slot_count();

  uint get_slot() const { return slot_; }
  uint get_stamp() const { return stamp_; }
  uint get_sample_count() const { return sampling_.get_sample_count(); }
  double get_frame_begin() const { return sampling_.get_begin(); }
  double get_sample_step() const { return sampling_.get_step(); }
  const GMathTimeSampling& get_time_sampling() const { return sampling_; }

  /// Writes the motion span of each ray in the context's active range from the ray's time, and sets
  /// the context's span_stamp to this description's stamp. Defined in vq_geometry, which defines the records.
  void init_raytrace_ctx(GeometryRaytraceCtx& query) const;

 private:
  GMathTimeSampling sampling_;
  uint slot_ = 0;
  uint stamp_ = 0;
};
