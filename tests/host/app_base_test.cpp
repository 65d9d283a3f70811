// Progress: what nested weights, steps from many threads and bad values add up to.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "vq_app_base/app_base.h"

namespace {

struct Bar {
  explicit Bar(AppBase& app) : bar(app.create_progress_bar("test")) {}
  ~Bar() { bar->finish(); }
  AppProgressBar* operator->() const { return bar; }
  AppProgressBar* bar;
};

TEST(AppProgressBar, nested_weights_multiply_and_tasks_follow_each_other) {
  AppBase app(1);
  const Bar bar(app);
  bar->begin_task("boxes", 0.5);
  bar->set_step_count(10);
  bar->step(5);
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.25);
  bar->end_task();  // five steps short, and full all the same
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.5);
  bar->begin_task("tree", 0.5);
  bar->begin_task("split", 0.8);
  bar->set_step_count(4);
  bar->step(1);
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.6);
  bar->end_task();
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.9);
  bar->begin_task("finalize", 0.2);
  bar->end_task();
  EXPECT_DOUBLE_EQ(bar->get_progress(), 1.0);
  bar->end_task();
  EXPECT_DOUBLE_EQ(bar->get_progress(), 1.0);

  const auto log = bar->get_task_log();
  ASSERT_EQ(log.size(), 4u);
  EXPECT_EQ(log[2].name, CoreString("split"));
  EXPECT_EQ(log[2].weight, 0.8);
  EXPECT_EQ(log[2].step_count, 4u);
  EXPECT_EQ(log[2].depth, 1u);
  EXPECT_EQ(&bar->get_application(), &app);
}

TEST(AppProgressBar, weights_beyond_one_stay_within_the_parent_and_progress_never_falls) {
  AppBase app(1);
  const Bar bar(app);
  bar->begin_task("bundle", 0.5);
  double last = 0.0;
  for (double weight : {0.4, 0.3, 0.9}) {
    bar->begin_task("stage", weight);
    bar->set_step_count(100);
    for (uint position : {50u, 20u, 100u, 4000000000u}) {
      bar->step(position);
      EXPECT_GE(bar->get_progress(), last);
      EXPECT_LE(bar->get_progress(), 0.5);
      last = bar->get_progress();
    }
    bar->end_task();
  }
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.5);
  bar->end_task();
  bar->begin_task("again", 0.9);
  bar->set_step_count(10);
  bar->begin_task("inner", 0.5);
  bar->end_task();
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.95);
  bar->step(1);  // the outer steps lag behind what the inner task has filled
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.95);
  bar->end_task();
  EXPECT_DOUBLE_EQ(bar->get_progress(), 1.0);
}

TEST(AppProgressBar, bad_calls_have_defined_answers) {
  AppBase app(1);
  const Bar bar(app);
  bar->end_task();
  bar->step(3);
  bar->set_step_count(5);
  EXPECT_EQ(bar->get_progress(), 0.0);
  for (double weight : {-1.0, std::nan(""), -std::numeric_limits<double>::infinity()}) {
    bar->begin_task("none", weight);
    bar->set_step_count(0);
    bar->step(7);
    bar->end_task();
    EXPECT_EQ(bar->get_progress(), 0.0);
  }
  bar->begin_task("all", std::numeric_limits<double>::infinity());
  bar->set_step_count(0xFFFFFFFFu);
  bar->step(0xFFFFFFFFu);
  EXPECT_EQ(bar->get_progress(), 1.0);
}

TEST(AppProgressBar, steps_of_many_threads_in_any_order_give_the_largest_position) {
  AppBase app(1);
  const Bar bar(app);
  for (uint count : {7u, 1000u, 100001u}) {
    bar->begin_task("stage", 1.0 / 3);
    const double begin = bar->get_progress();
    bar->set_step_count(count);
    std::vector<std::thread> threads;
    for (uint t = 0; t < 4; ++t)
      threads.emplace_back([&bar, t, count] {
        for (uint i = t; i < count; i += 4) {
          const uint position = uint(u64(i) * 7919 % count) + 1;  // each of 1..count once
          if (position < count) bar->step(position);
        }
      });
    for (std::thread& thread : threads) thread.join();
    bar->step(1);
    // Positions are looked at a thousand times a task, so the last look may lie one thousandth behind.
    const double expected = begin + (count - 1.0) / count / 3;
    EXPECT_NEAR(bar->get_progress(), expected, count < 2048 ? 1e-12 : 1e-3 / 3) << count;
    bar->step(count);
    EXPECT_DOUBLE_EQ(bar->get_progress(), begin + 1.0 / 3);
    bar->end_task();
  }
}

TEST(AppProgressBar, sink_sees_rising_fractions_at_a_limited_rate_and_one_end) {
  AppBase app(1);
  std::vector<AppProgressReport> reports;
  app.set_progress_bar_hook([&reports](AppProgressBar& bar) {
    bar.set_sink([&reports](const AppProgressReport& report) { reports.push_back(report); },
                 std::chrono::milliseconds(0));
  });
  AppProgressBar* bar = app.create_progress_bar("build");
  bar->begin_task("split", 1.0);
  bar->set_step_count(1000000);
  std::vector<std::thread> threads;
  for (uint t = 0; t < 3; ++t)
    threads.emplace_back([bar, t] {
      for (uint i = t; i < 1000000; i += 3) bar->step(i + 1);
    });
  for (std::thread& thread : threads) thread.join();
  bar->end_task();
  bar->finish();
  ASSERT_GE(reports.size(), 3u);
  EXPECT_LE(reports.size(), 1100u);
  for (std::size_t i = 1; i < reports.size(); ++i) {
    EXPECT_GE(reports[i].fraction, reports[i - 1].fraction);
    EXPECT_EQ(reports[i].is_finished, i + 1 == reports.size());
  }
  EXPECT_EQ(reports[0].title, CoreString("build"));
  EXPECT_EQ(reports[0].task, CoreString("split"));
  EXPECT_EQ(reports[1].step_count, 1000000u);
  EXPECT_GT(reports[1].step_position, 0u);
  EXPECT_EQ(reports.back().fraction, 1.0);

  reports.clear();
  app.set_progress_bar_hook([&reports](AppProgressBar& hooked) {
    hooked.set_sink([&reports](const AppProgressReport& report) { reports.push_back(report); }, std::chrono::hours(1));
  });
  bar = app.create_progress_bar("quick");
  for (int i = 0; i < 100; ++i) {
    bar->begin_task("stage", 0.01);
    bar->end_task();
  }
  bar->finish();
  EXPECT_EQ(reports.size(), 1u);
}

TEST(AppBase, bars_come_from_any_thread_and_unfinished_ones_go_with_the_application) {
  auto app = std::make_unique<AppBase>(2);
  EXPECT_EQ(app->get_thread_count(), 2u);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&app] {
      for (int i = 0; i < 50; ++i) {
        AppProgressBar* bar = app->create_progress_bar("many");
        bar->begin_task("one", 1.0);
        if (i % 2) bar->finish();
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(app->is_stop_requested());
  app->request_stop();
  EXPECT_TRUE(app->is_stop_requested());
  app->clear_stop_request();
  EXPECT_FALSE(app->is_stop_requested());
  app.reset();
  EXPECT_GE(AppBase().get_thread_count(), 1u);
}

}  // namespace
