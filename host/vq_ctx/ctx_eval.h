// host/vq_ctx/ctx_eval.h
//
// The evaluation context: application, thread index, time and motion blur under which geometry is evaluated. Two kinds:
//
//   top-level    thread index core_invalid_index; owns a table with one entry per thread of the application, guests
//                included, created when a thread first needs its context
//   per thread   thread index i below the table's size; refers to the same table
//
// A context is used by one thread at a time; entry i of the table is made and used only by the thread that currently
// owns index i, so the table needs no lock.
#pragma once
#include <memory>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class AppBase;
class CtxMotionBlur;
class OfObjectFactory;

class VQ_EXPORT CtxEval {
 public:
  /// A top-level context with an empty table: as many entries as the application has threads and guests.
  explicit CtxEval(OfObjectFactory& factory);
  /// Shares the table of `other` and has its thread index.
  CtxEval(const CtxEval& other);
  CtxEval& operator=(const CtxEval&) = delete;
  ~CtxEval();

  OfObjectFactory& get_factory() const { return *factory_; }
  AppBase& get_application() const;
  uint get_thread_index() const { return thread_index_; }

  uint get_thread_ctx_count() const;
  /// The context of thread `index`, or null while it has none. `index` below get_thread_ctx_count().
  CtxEval* get_thread_ctx(const uint& index) const;
  /// Creates the context of thread `index`, with this context's motion blur and time. To be called once, by the thread
  /// with that index.
  CtxEval& create_thread_ctx(const uint& index) const;
  /// The context of thread `index`, created when missing. Motion blur and time are copied from this context at each
  /// call. To be called by the thread with that index.
  CtxEval& get_or_create_thread_ctx(const uint& index) const;

  /// Null without motion blur: structures then return their static boxes.
  const CtxMotionBlur* get_motion_blur() const { return motion_blur_; }
  void set_motion_blur(const CtxMotionBlur* motion_blur) { motion_blur_ = motion_blur; }
  double get_time() const { return time_; }
  void set_time(double time) { time_ = time; }

 private:
  struct ThreadTable;
  CtxEval(const CtxEval& parent, uint thread_index);

  OfObjectFactory* factory_ = nullptr;
  std::shared_ptr<ThreadTable> owned_table_;  ///< set in top-level contexts; a thread's own refers to it
  ThreadTable* table_ = nullptr;
  uint thread_index_ = core_invalid_index;
  const CtxMotionBlur* motion_blur_ = nullptr;
  double time_ = 0.0;
};
