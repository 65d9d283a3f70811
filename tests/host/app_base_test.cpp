// Progress: what nested weights and bad values add up to.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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

}  // namespace
