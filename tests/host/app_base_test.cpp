// Progress: what nested weights, steps from many threads and bad values add up to.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
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

TEST(AppProgressBar, nested_weights_multiply_and_progress_never_falls) {
  AppBase app(1);
  const Bar bar(app);
  bar->end_task();  // of no task
  for (const double weight : {-1.0, std::nan(""), -std::numeric_limits<double>::infinity()}) {
    bar->begin_task("none", weight);
    bar->set_step_count(0);
    bar->step(7);
    bar->end_task();
    EXPECT_EQ(bar->get_progress(), 0.0);
  }
  bar->begin_task("boxes", 0.5);
  bar->set_step_count(10);
  bar->step(5);
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.25);
  bar->end_task();  // five steps short, and full all the same
  double last = 0.5;
  bar->begin_task("tree", 0.4);
  for (const double weight : {0.4, 0.3, 0.9}) {  // more than the whole
    EXPECT_DOUBLE_EQ(bar->get_progress(), last);
    bar->begin_task("stage", weight);
    bar->set_step_count(100);
    for (const uint position : {50u, 20u, 100u, 4000000000u}) {
      bar->step(position);
      EXPECT_GE(bar->get_progress(), last);
      last = bar->get_progress();
    }
    bar->end_task();
  }
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.9);
  bar->set_step_count(10);
  bar->step(1);  // lags behind what the inner tasks have filled
  EXPECT_DOUBLE_EQ(bar->get_progress(), 0.9);
}

TEST(AppProgressBar, steps_of_many_threads_in_any_order_give_the_largest_position) {
  AppBase app(1);
  std::vector<AppProgressReport> reports;
  app.set_progress_bar_hook([&reports](AppProgressBar& bar) {
    bar.set_sink([&reports](const AppProgressReport& report) { reports.push_back(report); },
                 std::chrono::milliseconds(0));
  });
  AppProgressBar* bar = app.create_progress_bar("build");
  for (const uint count : {7u, 1000u, 100001u}) {
    bar->begin_task("stage", 1.0 / 3);
    const double begin = bar->get_progress();
    bar->set_step_count(count);
    std::vector<std::thread> threads;
    for (uint t = 0; t < 4; ++t)
      threads.emplace_back([bar, t, count] {
        for (uint i = t; i < count; i += 4) {
          const uint position = uint(u64(i) * 7919 % count) + 1;  // each of 1..count once
          if (position < count) bar->step(position);
        }
      });
    for (std::thread& thread : threads) thread.join();
    // Positions are looked at a thousand times a task, so the last look may lie one thousandth behind.
    const double expected = begin + (count - 1.0) / count / 3;
    EXPECT_NEAR(bar->get_progress(), expected, count < 2048 ? 1e-12 : 1e-3 / 3) << count;
    bar->step(count);
    EXPECT_DOUBLE_EQ(bar->get_progress(), begin + 1.0 / 3);
    bar->end_task();
  }
  bar->finish();
  ASSERT_GE(reports.size(), 3u);
  EXPECT_LE(reports.size(), 3300u);
  for (std::size_t i = 1; i < reports.size(); ++i) {
    EXPECT_GE(reports[i].fraction, reports[i - 1].fraction);
    EXPECT_EQ(reports[i].is_finished, i + 1 == reports.size());
  }
  EXPECT_EQ(reports.back().fraction, 1.0);
}

}  // namespace
