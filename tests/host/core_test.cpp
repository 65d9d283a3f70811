// Containers, one destructor entry and aligned memory.
#include <gtest/gtest.h>

#include <string>

#include "vq_core/core_array.h"
#include "vq_core/core_base_type.h"
#include "vq_core/core_memory.h"
#include "vq_core/core_set.h"
#include "vq_core/core_string.h"

namespace {

const char* const long_text = "a text too long for the string's own bytes, so that a lost copy shows in the sanitizer";

TEST(CoreBasicArray, copies_of_a_view_own_their_items_and_resizing_leaves_the_source_alone) {
  uint items[3] = {7, 8, 9};
  CoreBasicArray<uint> view;
  view.set_view(items, 3);
  CoreBasicArray<uint> copy(view);
  copy[0] = 1;
  ASSERT_TRUE(view.resize(5));
  view[0] = 2;
  EXPECT_EQ(items[0], 7u);
  EXPECT_EQ(view[2], 9u);
  EXPECT_EQ(view[4], 0u);

  CoreBasicArray<uint> own(4);
  own[3] = 42;
  CoreBasicArray<uint> part;
  part.set_view(own.get_items() + 3, 1);
  own = part;  // shows the items it replaces
  EXPECT_EQ(own[0], 42u);
}

TEST(CoreVector, grows_and_copies_and_refuses_what_no_memory_holds) {
  const auto make = [](uint i) { return std::to_string(i) + long_text; };
  CoreVector<std::string> v, copy;
  for (uint i = 0; i < 16; ++i) v.add(make(i));
  ASSERT_EQ(v.get_capacity(), 16u);
  v.add(v[3]);  // an item of the block that growing frees
  EXPECT_EQ(v.get_last(), make(3));
  v.remove(0);
  for (uint i = 0; i < 8; ++i) EXPECT_EQ(v[i], make(i + 1));
  copy = v;
  copy = *&copy;
  copy[0] = make(77);
  EXPECT_EQ(v[0], make(1));
  copy.resize(2);
  copy.resize(3);
  EXPECT_EQ(copy[1], make(2));
  EXPECT_EQ(copy[2], std::string());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  struct Page {
    char bytes[1 << 20];
  };
  CoreBasicArray<Page> pages(1);
  EXPECT_FALSE(pages.resize(0xFFFFFFFFu));
  EXPECT_EQ(pages.get_count(), 1u);
  EXPECT_FALSE(CoreVector<Page>().reserve(0xFFFFFFFFu));
#endif
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
  EXPECT_TRUE(set.remove("a"));  // has moved up
  std::string order;
  for (const CoreString& name : set) order += name.get_data();
  EXPECT_EQ(order, "dbe");
  CoreSet<CoreString> copy(set);
  set.remove_all();
  EXPECT_TRUE(set.is_empty() && !set.contains("d") && set.add("b"));
  EXPECT_TRUE(copy.remove("d") && copy.contains("b") && copy[0] == CoreString("b") && copy.get_count() == 2u);
}

TEST(CoreMemory, blocks_are_aligned_or_null) {
  for (std::size_t alignment = 1; alignment <= 4096; alignment *= 2)
    for (const std::size_t bytes : {std::size_t(1), core_large_page_bytes, core_large_page_bytes + 1}) {
      void* block = core_aligned_alloc(bytes, alignment);
      const std::size_t wanted = bytes < core_large_page_bytes ? alignment : core_large_page_bytes;
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % wanted, 0u) << alignment << " " << bytes;
      std::memset(block, 1, bytes);
      core_aligned_free(block);
      void* small = core_aligned_alloc(bytes, alignment, CorePages::small);
      ASSERT_NE(small, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(small) % alignment, 0u) << alignment << " " << bytes;
      std::memset(small, 1, bytes);
      core_aligned_free(small);
    }
  void* wide = core_aligned_alloc(16, 4 * core_large_page_bytes);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide) % (4 * core_large_page_bytes), 0u);
  core_aligned_free(wide);
#if !defined(__SANITIZE_ADDRESS__)  // it ends the program
  EXPECT_EQ(core_aligned_alloc(std::size_t(-1) - 100, 64), nullptr);
  EXPECT_EQ(core_aligned_alloc(std::size_t(1) << 62, 64), nullptr);
#endif
  EXPECT_EQ(core_aligned_alloc(0, 16), nullptr);
  EXPECT_EQ(core_aligned_alloc(16, 48), nullptr);
  EXPECT_FALSE(CoreAlignedArray<float>(std::size_t(-1) / 2));
}

}  // namespace
