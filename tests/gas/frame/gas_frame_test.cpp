// What all structures share: class records and their destructor entry, the memory account, slices of tasks.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_memory.h"
#include "gas/frame/gas_tasks.h"
#include "support/test_scale.h"
#include "vq_resource/resource_data.h"

namespace {

std::vector<int> destroyed;

class Probe : public ResourceData {
 public:
  explicit Probe(int name = 0) : name(name) {}
  ~Probe() override { destroyed.push_back(name); }
  int name;
};

/// Another element size, and destroyed before its base.
class LargeProbe final : public Probe {
 public:
  ~LargeProbe() override { destroyed.push_back(name + 100); }
  char bytes[77] = {};
};

template <class Function>
void run_on_threads(uint count, const Function& function) {
  std::vector<std::thread> threads;
  for (uint k = 0; k < count; ++k) threads.emplace_back([&function, k] { function(k); });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

TEST(GasClass, one_entry_destroys_objects_and_arrays_of_any_class) {
  EXPECT_TRUE(___class_destructor__(nullptr, false));
  EXPECT_TRUE(___class_destructor__(nullptr, true));
  destroyed.clear();
  EXPECT_TRUE(___class_destructor__(new Probe(5), false));
  EXPECT_EQ(destroyed, std::vector<int>{5});

  destroyed.clear();
  auto* large = new LargeProbe[3];
  for (int k = 0; k < 3; ++k) large[k].name = k;
  EXPECT_TRUE(___class_destructor__(large, true));
  EXPECT_EQ(destroyed, (std::vector<int>{102, 2, 101, 1, 100, 0}));
}

TEST(GasMemory, a_drift_of_more_than_a_twentieth_is_reported) {
  const Probe structure;
  GasMemoryAccount account;
  account.reset(1000);
  account.update(0, 52, structure);  // 52 of 1052
  EXPECT_EQ(structure.get_memory_advert_count(), 0u);
  account.update(0, 1, structure);  // 53 of 1053
  EXPECT_EQ(structure.get_memory_advert_count(), 1u);
  EXPECT_EQ(account.get_advertised_size(), 1053u);
}

// Growing from 1 in steps of 1, each report multiplies what was advertised by 20/19 at least.
TEST(GasMemory, many_threads_report_each_drift_once) {
  const Probe structure;
  GasMemoryAccount account;
  account.reset(0);
  const uint steps = scaled(50'000, 5'000);
  run_on_threads(4, [&](uint) {
    for (uint k = 0; k < steps; ++k) account.update(k, k + 1, structure);
  });
  EXPECT_EQ(account.get_current_size(), u64{4} * steps);
  // A hundred more for threads that sleep between their sum and their look at what was advertised.
  const double most_reports = 121.0 + std::log(4.0 * steps) / std::log(20.0 / 19.0);
  EXPECT_LE(structure.get_memory_advert_count(), static_cast<uint>(most_reports));
  account.update(0, 0, structure);
  EXPECT_LE(account.get_current_size() - account.get_advertised_size(), account.get_current_size() / 20);
}

TEST(GasTasks, slices_cover_every_item_once) {
  for (const uint threads : {1u, 2u, 3u, 64u}) {
    for (const uint count : {1u, 2u, 9u, 100u, 1023u, 4097u, 0xFFFFFFFFu}) {
      const uint length = gas_get_slice_length(count, threads), slices = gas_get_slice_count(count, length);
      EXPECT_LE(slices, 4 * threads);
      EXPECT_GE(u64{slices} * length, count);
      EXPECT_LT(u64{slices - 1} * length, count);  // none is empty
    }
    EXPECT_EQ(gas_get_slice_count(0, gas_get_slice_length(0, threads)), 0u);
  }
}
