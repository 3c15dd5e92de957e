// Which changes of a collection leave its member pointers and iterators usable, and, in builds
// with NOX_CHECKED_COLLECTIONS, that using one after a change that invalidates it stops the
// process instead of reading or writing a moved or dropped member.

#include <gtest/gtest.h>

#include <type_traits>

#include "platform/vel/OrderedMap.h"
#include "tests/platform/vel/TestEntities.h"

namespace {

using Map = Vel::OrderedMap<int, int>;

#if !NOX_CHECKED_COLLECTIONS
// Unchecked builds pay nothing: a member pointer is a plain pointer, an iterator a slot number
// with the member and the end of its chunk.
static_assert(std::is_same_v<Vel::MemberPtr<int>, int*>);
static_assert(sizeof(Map::iterator) == 3 * sizeof(void*) + sizeof(std::size_t));
#endif

// Removals keep iterators, checked or not: OrderedMap's iteration over removals shows it.
TEST(CollectionChanges, ReplacingInPlaceKeepsMemberPointers) {
  Map map;
  for (int k = 0; k < 4; ++k) map.tryEmplace(k, k);
  auto value = map.find(2);
  map.tryEmplace(2, 20);  // present: finds, does not insert
  *map.tryEmplace(2).first = 21;
  EXPECT_EQ(*value, 21);

  Vel::Ptr<VelTest::Leaf> leaf(new VelTest::Leaf(1));
  leaf->tagIs(1, false);
  auto tag = leaf->tagFind(1);
  leaf->tagIs(1, true);
  EXPECT_TRUE(*tag);
}

#if NOX_CHECKED_COLLECTIONS

char const staleMember[] = "Vel: member pointer used after its collection changed";
char const staleIterator[] = "Vel: iterator used after its collection changed";

TEST(CheckedCollectionsDeathTest, MemberPointerUsedAfterAnInsertionOrRemovalStops) {
  Map map;
  map.tryEmplace(1, 1);
  map.tryEmplace(2, 2);
  auto beforeInsert = map.find(1);
  map.tryEmplace(3, 3);
  EXPECT_DEATH(*beforeInsert = 5, staleMember);
  // Removing another member counts too: whether a member moves is not the caller's to know.
  auto beforeErase = map.find(1);
  map.erase(2);
  EXPECT_DEATH(static_cast<void>(*beforeErase), staleMember);
  auto first = map.firstKey();
  map.reserve(100);
  EXPECT_DEATH(static_cast<void>(*first), staleMember);
}

TEST(CheckedCollectionsDeathTest, IteratorUsedAfterAnInsertionOrClearStops) {
  Map map;
  for (int k = 0; k < 3; ++k) map.tryEmplace(k, k);
  auto it = map.begin();
  map.tryEmplace(7, 7);
  EXPECT_DEATH(++it, staleIterator);
  auto end = map.end();
  map.clear();
  EXPECT_DEATH(static_cast<void>(map.begin() == end), staleIterator);
}

// The fault the check is for: a pointer taken before a change that notifies, a notifiee that
// changes the same collection, then a write through the pointer.
TEST(CheckedCollectionsDeathTest, WriteThroughPointerAfterANotifieeChangedTheCollectionStops) {
  Vel::Ptr<VelTest::Leaf> leaf(new VelTest::Leaf(1));
  struct Tagger : VelTest::Leaf::NotifieeConst {
    explicit Tagger(Vel::Ptr<VelTest::Leaf> const& l) : NotifieeConst(l), leaf(l) {}
    void onFlavor() override { leaf->tagIs(100 + leaf->flavor(), true); }
    Vel::Ptr<VelTest::Leaf> leaf;
  } tagger(leaf);
  leaf->tagIs(1, false);
  auto tag = leaf->tagFind(1);
  leaf->flavorIs(2);
  EXPECT_DEATH(*tag = true, staleMember);

  Vel::Ptr<VelTest::Tree> tree(new VelTest::Tree);
  tree->leafIs(1);
  auto member = tree->leafColl().find(1);
  tree->leafDel(1);
  EXPECT_DEATH(static_cast<void>(member->key()), staleMember);
}

#endif

}  // namespace
