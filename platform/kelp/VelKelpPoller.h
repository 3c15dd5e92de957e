#pragma once

// VelKelp::Poller: delivers the changes of reader-side collections on the agent's event thread.
// It is a task on the agent's scheduler that calls a poll function (a reader entity's poll) and
// reschedules itself: ready again at once when the run took a full batch, since more is likely
// waiting, so a burst is delivered in slices between the agent's other tasks; otherwise after
// `interval` seconds. Notifiees therefore run from the poller's task, one batch per run, never
// from another thread.

#include <cstddef>
#include <functional>

#include "platform/cog/Task.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/vel/Name.h"

namespace VelKelp {

class Poller {
 public:
  struct Config {
    double interval = 0.001;  // seconds between polls of an idle table
    std::size_t batch = 256;  // changes taken per run at most
    Cog::TaskPriority priority = 0;
  };
  // poll(maxChanges) takes up to maxChanges changes and returns how many it took. The first
  // poll is ready at once.
  Poller(Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::String name,
         std::function<std::size_t(std::size_t)> poll, Config config);
  Poller(Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::String name,
         std::function<std::size_t(std::size_t)> poll)
      : Poller(scheduler, std::move(name), std::move(poll), Config{}) {}
  Poller(Poller const&) = delete;
  Poller& operator=(Poller const&) = delete;
  ~Poller();

  Cog::Task const& task() const { return *task_; }
  // Changes delivered so far.
  std::size_t changesTaken() const { return taken_; }

 private:
  void run();

  Vel::Ptr<Cog::Task> task_;
  std::function<std::size_t(std::size_t)> poll_;
  Config const config_;
  std::size_t taken_ = 0;
};

}  // namespace VelKelp
