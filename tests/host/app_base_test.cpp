// Progress: what nested weights, steps from many threads and bad values add up to.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "vq_app_base/app_base.h"

namespace {

TEST(AppProgressBar, nested_weights_multiply_and_progress_never_falls) {
  AppBase app(1);
  AppProgressBar& bar = *app.create_progress_bar("test");
  bar.end_task();  // of no task
  for (const double weight : {-1.0, std::nan(""), -std::numeric_limits<double>::infinity()}) {
    bar.begin_task("none", weight);
    bar.set_step_count(0);
    bar.step(7);
    bar.end_task();
    EXPECT_EQ(bar.get_progress(), 0.0);
  }
  bar.begin_task("boxes", 0.5);
  bar.set_step_count(10);
  bar.step(5);
  EXPECT_DOUBLE_EQ(bar.get_progress(), 0.25);
  bar.end_task();  // five steps short, and full all the same
  double last = 0.5;
  bar.begin_task("tree", 0.4);
  for (const double weight : {0.4, 0.3, 0.9}) {  // more than the whole
    EXPECT_DOUBLE_EQ(bar.get_progress(), last);
    bar.begin_task("stage", weight);
    bar.set_step_count(100);
    for (const uint position : {50u, 20u, 100u, 4000000000u}) {
      bar.step(position);
      EXPECT_GE(bar.get_progress(), last);
      last = bar.get_progress();
    }
    bar.end_task();
  }
  EXPECT_DOUBLE_EQ(bar.get_progress(), 0.9);
  bar.set_step_count(10);
  bar.step(1);  // lags behind what the inner tasks have filled
  EXPECT_DOUBLE_EQ(bar.get_progress(), 0.9);
  bar.finish();
}

TEST(AppProgressBar, steps_of_many_threads_in_any_order_give_the_largest_position) {
  AppBase app(1);
  std::vector<AppProgressReport> reports;
  app.set_progress_bar_hook([&reports](AppProgressBar& bar) {
    bar.set_sink([&reports](const AppProgressReport& report) { reports.push_back(report); },
                 std::chrono::milliseconds(0));
  });
  AppProgressBar* bar = app.create_progress_bar("build");
  constexpr uint count = 1000;
  bar->begin_task("stage", 1.0);
  bar->set_step_count(count);
  std::vector<std::thread> threads;
  for (uint t = 0; t < 4; ++t)
    threads.emplace_back([bar, t] {
      for (uint i = t; i < count; i += 4) bar->step(i * 7919 % count);  // each below the count once
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_NEAR(bar->get_progress(), (count - 1.0) / count, 1e-12);
  bar->end_task();
  bar->finish();
  for (std::size_t i = 1; i < reports.size(); ++i) {
    EXPECT_GE(reports[i].fraction, reports[i - 1].fraction);
    EXPECT_EQ(reports[i].is_finished, i + 1 == reports.size());
  }
  EXPECT_EQ(reports.back().fraction, 1.0);
}

}  // namespace
