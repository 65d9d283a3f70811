// What all structures share: class records and their destructor entry, the memory account, messages, declared events.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "gas/frame/gas_class.h"
#include "gas/frame/gas_events.h"
#include "gas/frame/gas_log.h"
#include "gas/frame/gas_memory.h"
#include "gas/frame/gas_tasks.h"
#include "gas/gas_clusterable.h"
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

class Lazy final : public ResourceData {
 public:
  static const CoreClassInfo& class_info() {
    static const CoreClassInfo& info = gas_new_class("GasFrameTestLazy", ResourceData::class_info());
    return info;
  }
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
  EXPECT_TRUE(___class_destructor__(new Probe[0], true));
  EXPECT_TRUE(destroyed.empty());

  auto* probes = new Probe[3];
  for (int k = 0; k < 3; ++k) probes[k].name = k;
  EXPECT_TRUE(___class_destructor__(probes, true));
  EXPECT_EQ(destroyed, (std::vector<int>{2, 1, 0}));

  destroyed.clear();
  auto* large = new LargeProbe[3];
  for (int k = 0; k < 3; ++k) large[k].name = k;
  EXPECT_TRUE(___class_destructor__(large, true));
  EXPECT_EQ(destroyed, (std::vector<int>{102, 2, 101, 1, 100, 0}));
}

TEST(GasClass, threads_that_ask_at_once_get_one_record) {
  const CoreClassInfo* found[8];
  run_on_threads(8, [&](uint k) { found[k] = &Lazy::class_info(); });
  for (const CoreClassInfo* info : found) EXPECT_EQ(info, found[0]);
  EXPECT_EQ(CoreClassInfo::get_creation_count("GasFrameTestLazy"), 1u);
  EXPECT_EQ(found[0]->get_base(), &ResourceData::class_info());
  EXPECT_EQ(found[0]->get_destructor(), &___class_destructor__);
  EXPECT_STREQ(GasClusterable::class_info().get_name(), "GasClusterable");
  EXPECT_EQ(GasClusterable::class_info().get_base(), &GasObject::class_info());
}

TEST(GasMemory, reports_drifts_of_more_than_a_twentieth) {
  const Probe structure;
  GasMemoryAccount account;
  account.reset(100'000);
  EXPECT_EQ(structure.get_memory_advert_count(), 0u);
  account.update(0, 4'000, structure);  // 4 % of what is then held
  EXPECT_EQ(structure.get_memory_advert_count(), 0u);
  EXPECT_EQ(account.get_advertised_size(), 100'000u);
  EXPECT_EQ(account.get_current_size(), 104'000u);
  account.update(4'000, 5'263, structure);  // 5263 is a twentieth of 105263: not more than it
  EXPECT_EQ(structure.get_memory_advert_count(), 0u);
  account.update(5'263, 5'265, structure);
  EXPECT_EQ(structure.get_memory_advert_count(), 1u);
  EXPECT_EQ(account.get_advertised_size(), 105'265u);
  account.update(5'265, 5'265, structure);
  EXPECT_EQ(structure.get_memory_advert_count(), 1u);

  account.reset(100'000);
  account.update(10'000, 6'000, structure);
  EXPECT_EQ(structure.get_memory_advert_count(), 1u);
  account.update(6'000, 0, structure);  // shrinking counts as well
  EXPECT_EQ(structure.get_memory_advert_count(), 2u);
  EXPECT_EQ(account.get_advertised_size(), 90'000u);
  account.reset(0);
  account.update(0, 1, structure);
  EXPECT_EQ(structure.get_memory_advert_count(), 3u);
  account.update(1, 0, structure);
  EXPECT_EQ(structure.get_memory_advert_count(), 4u);
  EXPECT_EQ(account.get_current_size(), 0u);
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
  const u64 advertised = account.get_advertised_size();
  account.update(0, 0, structure);
  EXPECT_LE(account.get_current_size() - account.get_advertised_size(), account.get_current_size() / 20)
      << "advertised " << advertised << " before";
}

TEST(GasLog, builds_a_text_only_when_somebody_reads_it) {
  CoreLogHandler& handler = CoreLogHandler::get_main();
  std::vector<std::string> texts;
  const auto former = handler.set_sink([&](const CoreString& text, const uint& level) {
    texts.push_back(std::to_string(level) + " " + text.get_data());
  });
  uint built = 0;
  const auto log = [&](uint level) {
    gas_log(level, [&](CoreLogStream& message) { message << "number " << ++built << "\n"; });
  };
  handler.set_level(1);
  log(gas_log_warning);
  EXPECT_EQ(built, 0u);
  log(gas_log_error);
  handler.set_level(0);
  log(gas_log_error);
  handler.set_level(2);
  log(gas_log_warning);
  handler.set_sink(former);
  EXPECT_EQ(built, 2u);
  EXPECT_EQ(texts, (std::vector<std::string>{"1 number 1\n", "2 number 2\n"}));
}

TEST(GasEvents, every_event_of_the_host_is_declared_once) {
  std::set<std::string> names;
  std::set<uint> numbers;
  bool has_destroy = false;
  for (const EventDeclaration& declaration : gas_get_event_declarations()) {
    EXPECT_TRUE(declaration.is_unique) << declaration.name.get_data();
    names.insert(declaration.name.get_data());
    numbers.insert(static_cast<uint>(declaration.id));
    has_destroy |= std::string(declaration.name.get_data()) == "EVT_ID_DESTROY";
  }
  EXPECT_EQ(gas_get_event_declarations().size(), 133u);
  EXPECT_EQ(names.size(), 133u);
  EXPECT_EQ(numbers.size(), 133u);
  EXPECT_TRUE(has_destroy);
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
