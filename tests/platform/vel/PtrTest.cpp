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

TEST(Ptr, RebindingAndRawPointersKeepCountsRight) {
  int deaths = 0;
  Vel::Ptr<Counted> a(new Counted(&deaths));
  Vel::Ptr<Counted>& alias = a;
  a = alias;
  EXPECT_EQ(a->references(), 1u);
  // A raw pointer handed to a callback can become an owning pointer again.
  Vel::Ptr<Counted> again(a.ptr());
  a = new Counted(&deaths);
  EXPECT_EQ(deaths, 0);
  again = nullptr;
  a = nullptr;
  EXPECT_EQ(deaths, 2);
}

}  // namespace
