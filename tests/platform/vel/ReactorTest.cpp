#include <gtest/gtest.h>

#include "tests/platform/vel/TestEntities.h"

namespace {

using VelTest::Leaf;
using VelTest::Tree;
using Log = std::vector<std::string>;

// A miniature machine: one reactor per leaf of the watched tree, following the membership rule
// (create then handle on arrival; handle then remove on departure).
class Mirror : public Vel::PtrInterface, public Vel::Described {
 public:
  class VelLeaf : public Leaf::NotifieeConst {
   public:
    VelLeaf(Vel::Ptr<Leaf const> const& leaf, Mirror* owner) : NotifieeConst(leaf), owner_(owner) {}
    void onTag(int const& k) override { owner_->log_.push_back("tag " + std::to_string(k)); }

   private:
    Mirror* owner_;
  };

  class VelTree : public Tree::NotifieeConst {
   public:
    VelTree(Vel::Ptr<Tree const> const& t, Mirror* owner) : NotifieeConst(t), owner_(owner) {}
    void onLeaf(int const& k) override {
      Vel::Ptr<Leaf const> member = notifier()->leaf(k);
      Vel::followMember(
          member != nullptr, [&] { owner_->leafIs(member); }, [&] { owner_->handleLeaf(k); },
          [&] { owner_->leafDel(k); });
    }

   private:
    Mirror* owner_;
  };

  explicit Mirror(Vel::Ptr<Tree const> const& tree) : tree_(tree, this) {
    for (auto [k, leaf] : tree->leafColl()) leafIs(leaf);
  }

  void handleLeaf(int k) {
    VelLeaf* r = leaf(k);
    log_.push_back("handle " + std::to_string(k) + (r ? " reactor" : " none") + " tags " +
                   std::to_string(r ? r->notifier()->tags() : 0));
  }

  VEL_DESCRIBE("VelTest::Mirror", "tree", "leaf")
  VEL_REACTOR_COLLECTION(leaf, int, VelLeaf, Leaf)

  Log log_;

 private:
  VelTree tree_;
};

TEST(ReactorCollection, HandlerSeesDepartedMemberThroughItsReactorBeforeTheReactorGoes) {
  Vel::Ptr<Tree> tree(new Tree);
  Vel::Ptr<Mirror> m(new Mirror(tree));
  tree->leafIs(1)->tagIs(5, true);
  tree->leafIs(1)->tagIs(6, true);
  tree->leafDel(1);
  EXPECT_EQ(m->log_, (Log{"handle 1 reactor tags 0", "tag 5", "tag 6", "handle 1 reactor tags 2"}));
  EXPECT_EQ(m->leaf(1), nullptr);
  EXPECT_EQ(m->leafs(), 0u);
}

TEST(ReactorCollection, NullMemberRaisesRangeErrorNamingCollectionAndOwner) {
  Vel::Ptr<Tree> tree(new Tree);
  Vel::Ptr<Mirror> m(new Mirror(tree));
  try {
    m->leafIs(nullptr);
    FAIL() << "no range error";
  } catch (Vel::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "null _leaf parameter to mutator for VelTest::Mirror::leaf not allowed\"");
  }
  EXPECT_EQ(m->leafs(), 0u);
}

TEST(ReactorCollection, DestroyingTheMachineDetachesEveryReactor) {
  Vel::Ptr<Tree> tree(new Tree);
  Vel::Ptr<Leaf> leaf = tree->leafIs(1);
  {
    Vel::Ptr<Mirror> m(new Mirror(tree));
    EXPECT_EQ(leaf->notifiees(), 1u);
    EXPECT_EQ(tree->notifiees(), 1u);
  }
  EXPECT_EQ(leaf->notifiees(), 0u);
  EXPECT_EQ(tree->notifiees(), 0u);
  leaf->tagIs(1, true);  // nobody left to call
}

}  // namespace
