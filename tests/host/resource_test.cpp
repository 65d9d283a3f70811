// Reports of changed memory.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "vq_resource/resource_data.h"

namespace {

/// Reports while it holds the lock that its size takes, as structures with lazy parts do.
class Locked : public ResourceData {
 public:
  u64 get_memory_size() const override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return size_;
  }
  void grow(u64 bytes) {
    const std::lock_guard<std::mutex> guard(mutex_);
    size_ += bytes;
    advert_memory_changed();
  }

 private:
  mutable std::mutex mutex_;
  u64 size_ = 0;
};

TEST(ResourceData, reports_collect_each_changed_resource_once_with_its_present_size) {
  Locked a, b;
  a.grow(10);
  b.grow(1);
  a.grow(20);
  auto brief = std::make_unique<Locked>();
  brief->grow(1);
  brief.reset();
  const auto reports = ResourceData::collect_memory_reports();
  ASSERT_EQ(reports.get_count(), 2u);
  EXPECT_EQ(reports[0].resource, &a);
  EXPECT_EQ(reports[0].memory_size, 30u);
  EXPECT_EQ(reports[1].resource, &b);
  EXPECT_TRUE(ResourceData::collect_memory_reports().is_empty());
}

TEST(ResourceData, threads_report_while_another_collects) {
  std::vector<Locked> resources(3);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) resources[i % 3].grow(1);
    });
  for (int i = 0; i < 100; ++i) ResourceData::collect_memory_reports();
  for (std::thread& thread : threads) thread.join();
  ResourceData::collect_memory_reports();
  for (const Locked& resource : resources) EXPECT_EQ(resource.get_memory_advert_count(), 300u);
}

}  // namespace
