#include <gtest/gtest.h>

#include <type_traits>

#include "tests/platform/vel/TestEntities.h"

namespace {

// The accessor macros keep the access of the section they are written in, and what follows them
// keeps it too; their storage can be read by anyone and changed only by its class.
class Sections : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Sections> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onSecret() {}
    virtual void onTag(int const&) {}
  };
  VEL_DESCRIBE("VelTest::Sections", "secret", "tag")

 private:
  VEL_SCALAR(secret, Secret, int, 0)
  void afterPrivateMacro() {}

 public:
  VEL_VALUE_COLLECTION(tag, Tag, int, bool)
};

template <class T>
concept SecretWritable = requires(T& t) {
  t.secretIs(1);
};
template <class T>
concept PrivateAfterMacroCallable = requires(T& t) {
  t.afterPrivateMacro();
};
template <class T>
concept TagWritable = requires(T& t) {
  t.tagIs(1, true);
};
template <class T>
concept TagStorageWritableFromOutside = requires(T& t) {
  t.tag_.erase(1, Vel::NoNotification());
};
template <class T>
concept NotifieeAttachableBare =
    std::is_constructible_v<typename T::NotifieeConst, Vel::Ptr<T const>>;

static_assert(!SecretWritable<Sections> && !PrivateAfterMacroCallable<Sections>);
static_assert(TagWritable<Sections> && !TagStorageWritableFromOutside<Sections>);
static_assert(!NotifieeAttachableBare<Sections>);

using VelTest::Leaf;
using VelTest::LeafLog;
using VelTest::Tree;
using VelTest::TreeLog;
using Log = std::vector<std::string>;

TEST(ValueCollection, NotifiesInsertChangeAndRemovalButNotEqualWritesOrAbsentDeletes) {
  Vel::Ptr<Leaf> leaf(new Leaf(1));
  Log log;
  LeafLog n(leaf, &log);
  leaf->tagIs(5, true);
  leaf->tagIs(5, true);
  leaf->tagIs(5, false);
  leaf->tagDel(7);
  leaf->tagDel(5);
  leaf->tagDel(5);
  EXPECT_EQ(log, (Log{"tag 5", "tag 5", "tag 5"}));
}

TEST(ValueCollection, LookupOfAbsentKeyGivesDefaultAndMembershipTellsThemApart) {
  Vel::Ptr<Leaf> leaf(new Leaf(1));
  leaf->tagIs(3, false);
  EXPECT_FALSE(leaf->tag(3));
  EXPECT_TRUE(leaf->tagIsMemberOf(3));
  EXPECT_FALSE(leaf->tag(4));
  EXPECT_FALSE(leaf->tagIsMemberOf(4));
  EXPECT_EQ(leaf->tags(), 1u);
}

TEST(ValueCollection, DelAllRemovesInIterationOrderNotifyingEachKeyOnce) {
  Vel::Ptr<Leaf> leaf(new Leaf(1));
  for (int k : {3, 1, 2}) leaf->tagIs(k, true);
  Log log;
  LeafLog n(leaf, &log);
  leaf->tagDelAll();
  EXPECT_EQ(log, (Log{"tag 3", "tag 1", "tag 2"}));
  EXPECT_EQ(leaf->tags(), 0u);
  leaf->tagDelAll();
  EXPECT_EQ(log.size(), 3u);
}

TEST(ValueCollection, DeletingThroughTheMembersOwnKeyIsSafe) {
  Vel::Ptr<Leaf> leaf(new Leaf(1));
  leaf->tagIs(9, true);
  Log log;
  LeafLog n(leaf, &log);
  leaf->tagDel(*leaf->tagColl().firstKey());
  EXPECT_EQ(log, (Log{"tag 9"}));
}

TEST(ScalarAttribute, NotifiesOnlyOnChange) {
  Vel::Ptr<Tree> tree(new Tree);
  Log log;
  TreeLog n(tree, &log);
  tree->labelIs("");
  tree->labelIs("a");
  tree->labelIs("a");
  EXPECT_EQ(log, (Log{"label"}));
}

TEST(EntityCollection, FindOrCreateNotifiesOnlyWhenCreatingAndReturnsTheSameMember) {
  Vel::Ptr<Tree> tree(new Tree);
  Log log;
  TreeLog n(tree, &log);
  Vel::Ptr<Leaf> a = tree->leafIs(4);
  Vel::Ptr<Leaf> b = tree->leafIs(4);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->key(), 4);
  EXPECT_EQ(log, (Log{"leaf 4"}));
  Vel::Ptr<Tree const> constTree = tree;
  EXPECT_EQ(constTree->leaf(4).ptr(), a.ptr());
  EXPECT_EQ(constTree->leaf(5), nullptr);
}

TEST(EntityCollection, RemovedMemberLivesOnWhileHeldAndTheRemovalIsVisibleInTheCallback) {
  Vel::Ptr<Tree> tree(new Tree);
  tree->leafIs(1)->tagIs(7, true);
  struct Watcher : Tree::NotifieeConst {
    explicit Watcher(Vel::Ptr<Tree const> const& t) : NotifieeConst(t) {}
    void onLeaf(int const& k) override { presentAtCallback = notifier()->leafIsMemberOf(k); }
    bool presentAtCallback = true;
  } watcher(tree);
  Vel::Ptr<Leaf> held = tree->leaf(1);
  EXPECT_TRUE(tree->leafDel(1));
  EXPECT_FALSE(watcher.presentAtCallback);
  EXPECT_TRUE(held->tag(7));
  EXPECT_EQ(held->references(), 1u);
}

TEST(TypeRegistration, EntitiesListTheirAttributesInDeclarationOrder) {
  Vel::Ptr<Tree> tree(new Tree);
  std::vector<std::string_view> names;
  for (auto it = tree->typeInfo().attributeIterator(); it; ++it) names.push_back(it.name());
  EXPECT_EQ(tree->typeInfo().name(), "VelTest::Tree");
  EXPECT_EQ(names, (std::vector<std::string_view>{"label", "leaf"}));
}

}  // namespace
