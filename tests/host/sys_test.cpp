// Task groups: who runs what, under which index, and that nobody waits for ever.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "vq_sys/sys_thread_lock.h"
#include "vq_sys/sys_thread_manager.h"
#include "vq_sys/sys_thread_task.h"
#include "vq_sys/sys_thread_task_manager.h"

namespace {

using What = std::function<void(uint)>;

class Call final : public SysThreadTask {
 public:
  Call(What what, unsigned short marks) : what_(std::move(what)) { flags = marks; }
  void run(const uint& thread_index) override { what_(thread_index); }

 private:
  What what_;
};

/// A group and the tasks made for it.
struct Group {
  explicit Group(SysThreadManager& manager) : tasks(manager) {}
  void add(uint count, const What& what, unsigned short marks = SysThreadTask::counted | SysThreadTask::for_waiter) {
    for (uint k = 0; k < count; ++k) {
      auto call = std::make_unique<Call>(what, marks);
      SysThreadTask* task = call.get();
      {
        const SysThreadLockGuard guard(lock);
        calls.push_back(std::move(call));
      }
      tasks.add_task(task);
    }
  }
  void wait() { tasks.wait_until_completed(true); }
  SysThreadLock lock;
  std::vector<std::unique_ptr<Call>> calls;
  SysThreadTaskManager tasks;  // last: it goes first, and with it the last run of a task
};

TEST(SysThreadTaskManager, thousands_of_tiny_tasks_each_run_once_under_an_index_of_their_own) {
  for (uint thread_count : {1u, 2u, 3u, 8u}) {
    SysThreadManager manager(thread_count);
    std::vector<uint> plain_counters(manager.get_index_count());  // unguarded: one owner per index at a time
    Group group(manager);
    group.add(5000, [&](uint index) {
      ASSERT_LT(index, plain_counters.size());
      EXPECT_EQ(index, SysThreadManager::get_current_thread_index());
      ++plain_counters[index];
    });
    group.wait();
    uint sum = 0;
    for (uint index = 0; index < thread_count; ++index) sum += plain_counters[index];
    EXPECT_EQ(sum, 5000u) << "no guest may have run a task";

    std::atomic<uint> leaves = 0;
    std::function<void(uint)> split = [&](uint depth) {
      if (depth == 0) ++leaves;
      if (depth > 0) group.add(2, [&, depth](uint) { split(depth - 1); });
    };
    group.add(1, [&](uint) { split(9); });  // tasks add tasks to their own group, which serves again after a wait
    group.wait();
    EXPECT_EQ(leaves, 512u);
  }
}

// The waiter holds a lock that every worker wants. Nobody but the waiter can run its tasks; and it must not run the
// other group's, which want the lock it holds.
TEST(SysThreadTaskManager, a_foreign_thread_that_holds_the_workers_lock_runs_its_own_tasks) {
  SysThreadManager manager(3);
  SysThreadLock lock;
  std::atomic<int> blocked = 0, own_runs = 0, other_runs = 0;
  Group workers_group(manager);
  std::thread([&] {
    lock.lock();
    workers_group.add(4, [&](uint) {
      ++blocked;
      const SysThreadLockGuard guard(lock);
      ++other_runs;
    });
    while (blocked < 2) std::this_thread::yield();  // both workers stand at the lock, two more tasks are queued
    Group own(manager);
    own.add(10, [&](uint index) {
      EXPECT_TRUE(index >= 3 && index < manager.get_index_count());
      Group inner(manager);  // a wait inside a task goes on under the same index
      inner.add(1, [&, index](uint inner_index) {
        EXPECT_EQ(inner_index, index);
        ++own_runs;
      });
      inner.wait();
    });
    own.wait();
    EXPECT_EQ(own_runs, 10);
    EXPECT_EQ(other_runs, 0);
    lock.unlock();
  }).join();
  workers_group.wait();
  EXPECT_EQ(other_runs, 4);
}

// The only worker stands in a task until another is done that it adds late, when the waiter is asleep already.
TEST(SysThreadTaskManager, a_sleeping_waiter_wakes_for_a_task_added_late) {
  SysThreadManager manager(2);
  std::atomic<bool> done = false;
  Group group(manager);
  const auto add_late = [&](uint) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    group.add(1, [&](uint) { done = true; });
    while (!done) std::this_thread::yield();
  };
  group.add(1, add_late, SysThreadTask::counted);
  group.wait();
  EXPECT_TRUE(done);
}

TEST(SysThreadTaskManager, more_foreign_threads_than_guest_indices_all_finish) {
  SysThreadManager manager(1);
  std::vector<std::atomic<int>> owners(manager.get_index_count());
  std::atomic<uint> runs = 0;
  std::vector<std::thread> threads;
  for (uint i = 0; i < SysThreadManager::guest_count + 16; ++i)
    threads.emplace_back([&] {
      Group group(manager);
      group.add(3, [&](uint index) {
        EXPECT_EQ(owners.at(index)++, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        --owners[index];
        ++runs;
      });
      group.wait();
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(runs, 3 * (SysThreadManager::guest_count + 16));
}

TEST(SysThreadTaskManager, marks_say_who_runs_a_task_and_who_waits_for_it) {
  SysThreadManager manager(2);
  const std::thread::id main_thread = std::this_thread::get_id();
  std::atomic<bool> open = false;
  std::atomic<uint> uncounted = 0;
  {
    Group group(manager);
    group.add(
        50, [&](uint) { EXPECT_NE(std::this_thread::get_id(), main_thread); }, SysThreadTask::counted);
    group.wait();
    const auto wait_for_opening = [&](uint) {
      while (!open) std::this_thread::yield();
      ++uncounted;
    };
    group.add(1, wait_for_opening, 0);
    group.wait();  // must not wait for a task that waits for what comes after
    EXPECT_EQ(uncounted, 0u);
    open = true;
  }  // the group's end does wait for it, if it has started
  EXPECT_LE(uncounted, 1u);
}

// The waiter takes the last task, past one that is not for it; what is added then must still be in the queue.
TEST(SysThreadTaskManager, a_task_is_added_after_the_last_one_was_taken) {
  SysThreadManager manager(2);
  std::atomic<bool> open = false, late_ran = false;
  Group group(manager);
  const unsigned short counted = SysThreadTask::counted, not_counted = 0;
  group.add(
      1,
      [&](uint) {
        while (!open) std::this_thread::yield();
      },
      counted);  // holds the only worker
  group.add(
      1, [&](uint) {}, counted);
  group.add(1, [&](uint) {
    group.add(
        1, [&](uint) { late_ran = true; }, not_counted);
    open = true;
  });
  group.wait();
  for (uint k = 0; k < 1000 && !late_ran; ++k) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(late_ran);
}

TEST(SysThreadTaskManager, shutdown_drops_what_has_not_started) {
  for (uint thread_count : {1u, 3u}) {
    SysThreadManager manager(thread_count);
    Group group(manager);
    std::atomic<uint> runs = 0;
    std::atomic<bool> is_shut_down = false;
    group.add(1000, [&](uint) {
      const uint run = ++runs;
      if (run == 10) {
        group.tasks.shutdown();
        is_shut_down = true;
      }
      // Every other thread may have begun one task before the shutdown; none ends early enough to begin a second.
      while (run > 10 && !is_shut_down) std::this_thread::yield();
    });
    group.wait();
    group.add(1, [&](uint) { ++runs; });
    group.wait();
    EXPECT_TRUE(runs >= 10 && runs < 10 + thread_count) << runs;
  }
}

TEST(SysThreadManager, indices_are_right_beside_other_managers) {
  SysThreadManager mine(2);
  std::unique_ptr<SysThreadManager> theirs;
  std::thread([&] { theirs = std::make_unique<SysThreadManager>(2); }).join();
  EXPECT_EQ(mine.get_index_of_current_thread(), 0u);
  EXPECT_EQ(theirs->get_index_of_current_thread(), core_invalid_index);
  Group outer(mine);
  std::atomic<uint> runs = 0;
  outer.add(20, [&](uint outer_index) {
    Group inner(*theirs);
    inner.add(20, [&](uint index) {
      EXPECT_GE(index, 1u) << "index 0 belongs to the thread that made the manager";
      EXPECT_EQ(index, SysThreadManager::get_current_thread_index());
      ++runs;
    });
    inner.wait();
    EXPECT_EQ(outer_index, SysThreadManager::get_current_thread_index());
  });
  outer.wait();
  EXPECT_EQ(runs, 400u);
  std::thread([&] {
    auto brief = std::make_unique<SysThreadManager>(1);
    EXPECT_EQ(SysThreadManager::get_current_thread_index(), 0u);
    std::thread([&] { brief.reset(); }).join();  // dies on another thread
    EXPECT_EQ(SysThreadManager::get_current_thread_index(), core_invalid_index);
  }).join();
}

}  // namespace
