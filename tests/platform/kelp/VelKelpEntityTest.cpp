// An entity over tables: the collection line keeps the access of its section, its storage is
// changed only by the entity, and every write, delete and delete-all reaches the entity's
// watchers.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/kelp/VelKelpEntity.h"

namespace {

class Counts : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Counts> {
   public:
    explicit NotifieeConst(Vel::Ptr<Counts const> const& notifier, std::vector<std::string>* log)
        : NotifieeConstOf(notifier), log_(log) {}
    virtual void onHidden(std::uint64_t const&) {}
    virtual void onHidden() {}
    virtual void onShown(std::uint64_t const& k) { log_->push_back("shown " + std::to_string(k)); }
    virtual void onShown() { log_->push_back("shown"); }

   private:
    std::vector<std::string>* log_;
  };
  explicit Counts(Vel::Name name) : TableEntity(std::move(name)) {}
  VEL_DESCRIBE("KelpTest::Counts", "hidden", "shown")

 private:
  VELKELP_COLLECTION(hidden, Hidden, std::uint64_t, std::uint64_t)
  void afterPrivateLine() {}

 public:
  VELKELP_COLLECTION(shown, Shown, std::uint64_t, std::uint64_t)
};

template <class T>
concept HiddenWritable = requires(T& t) {
  t.hiddenIs(1, 1);
};
template <class T>
concept PrivateAfterLineCallable = requires(T& t) {
  t.afterPrivateLine();
};
template <class T>
concept ShownWritable = requires(T& t) {
  t.shownIs(1, 1);
};
template <class T>
concept ShownStorageWritableFromOutside = requires(T& t) {
  t.shown_.write(1, 1);
};

static_assert(!HiddenWritable<Counts> && !PrivateAfterLineCallable<Counts>);
static_assert(ShownWritable<Counts> && !ShownStorageWritableFromOutside<Counts>);

TEST(VelKelpEntity, WritesDeletesAndDeleteAllReachWatchersAndReadsAnswerDefaults) {
  Vel::Ptr<Counts> counts(new Counts("velKelpEntityTest"));
  std::vector<std::string> log;
  Counts::NotifieeConst watcher(counts, &log);
  counts->shownIs(2, 20);
  counts->shownIs(1, 10);
  EXPECT_EQ(counts->shown(2), 20u);
  EXPECT_EQ(counts->shown(3), 0u);
  EXPECT_EQ(counts->showns(), 2u);
  EXPECT_FALSE(counts->shownDel(3));
  counts->shownDelAll();
  EXPECT_EQ(counts->showns(), 0u);
  EXPECT_FALSE(counts->shownIsMemberOf(1));
  EXPECT_EQ(log, (std::vector<std::string>{"shown 2", "shown 1", "shown 1", "shown 2"}));
}

}  // namespace
