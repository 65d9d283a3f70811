// gas/bvh/bvh_builder.h
//
// The state of one build. A split strategy cuts sets in two; the builder gathers up to three cuts into one four-wide
// node, chooses its kind and goes on with its children, large ones as tasks of their own:
//
//   driver    order array, root box, threads         bvh_builder.cpp
//   recursion item set -> node -> children           bvh_builder_impl.h
//   finalize  thread pools -> three final arrays     bvh_finalize.h
//
// During the build a reference's index is local to the thread that made the node, with the thread's number in its top
// bits (the tag), so that threads number their nodes without synchronization. Finalize replaces every such index.
#pragma once
#include <memory>
#include <vector>

#include "gas/bvh/bvh_node_pool.h"
#include "gas/bvh/gas_bvh.h"
#include "gas/frame/gas_tasks.h"
#include "vq_gas_base/gas_bvh_split.h"

class AppProgressBar;
class SysThreadManager;
class SysThreadTaskManager;

/// The nodes and counters of one build thread. Not shared: no lock.
struct BvhBuildThreadPools {
  BvhNodePool<BvhNodeAligned> aligned;
  BvhNodePool<BvhNodeQuantized> quantized;
  BvhNodePool<BvhNodeOriented> oriented;
  u32 tag = 0;
  uint task_count = 0;
  uint max_depth = 0;
};

template <class Split>
struct BvhBuildThreadState : BvhBuildThreadPools {
  GasBvhSplitCtx split_ctx;
  Split split;
  std::vector<std::unique_ptr<GasTask>> tasks;  ///< made by this thread, alive until the build ends
};

/// The slot that receives the reference to a subtree: the root, or one lane of the parent.
struct BvhBuildPlace {
  BvhChildRef* ref = nullptr;             ///< root, or slot of an aligned or oriented parent
  BvhNodeQuantized* quantized = nullptr;  ///< the parent when it is quantized
  uint lane = 0;                          ///< lane of the quantized parent

  void store(BvhChildRef value) const {
    if (quantized != nullptr) {
      quantized->set_child(lane, value);
    } else {
      *ref = value;
    }
  }
};

template <class Split>
struct BvhBuildCtx {
  SysThreadManager* threads = nullptr;    ///< null: everything on the calling thread
  SysThreadTaskManager* tasks = nullptr;  ///< null: no tasks
  std::vector<BvhBuildThreadState<Split>> workers;
  uint tag_shift = 0;
  u32 tag_mask = 0xFFFFFFFFu;
  uint task_depth_limit = 0;
  uint quantization_depth = 0;
  AppProgressBar* progress = nullptr;
};

/// Children of a set above this many items become tasks; children of smaller sets are built on the same thread.
inline constexpr uint bvh_task_items = 4096;
