// The registry of names and the listeners.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "vq_event/event_object.h"
#include "vq_event/event_registry.h"
#include "vq_event/event_table.h"

namespace {

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
  Heard a, b, c;
  EventObject object;
  for (Heard* heard : {&a, &b, &c, &a}) object.add_listener(Heard::listen, heard);
  for (const uint event : {EVT_ID_CREATE, EVT_ID_DESTROY, EVT_ID_CREATE}) object.raise(event);
  EventObject(object).raise(EVT_ID_COPY);  // a copy has no listeners
  const std::vector<uint> expected = {EVT_ID_CREATE, EVT_ID_DESTROY};
  for (const Heard* heard : {&a, &b, &c}) EXPECT_EQ(heard->events, expected);
}

}  // namespace
