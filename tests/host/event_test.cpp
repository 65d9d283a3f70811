// The event table, the registry of names and the listeners.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "vq_event/event_declare.h"
#include "vq_event/event_object.h"
#include "vq_event/event_registry.h"
#include "vq_event/event_table.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GEOMETRY_DIRTY, EVT_ID_DESTROY};

TEST(EventTable, holds_133_names_with_distinct_hashes) {
  std::set<std::string> names;
  std::set<uint> hashes;
  for (const EventRow& row : event_table) {
    names.insert(row.name);
    hashes.insert(row.id);
    EXPECT_EQ(std::string(row.name).find("EVT_ID_"), 0u);
  }
  EXPECT_EQ(names.size(), 133u);
  EXPECT_EQ(hashes.size(), 133u);
  EXPECT_TRUE(names.count("EVT_ID_DESTROY"));
  // Published test values of the 32-bit FNV-1a hash.
  EXPECT_EQ(event_hash(""), 0x811C9DC5u);
  EXPECT_EQ(event_hash("a"), 0xE40C292Cu);
  EXPECT_EQ(event_hash("foobar"), 0xBF9CF968u);
}

TEST(EventRegistry, knows_declared_names_and_finds_collisions) {
  EXPECT_STREQ(declared_events[0].name.get_data(), "EVT_ID_DESTROY");
  for (const EventDeclaration& event : declared_events) EXPECT_TRUE(event.is_unique);
  const uint before = event_get_registered_count();
  EXPECT_FALSE(event_debug_collisions(EVT_ID_DESTROY, "EVT_ID_SOMETHING_ELSE"));
  EXPECT_TRUE(event_debug_collisions(EVT_ID_DESTROY, "EVT_ID_DESTROY"));
  EXPECT_FALSE(event_debug_collisions(7, nullptr));
  EXPECT_EQ(event_get_registered_count(), before);
  for (const EventRow& row : event_table) EXPECT_TRUE(EventDeclaration(row.id).is_unique);
  EXPECT_EQ(event_get_registered_count(), 133u);
}

TEST(EventRegistry, of_many_threads_with_two_names_for_one_hash_one_name_wins) {
  std::atomic<int> wins[2] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&wins, i] { wins[i % 2] += event_debug_collisions(12345u, i % 2 ? "one" : "two"); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wins[0] + wins[1], 4);
  EXPECT_EQ(wins[0] * wins[1], 0);
}

TEST(EventObject, tells_listeners_in_order_and_they_may_leave_meanwhile) {
  struct Heard {
    std::vector<uint> events;
    static void listen(EventObject& sender, const uint& event, void* user) {
      static_cast<Heard*>(user)->events.push_back(event);
      if (event == EVT_ID_DESTROY) sender.remove_listener(listen, user);
    }
  };
  Heard a, b;
  EventObject object;
  object.add_listener(Heard::listen, &a);
  object.add_listener(Heard::listen, &b);
  object.add_listener(Heard::listen, &a);
  object.add_listener(nullptr, &a);
  object.raise(EVT_ID_CREATE);
  EventObject copy(object);
  copy.raise(EVT_ID_COPY);
  object = copy;
  object.raise(EVT_ID_DESTROY);
  object.raise(EVT_ID_CREATE);
  const std::vector<uint> expected = {EVT_ID_CREATE, EVT_ID_DESTROY};
  EXPECT_EQ(a.events, expected);
  EXPECT_EQ(b.events, expected);
}

}  // namespace
