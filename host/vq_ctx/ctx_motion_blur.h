// host/vq_ctx/ctx_motion_blur.h
//
// One description of a shutter: the times at which everything that moves is sampled. Each living description holds a
// slot (a small number, reused after its death) and a stamp (never 0, never reused): a structure keeps what it computed
// per slot and knows by the stamp whether that still holds.
//
// A description must not change while queries use it.
#pragma once
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_time_sampling.h"

class GeometryRaytraceCtx;

class CtxMotionBlur {
 public:
  /// Samples the shutter [`open`, `close`] at `sample_count` equally spaced times, both ends included. An open shutter
  /// (close > open) has at least two samples, a closed one exactly one. Takes the lowest free slot. Thread-safe.
  CtxMotionBlur(double open, double close, uint sample_count);
  ~CtxMotionBlur();
  CtxMotionBlur(const CtxMotionBlur&) = delete;
  CtxMotionBlur& operator=(const CtxMotionBlur&) = delete;

  /// New sample times, and so a new stamp. No query may be using this description.
  void set_shutter(double open, double close, uint sample_count);

  /// One more than the highest slot in use. Thread-safe, no lock.
  static uint get_slot_count();

  uint get_slot() const { return slot_; }
  uint get_stamp() const { return stamp_; }
  uint get_sample_count() const { return sampling_.get_sample_count(); }
  double get_frame_begin() const { return sampling_.get_begin(); }
  double get_sample_step() const { return sampling_.get_step(); }
  const GMathTimeSampling& get_time_sampling() const { return sampling_; }

  /// Writes the motion span of each ray in the context's active range from the ray's time, and notes this
  /// description's stamp in the context. Defined by vq_geometry, which owns the records.
  void init_raytrace_ctx(GeometryRaytraceCtx& query) const;

 private:
  GMathTimeSampling sampling_;
  uint slot_ = 0;
  uint stamp_ = 0;
};
