#include <gtest/gtest.h>

#include <memory>

#include "tests/platform/vel/TestEntities.h"

namespace {

using VelTest::Tree;
using VelTest::TreeLog;
using Log = std::vector<std::string>;

class Notification : public ::testing::Test {
 protected:
  Vel::Ptr<Tree> tree{new Tree};
  Log log;
};

TEST_F(Notification, NotifieesAreCalledInRegistrationOrderAfterTheChangeIsVisible) {
  TreeLog first(tree, &log, "a:");
  TreeLog second(tree, &log, "b:");
  struct Checker : Tree::NotifieeConst {
    explicit Checker(Vel::Ptr<Tree const> const& t) : NotifieeConst(t) {}
    void onLabel() override { seen = notifier()->label(); }
    std::string seen;
  } checker(tree);
  tree->labelIs("x");
  EXPECT_EQ(log, (Log{"a:label", "b:label"}));
  EXPECT_EQ(checker.seen, "x");
}

TEST_F(Notification, InactiveNotifieeHearsNothingUntilReactivated) {
  TreeLog n(tree, &log);
  n.hasNotificationActiveIs(false);
  tree->labelIs("x");
  EXPECT_TRUE(log.empty());
  n.hasNotificationActiveIs(true);
  tree->labelIs("y");
  EXPECT_EQ(log, (Log{"label"}));
}

TEST_F(Notification, NotifieeDestroyedInsideCallbackIsSkippedAndOthersStillHear) {
  auto victim = std::make_unique<TreeLog>(tree, &log, "victim:");
  struct Killer : Tree::NotifieeConst {
    Killer(Vel::Ptr<Tree const> t, std::unique_ptr<TreeLog>* v) : NotifieeConst(t), v_(v) {}
    void onLabel() override { v_->reset(); }
    std::unique_ptr<TreeLog>* v_;
  } killer(tree, &victim);
  // The killer registered after the victim: the victim hears this change, then dies.
  TreeLog after(tree, &log, "after:");
  tree->labelIs("x");
  EXPECT_EQ(log, (Log{"victim:label", "after:label"}));
  EXPECT_EQ(tree->notifiees(), 2u);

  // Killed before its turn: a notifiee registered after the killer is skipped, not called.
  log.clear();
  auto late = std::make_unique<TreeLog>(tree, &log, "late:");
  killer.v_ = &late;
  tree->labelIs("y");
  EXPECT_EQ(log, (Log{"after:label"}));
  EXPECT_EQ(tree->notifiees(), 2u);
}

TEST_F(Notification, NotifieeRegisteredDuringCallbackHearsOnlyLaterChanges) {
  std::unique_ptr<TreeLog> born;
  struct Spawner : Tree::NotifieeConst {
    Spawner(Vel::Ptr<Tree const> t, std::unique_ptr<TreeLog>* b, Log* l)
        : NotifieeConst(t), b_(b), l_(l) {}
    void onLabel() override {
      if (!*b_) *b_ = std::make_unique<TreeLog>(notifier(), l_, "born:");
    }
    std::unique_ptr<TreeLog>* b_;
    Log* l_;
  } spawner(tree, &born, &log);
  tree->labelIs("x");
  EXPECT_TRUE(log.empty());
  tree->labelIs("y");
  EXPECT_EQ(log, (Log{"born:label"}));
}

TEST_F(Notification, WeakNotifieeIsDetachedWhenNotifierDiesFirst) {
  TreeLog n(nullptr, &log);
  n.notifierIsWeak(tree.ptr());
  tree->labelIs("x");
  EXPECT_EQ(log.size(), 1u);
  tree = nullptr;
  EXPECT_FALSE(n.isAttached());
  EXPECT_EQ(n.notifier(), nullptr);
}

TEST_F(Notification, NotifieeKeepsItsNotifierAliveUntilItGoes) {
  auto n = std::make_unique<TreeLog>(tree, &log);
  Tree const* raw = tree.ptr();
  tree = nullptr;
  EXPECT_EQ(n->notifier(), raw);
  EXPECT_EQ(raw->references(), 1u);
  n.reset();  // the last reference goes with the notifiee, which left the list first
}

TEST_F(Notification, RetargetingMovesTheNotifieeToTheNewNotifier) {
  Vel::Ptr<Tree> other(new Tree);
  TreeLog n(tree, &log);
  n.notifierIs(other);
  tree->labelIs("x");
  EXPECT_TRUE(log.empty());
  other->labelIs("x");
  EXPECT_EQ(log, (Log{"label"}));
  EXPECT_EQ(tree->notifiees(), 0u);
}

}  // namespace
