#include <gtest/gtest.h>

#include "platform/vel/Ptr.h"

namespace {

struct Counted : Vel::PtrInterface {
  explicit Counted(int* deaths) : deaths_(deaths) {}
  ~Counted() override { ++*deaths_; }
  int* deaths_;
};

TEST(Ptr, DeletesWithLastReferenceAndNotBefore) {
  int deaths = 0;
  {
    Vel::Ptr<Counted> a(new Counted(&deaths));
    EXPECT_EQ(a->references(), 1u);
    {
      Vel::Ptr<Counted> b = a;
      Vel::Ptr<Counted const> c = b;
      EXPECT_EQ(a->references(), 3u);
    }
    EXPECT_EQ(deaths, 0);
    Vel::Ptr<Counted> moved = std::move(a);
    EXPECT_FALSE(a);
    EXPECT_EQ(moved->references(), 1u);
  }
  EXPECT_EQ(deaths, 1);
}

TEST(Ptr, SelfAssignmentAndRebindingKeepCountsRight) {
  int deaths = 0;
  Vel::Ptr<Counted> a(new Counted(&deaths));
  Vel::Ptr<Counted>& alias = a;
  a = alias;
  EXPECT_EQ(a->references(), 1u);
  a = new Counted(&deaths);
  EXPECT_EQ(deaths, 1);
  a = nullptr;
  EXPECT_EQ(deaths, 2);
}

TEST(Ptr, RawPointerFromCallbackCanBecomeOwningAgain) {
  int deaths = 0;
  Vel::Ptr<Counted> a(new Counted(&deaths));
  Counted* raw = a.ptr();
  Vel::Ptr<Counted> again(raw);
  a = nullptr;
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(again->references(), 1u);
}

}  // namespace
