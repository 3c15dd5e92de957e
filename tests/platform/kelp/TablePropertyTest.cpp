// Random write/remove sequences against std::map: the writer's table, and a reader's view after
// it drains the log (polling at random points, with a log small enough to overflow), agree with
// the model; the reader is told of every key that changed, or told to rescan.

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/platform/kelp/KelpTestSupport.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

namespace KelpTest {
namespace {

struct Op {
  int kind;  // 0 write, 1 remove, 2 reader polls
  std::uint32_t key;
  std::uint64_t value;
};

template <class K>
K makeKey(std::uint32_t k) {
  if constexpr (std::is_same_v<K, PaddedKey>) {
    return PaddedKey{k / 4, k % 4};
  } else {
    return PointKey{k % 5, k / 5};
  }
}

template <class K>
void checkAgainstModel(std::string const& name, std::vector<Op> const& ops, bool smallLog) {
  using T = Kelp::Table<K, Wide>;
  Kelp::Options options;
  options.initialCapacity = 2;
  options.logCapacity = smallLog ? 16 : 4096;
  auto writer = T::writerNew(name, options);
  auto reader = T::readerNew(name);
  Recorder<K> writerRec;
  writer->notifieeIs(&writerRec);

  std::map<K, Wide> model;
  std::set<K> changedSincePoll;
  std::size_t writerNotifications = 0;
  auto pollAndCheckNotifications = [&] {
    struct Seen : Kelp::TableNotifiee<K> {
      std::set<K> keys;
      bool collection = false;
      void onKey(K const& k) override { keys.insert(k); }
      void onCollection() override { collection = true; }
    } seen;
    reader->notifieeIs(&seen);
    reader->poll();
    reader->notifieeDel(&seen);
    RC_ASSERT(seen.collection || seen.keys == changedSincePoll);
    changedSincePoll.clear();
  };

  for (Op const& op : ops) {
    K const key = makeKey<K>(op.key);
    Wide const value{op.value, op.key, static_cast<std::uint32_t>(op.value >> 3)};
    if (op.kind == 0) {
      writer->safeWrite(key, value);
      model[key] = value;
      changedSincePoll.insert(key);
      ++writerNotifications;
    } else if (op.kind == 1) {
      bool const present = model.erase(key) != 0;
      RC_ASSERT(writer->safeRemove(key) == present);
      if (present) {
        changedSincePoll.insert(key);
        ++writerNotifications;
      }
    } else {
      pollAndCheckNotifications();
    }
  }
  pollAndCheckNotifications();
  RC_ASSERT(writerRec.keyCount() == writerNotifications);

  for (T const* t : {writer.ptr(), reader.ptr()}) {
    RC_ASSERT(t->count() == model.size());
    auto expected = model.begin();
    for (auto const& e : *t) {
      RC_ASSERT(expected != model.end());
      RC_ASSERT(e.key == expected->first);
      RC_ASSERT(e.value.a == expected->second.a && e.value.b == expected->second.b &&
                e.value.c == expected->second.c);
      ++expected;
    }
    RC_ASSERT(expected == model.end());
    for (std::uint32_t k = 0; k < 40; ++k) {
      auto const it = model.find(makeKey<K>(k));
      RC_ASSERT(t->lookup(makeKey<K>(k)).a == (it == model.end() ? 0 : it->second.a));
    }
  }
}

rc::Gen<std::vector<Op>> genOps() {
  return rc::gen::container<std::vector<Op>>(rc::gen::build<Op>(
      rc::gen::set(&Op::kind, rc::gen::weightedElement<int>({{6, 0}, {3, 1}, {1, 2}})),
      rc::gen::set(&Op::key, rc::gen::inRange<std::uint32_t>(0, 40)),
      rc::gen::set(&Op::value, rc::gen::arbitrary<std::uint64_t>())));
}

int runs = 0;

RC_GTEST_PROP(TableProperty, HashedKeysWriterAndDrainedReaderAgreeWithAMap, ()) {
  auto const ops = *genOps();
  bool const smallLog = *rc::gen::arbitrary<bool>();
  std::string const name = "kelpprop" + std::to_string(getpid()) + "_" + std::to_string(++runs);
  checkAgainstModel<PointKey>(name, ops, smallLog);
}

RC_GTEST_PROP(TableProperty, TreeOnlyKeysWriterAndDrainedReaderAgreeWithAMap, ()) {
  auto const ops = *genOps();
  bool const smallLog = *rc::gen::arbitrary<bool>();
  std::string const name = "kelpprop" + std::to_string(getpid()) + "_" + std::to_string(++runs);
  checkAgainstModel<PaddedKey>(name, ops, smallLog);
}

}  // namespace
}  // namespace KelpTest

#endif
