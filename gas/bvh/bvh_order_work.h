// gas/bvh/bvh_order_work.h
//
// Work that reads the order of a tree's items and not its nodes. Nodes are moved to their places by one thread; the
// other threads do this work meanwhile.
#pragma once
#include "vq_core/core_types.h"

class SysThreadTaskManager;

class BvhOrderWork {
 public:
  /// Called when the order is final, by a build on several threads; not by one of few items or of a single leaf. Adds
  /// tasks; the build waits for them.
  /// @param order  [count] items in the order of the leaves
  virtual void start(SysThreadTaskManager& tasks, const uint* order, uint count) = 0;

 protected:
  ~BvhOrderWork() = default;
};
