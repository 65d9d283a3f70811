// Items, objects and the way to the application.
#include <gtest/gtest.h>

#include "vq_of/of_app.h"
#include "vq_of/of_object.h"
#include "vq_of/of_object_factory.h"

namespace {

TEST(OfObject, is_an_item_that_can_be_switched_off) {
  OfObject object("lamp");
  EXPECT_TRUE(object.is_kindof(OfItem::class_info()));
  EXPECT_EQ(object.get_module(), nullptr);
  OfItem& item = object;
  item.set_enabled(false);
  EXPECT_FALSE(object.is_enabled());
  const OfApp app(2);
  EXPECT_EQ(app.get_thread_manager().get_thread_count(), 2u);  // reached through a constant application
}

TEST(OfObjectFactory, leads_to_its_application) {
  OfApp a(1), b(1);
  EXPECT_EQ(OfObjectFactory(a).get_application(), &a);
  EXPECT_EQ(OfObjectFactory(b).get_application(), &b);
}

}  // namespace
