// The registry of named counters.

#include "platform/trace/Counters.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using Entries = std::vector<std::pair<std::string, std::uint64_t>>;

TEST(Counters, RegisteringANameAgainReturnsTheSameCounter) {
  Trace::Counter* const is = Trace::counterIs("countersTestIs");
  is->inc();
  EXPECT_EQ(Trace::counterIs("countersTestIs"), is);
  EXPECT_EQ(Trace::counter("countersTestIs"), is);
  EXPECT_EQ(Trace::counterIs("countersTestIs")->value(), 1u);
  EXPECT_EQ(Trace::counter("countersTestNeverRegistered"), nullptr);
  EXPECT_EQ(Trace::counterValue("countersTestNeverRegistered"), 0u);
}

TEST(Counters, ListInNameOrderAndResetToZeroKeepingRegistrations) {
  Trace::counterIs("countersTestB")->inc(3);
  Trace::counterIs("countersTestA")->inc(2);
  Trace::counterIs("countersTestC");
  auto const ours = [] {
    Entries mine;
    for (auto const& e : Trace::counters()) {
      if (e.first.rfind("countersTest", 0) == 0 && e.first.size() == 13) mine.push_back(e);
    }
    return mine;
  };
  EXPECT_EQ(ours(), (Entries{{"countersTestA", 2}, {"countersTestB", 3}, {"countersTestC", 0}}));

  Trace::Counter* const b = Trace::counter("countersTestB");
  Trace::countersReset();
  EXPECT_EQ(ours(), (Entries{{"countersTestA", 0}, {"countersTestB", 0}, {"countersTestC", 0}}));
  b->inc();
  EXPECT_EQ(Trace::counterValue("countersTestB"), 1u);
}

TEST(Counters, ConcurrentIncrementsAreAllCounted) {
  Trace::Counter* const c = Trace::counterIs("countersTestConcurrent");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([c] {
      for (int i = 0; i < 10000; ++i) c->inc();
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(c->value(), 40000u);
}

}  // namespace
