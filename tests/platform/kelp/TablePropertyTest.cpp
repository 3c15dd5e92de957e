// Random write/remove sequences against std::map: the writer's table, a process-memory table and
// a reader's view after it drains the log (polling at random points, with a log small enough to
// overflow) agree with the model, in its key order, each growing from a tiny capacity. The writer
// notifies every write and every removal of a present key; the reader is told of every key that
// changed, or told to rescan.

#include <map>
#include <set>
#include <tuple>

#include "tests/platform/kelp/KelpTestSupport.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

namespace KelpTest {
namespace {

// A two-word key whose last four bytes are an explicit padding field, outside its order.
struct TypedKey {
  std::uint64_t id = 0;
  std::uint32_t type = 0;
  std::uint32_t padding = 0;
  friend bool operator==(TypedKey const& a, TypedKey const& b) {
    return a.id == b.id && a.type == b.type;
  }
  friend auto operator<=>(TypedKey const& a, TypedKey const& b) {
    return std::tie(a.id, a.type) <=> std::tie(b.id, b.type);
  }
};

// Fields of several bytes, so that byte order and field order disagree.
template <class K>
K makeKey(std::uint32_t k) {
  if constexpr (std::is_same_v<K, TypedKey>) {
    return TypedKey{k / 4 * 1000, k % 4 * 300};
  } else {
    return PointKey{k % 5 * 1000, k / 5 * 300};
  }
}

std::string keyText(TypedKey const& k) {
  return std::to_string(k.id) + "/" + std::to_string(k.type);
}

struct Op {
  int kind;  // 0 write, 1 remove, 2 reader polls
  std::uint32_t key;
  std::uint64_t value;
};

int runs = 0;

template <class K>
void checkAgainstModel() {
  using T = Kelp::Table<K, Wide>;
  using Entries = std::vector<std::pair<K, Wide>>;
  auto const ops = *rc::gen::container<std::vector<Op>>(rc::gen::build<Op>(
      rc::gen::set(&Op::kind, rc::gen::weightedElement<int>({{6, 0}, {3, 1}, {1, 2}})),
      rc::gen::set(&Op::key, rc::gen::inRange<std::uint32_t>(0, 40)),
      rc::gen::set(&Op::value, rc::gen::arbitrary<std::uint64_t>())));
  Kelp::Options options;
  options.initialCapacity = 2;
  options.logCapacity = *rc::gen::arbitrary<bool>() ? 16 : 4096;
  std::string const name = "kelpprop" + std::to_string(getpid()) + "_" + std::to_string(++runs);
  auto writer = T::writerNew(name, options);
  auto local = T::processNew(name, options);
  auto reader = T::readerNew(name);
  Recorder<K> writerHeard;
  Recorder<K> readerHeard;
  writer->notifieeIs(&writerHeard);
  reader->notifieeIs(&readerHeard);

  std::map<K, Wide> model;
  std::set<std::string> changedSincePoll;
  std::vector<std::string> writerTold;
  auto pollAndCheckNotifications = [&] {
    reader->poll();
    std::set<std::string> const heard(readerHeard.events.begin(), readerHeard.events.end());
    RC_ASSERT(heard.contains("collection") || heard == changedSincePoll);
    readerHeard.events.clear();
    changedSincePoll.clear();
  };
  for (Op const& op : ops) {
    K const key = makeKey<K>(op.key);
    Wide const value{op.value, op.key, static_cast<std::uint32_t>(op.value >> 3)};
    if (op.kind == 0) {
      writer->safeWrite(key, value);
      local->safeWrite(key, value);
      model[key] = value;
    } else if (op.kind == 1) {
      bool const present = model.erase(key) != 0;
      RC_ASSERT(writer->safeRemove(key) == present);
      RC_ASSERT(local->safeRemove(key) == present);
      if (!present) continue;
    } else {
      pollAndCheckNotifications();
      continue;
    }
    changedSincePoll.insert("k:" + keyText(key));
    writerTold.push_back("k:" + keyText(key));
  }
  pollAndCheckNotifications();
  RC_ASSERT(writerHeard.events == writerTold);

  for (T const* t : {writer.ptr(), local.ptr(), reader.ptr()}) {
    RC_ASSERT(t->count() == model.size());
    Entries entries;
    for (auto const& e : *t) entries.emplace_back(e.key, e.value);
    RC_ASSERT(entries == Entries(model.begin(), model.end()));
    for (std::uint32_t k = 0; k < 40; ++k) {
      auto const it = model.find(makeKey<K>(k));
      RC_ASSERT(t->lookup(makeKey<K>(k)) == (it == model.end() ? Wide{} : it->second));
    }
  }
}

RC_GTEST_PROP(TableProperty, OneWordKeysWriterAndDrainedReaderAgreeWithAMap, ()) {
  checkAgainstModel<PointKey>();
}

RC_GTEST_PROP(TableProperty, TwoWordKeysWriterAndDrainedReaderAgreeWithAMap, ()) {
  checkAgainstModel<TypedKey>();
}

}  // namespace
}  // namespace KelpTest

#endif
