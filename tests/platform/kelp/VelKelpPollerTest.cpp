// The poller delivers a reader's changes from a task on the agent's scheduler: a burst in
// batches, each run ready again while a full batch came, then a poll per interval.

#include "platform/cog/TaskScheduler.h"
#include "platform/kelp/VelKelpPoller.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

class PollerTest : public KelpFixture {};

TEST_F(PollerTest, BurstsAreTakenInBatchesAndAnIdleTableIsPolledEveryInterval) {
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock);
  auto writer = NumberTable::writerNew(table("numbers"));
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder rec;
  reader->notifieeIs(&rec);
  std::vector<std::size_t> runs;
  VelKelp::Poller poller(scheduler, "numbersPoller",
                         [&](std::size_t most) {
                           runs.push_back(reader->poll(most));
                           return runs.back();
                         },
                         {.interval = 0.5, .batch = 2});
  for (std::uint64_t k = 1; k <= 5; ++k) writer->safeWrite(k, k);
  scheduler->runReady();
  EXPECT_EQ(runs, (std::vector<std::size_t>{2, 2, 1}));
  EXPECT_EQ(rec.take(), "k:1 k:2 k:3 k:4 k:5");
  EXPECT_EQ(poller.task().taskDue(), std::optional<double>(clock->now() + 0.5));

  writer->safeWrite(6, 6);
  scheduler->advanceBy(0.25);
  EXPECT_EQ(rec.take(), "");
  scheduler->advanceBy(0.25);
  EXPECT_EQ(rec.take(), "k:6");
  EXPECT_EQ(poller.changesTaken(), 6u);
}

}  // namespace
}  // namespace KelpTest
