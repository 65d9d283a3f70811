// Containers, class records, the array convention, the log and aligned memory.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "vq_core/core_array.h"
#include "vq_core/core_base_type.h"
#include "vq_core/core_log.h"
#include "vq_core/core_memory.h"
#include "vq_core/core_set.h"
#include "vq_core/core_string.h"

namespace {

const char* const long_text = "a text too long for the string's own bytes, so that a lost copy shows in the sanitizer";

TEST(CoreBasicArray, leaf_range_record_is_a_view) {
  uint items[3] = {7, 8, 9};
  struct {
    uint* items;
    u32 count, word;
  } record = {items, 3, 0};
  static_assert(sizeof(record) == sizeof(CoreBasicArray<uint>));
  CoreBasicArray<uint> other;
  other.set_view(items, 3);
  EXPECT_EQ(std::memcmp(&record, &other, sizeof(record)), 0);
  EXPECT_TRUE(other.is_view());
}

TEST(CoreBasicArray, copies_of_a_view_own_their_items_and_resizing_leaves_the_source_alone) {
  uint items[3] = {7, 8, 9};
  CoreBasicArray<uint> view;
  view.set_view(items, 3);
  CoreBasicArray<uint> copy(view);
  copy[0] = 1;
  EXPECT_EQ(items[0], 7u);
  EXPECT_FALSE(copy.is_view());
  ASSERT_TRUE(view.resize(5));
  EXPECT_FALSE(view.is_view());
  view[0] = 2;
  EXPECT_EQ(items[0], 7u);
  EXPECT_EQ(view[2], 9u);
  EXPECT_EQ(view[3], 0u);
  EXPECT_EQ(view[4], 0u);
  ASSERT_TRUE(view.resize(1));
  EXPECT_EQ(view.get_count(), 1u);
  EXPECT_EQ(view[0], 2u);

  CoreBasicArray<uint> own(4);
  own[3] = 42;
  CoreBasicArray<uint> part;
  part.set_view(own.get_items() + 3, 1);
  own = part;  // shows the items it replaces
  ASSERT_EQ(own.get_count(), 1u);
  EXPECT_EQ(own[0], 42u);
}

TEST(CoreBasicArray, moves_empty_the_source_and_self_assignment_keeps_it) {
  CoreBasicArray<uint> a(3);
  a[2] = 5;
  CoreBasicArray<uint>& alias = a;
  a = alias;
  a = std::move(alias);
  ASSERT_EQ(a.get_count(), 3u);
  EXPECT_EQ(a[2], 5u);
  CoreBasicArray<uint> b(std::move(a));
  EXPECT_TRUE(a.is_empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(a.get_items(), nullptr);
  EXPECT_EQ(b[2], 5u);
  a = std::move(b);
  EXPECT_TRUE(b.is_empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(a[2], 5u);
}

TEST(CoreBasicArray, a_size_beyond_all_memory_is_refused_and_changes_nothing) {
  struct Page {
    char bytes[1 << 20];
  };
  CoreBasicArray<Page> array(1);
  CoreVector<Page> vector;
  ASSERT_TRUE(vector.reserve(1));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_FALSE(array.resize(0xFFFFFFFFu));
  EXPECT_FALSE(vector.reserve(0xFFFFFFFFu));
#endif
  EXPECT_EQ(array.get_count(), 1u);
  EXPECT_EQ(vector.get_capacity(), 1u);
}

TEST(CoreArray, objects_live_through_copies_moves_and_sizes) {
  CoreArray<std::string> a(2);
  a[0] = long_text;
  CoreArray<std::string> b(a);
  a[0] = "changed";
  EXPECT_EQ(b[0], long_text);
  ASSERT_TRUE(b.resize(4));
  EXPECT_EQ(b[0], long_text);
  EXPECT_EQ(b[3], "");
  ASSERT_TRUE(b.resize(1));
  EXPECT_EQ(b[0], long_text);
  a = b;
  b = std::move(a);
  EXPECT_TRUE(a.is_empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(b[0], long_text);

  CoreArray<std::unique_ptr<int>> movable(1);
  movable[0] = std::make_unique<int>(3);
  ASSERT_TRUE(movable.resize(2));
  EXPECT_EQ(*movable[0], 3);
}

template <class T>
void check_vector_growth(T (*make)(uint)) {
  CoreVector<T> v;
  std::vector<uint> capacities;
  for (uint i = 0; i < 9; ++i) {
    v.add(make(i));
    if (capacities.empty() || capacities.back() != v.get_capacity()) capacities.push_back(v.get_capacity());
  }
  EXPECT_EQ(capacities, (std::vector<uint>{1, 2, 4, 8, 16}));
  while (v.get_count() < v.get_capacity()) v.add(make(0));
  v.add(v[3]);  // an item of the block that growing frees
  EXPECT_EQ(v.get_last(), make(3));
  v.remove(0);
  for (uint i = 0; i < 8; ++i) EXPECT_EQ(v[i], make(i + 1));
  v.shrink_to_fit();
  EXPECT_EQ(v.get_capacity(), v.get_count());
  CoreVector<T> copy(v);
  copy[0] = make(77);
  EXPECT_EQ(v[0], make(1));
  copy = v;
  CoreVector<T>& alias = copy;
  copy = alias;
  EXPECT_EQ(copy[7], make(8));
  copy.resize(2);
  copy.resize(3);
  EXPECT_EQ(copy[1], make(2));
  EXPECT_EQ(copy[2], T());
  CoreVector<T> taken(std::move(copy));
  EXPECT_EQ(copy.get_capacity(), 0u);  // NOLINT(bugprone-use-after-move)
  taken.remove_all();
  taken.shrink_to_fit();
  EXPECT_EQ(taken.get_items(), nullptr);
}

TEST(CoreVector, grows_by_doubling_whatever_it_holds) {
  check_vector_growth<uint>([](uint i) { return i * 3; });
  check_vector_growth<std::string>([](uint i) { return std::to_string(i) + long_text; });
}

TEST(CoreVector, shows_itself_as_an_array) {
  CoreVector<uint> v;
  for (uint i = 0; i < 5; ++i) v.add(i);
  const CoreBasicArray<uint> view = v.as_array();
  EXPECT_EQ(view.get_items(), v.get_items());
  EXPECT_EQ(view.get_count(), 5u);
}

TEST(CoreSet, keeps_the_order_of_adding) {
  CoreSet<CoreString> set;
  for (const char* name : {"c", "a", "d", "b"}) EXPECT_TRUE(set.add(name));
  EXPECT_FALSE(set.add("a"));
  EXPECT_TRUE(set.remove(set[1]));
  EXPECT_FALSE(set.remove("a"));
  EXPECT_TRUE(set.add("a"));
  EXPECT_TRUE(set.remove("c"));
  EXPECT_TRUE(set.add("e"));
  EXPECT_TRUE(set.remove("a"));  // has moved up twice
  CoreSet<CoreString>& alias = set;
  set = alias;
  std::string order;
  for (const CoreString& name : set) order += name.get_data();
  EXPECT_EQ(order, "dbe");
  EXPECT_FALSE(set.add("b"));
  EXPECT_TRUE(set.contains("d"));
  EXPECT_FALSE(set.contains("c"));
}

// Twenty bytes of state beyond the base: a stride that no guess of a base's size would give.
class Counted : public CoreCustomData {
 public:
  ~Counted() override { destroyed.push_back(number); }
  uint number = 0;
  std::string text = long_text;
  static std::vector<uint> destroyed;
};
std::vector<uint> Counted::destroyed;

TEST(CoreBaseType, one_destructor_entry_serves_objects_and_arrays) {
  Counted::destroyed.clear();
  auto* items = new Counted[5];
  for (uint i = 0; i < 5; ++i) items[i].number = i;
  EXPECT_EQ(CoreBaseType::get_array_count(items), 5u);
  EXPECT_EQ(CoreBaseType::get_array_stride(items), sizeof(Counted));
  EXPECT_TRUE(core_destroy_object(items, true));
  EXPECT_EQ(Counted::destroyed, (std::vector<uint>{4, 3, 2, 1, 0}));
  EXPECT_TRUE(core_destroy_object(new Counted[0], true));
  EXPECT_EQ(Counted::destroyed.size(), 5u);
  EXPECT_TRUE(core_destroy_object(new Counted, false));
  EXPECT_EQ(Counted::destroyed.size(), 6u);
  EXPECT_TRUE(core_destroy_object(nullptr, true));
  delete[] new Counted[3];
  EXPECT_EQ(Counted::destroyed.size(), 9u);
}

TEST(CoreClassInfo, threads_that_ask_at_once_get_one_record) {
  struct Lazy {
    static const CoreClassInfo& class_info() {
      static const CoreClassInfo& info =
          CoreClassInfo::new_class("CoreTestLazy", core_destroy_object, CoreCustomData::class_info(), nullptr);
      return info;
    }
  };
  std::atomic<int> ready = 0;
  const CoreClassInfo* seen[4] = {};
  std::vector<std::thread> threads;
  for (auto& slot : seen)
    threads.emplace_back([&ready, &slot] {
      for (++ready; ready < 4;) std::this_thread::yield();
      slot = &Lazy::class_info();
    });
  for (std::thread& thread : threads) thread.join();
  for (const CoreClassInfo* info : seen) EXPECT_EQ(info, seen[0]);
  EXPECT_EQ(CoreClassInfo::get_creation_count("CoreTestLazy"), 1u);
  EXPECT_EQ(CoreClassInfo::find("CoreTestLazy"), seen[0]);
  EXPECT_EQ(CoreClassInfo::find("nobody"), nullptr);
  EXPECT_TRUE(seen[0]->is_kindof(CoreBaseType::class_info()));
  EXPECT_FALSE(CoreBaseType::class_info().is_kindof(*seen[0]));
  EXPECT_EQ(CoreBaseType::class_info().get_base(), nullptr);
  const Counted object;
  EXPECT_TRUE(object.is_kindof(CoreBaseObject::class_info()));
  EXPECT_FALSE(object.is_kindof(*seen[0]));
}

TEST(CoreLog, level_admits_and_sink_is_replaceable) {
  CoreLogHandler& log = CoreLogHandler::get_main();
  EXPECT_EQ(log.get_level(), 2u);
  std::vector<std::pair<std::string, uint>> seen;
  auto former = log.set_sink(
      [&seen](const CoreString& message, const uint& level) { seen.emplace_back(message.get_data(), level); });
  log.log("info", 3);
  log.log(CoreLogStream() << "a " << 4294967295u << 0 << " " << u64(-1) << CoreString(" b\n"), 2);
  log.set_level(0);
  log.log("error", 1);
  log.set_level(2);
  log.set_sink(former);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].first, "a 42949672950 18446744073709551615 b\n");
  EXPECT_EQ(seen[0].second, 2u);
}

TEST(CoreMemory, blocks_are_aligned_or_null) {
  for (std::size_t alignment = 1; alignment <= 4096; alignment *= 2)
    for (std::size_t bytes : {std::size_t(1), std::size_t(100), core_large_page_bytes, core_large_page_bytes + 1}) {
      void* block = core_aligned_alloc(bytes, alignment);
      ASSERT_NE(block, nullptr);
      const std::size_t wanted = bytes < core_large_page_bytes ? alignment : core_large_page_bytes;
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % wanted, 0u) << alignment << " " << bytes;
      std::memset(block, 1, bytes);
      core_aligned_free(block);
    }
  EXPECT_EQ(core_aligned_alloc(0, 16), nullptr);
  EXPECT_EQ(core_aligned_alloc(16, 0), nullptr);
  EXPECT_EQ(core_aligned_alloc(16, 48), nullptr);
  core_aligned_free(nullptr);
}

TEST(CoreAlignedArray, owns_one_block) {
  CoreAlignedArray<float> a(24, 64);
  ASSERT_TRUE(a);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.get()) % 64, 0u);
  EXPECT_EQ(a.get_bytes(), 96u);
  a[23] = 5.0f;
  CoreAlignedArray<float> b(std::move(a));
  EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(a.get_count(), 0u);
  a = std::move(b);
  CoreAlignedArray<float>& alias = a;
  a = std::move(alias);
  EXPECT_EQ(a[23], 5.0f);
  const CoreAlignedArray<float> endless(std::size_t(-1) / 2);
  EXPECT_FALSE(endless);
  EXPECT_EQ(endless.get_count(), 0u);
}

}  // namespace
