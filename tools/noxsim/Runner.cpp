// The run loop: each step runs, then the agent settles; a range error waits for `expect error`.

#include "tools/noxsim/Runner.h"

#include <cstdlib>
#include <ostream>

#include "platform/kelp/VelKelp.h"
#include "platform/trace/Facility.h"
#include "platform/trace/Fleck.h"
#include "platform/trace/Sink.h"
#include "platform/vel/Exception.h"
#include "tools/noxsim/Options.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

// Runs one step's action and the settling after it; a range error from either is kept for the
// next step.
void execute(Step const& step, Sim& sim) {
  try {
    step.action(sim);
  } catch (Vel::RangeException const& e) {
    sim.pendingErrorIs(e.what());
  }
  if (sim.failed()) return;
  try {
    sim.settle();
  } catch (Vel::RangeException const& e) {
    if (!sim.pendingError()) sim.pendingErrorIs(e.what());
  }
}

int reportFailure(Sim& sim) {
  sim.out().flush();
  std::string_view failure = sim.failure();
  if (failure.ends_with('\n')) failure.remove_suffix(1);
  sim.err() << failure << '\n';
  return exitFailed;
}

}  // namespace

int runScript(Script const& script, Sim& sim) {
  Step const* errorStep = nullptr;
  for (Step const& step : script.steps()) {
    if (sim.pendingError() && !step.checksError) break;
    sim.locationIs(script.fileName(step), step.line);
    bool const hadError = sim.pendingError().has_value();
    execute(step, sim);
    if (sim.failed()) return reportFailure(sim);
    if (!hadError && sim.pendingError()) errorStep = &step;
  }
  if (sim.pendingError()) {
    sim.locationIs(script.fileName(*errorStep), errorStep->line);
    sim.fail(cat("unexpected error: ", *sim.pendingError(),
                 "\n(a command that raises an error is followed by `expect error TEXT`)"));
    return reportFailure(sim);
  }
  return exitOk;
}

int runMain(int argc, char const* const* argv, std::istream& in, std::ostream& out,
            std::ostream& err) {
  std::string error;
  Options const options = parseOptions(argc, argv, error);
  if (!error.empty()) {
    err << "noxsim: " << error << '\n' << usage();
    return exitSyntax;
  }
  // Published tables (the tunnel-id table) are built with the agent, after this.
  VelKelp::publishPrefixIs(options.shmPrefix);

  Script script;
  for (std::string const& file : options.files) {
    if (!script.addFile(file, in, error)) {
      err << error << '\n';
      return exitSyntax;
    }
  }

  // Traces go to the scenario's own tap only. The flight recorder stays off unless asked for
  // through NOX_FLECK, so that runs leave no buffer files behind.
  Trace::sinkDelAll();
  if (!std::getenv("NOX_FLECK")) Fleck::levelIs("*", Trace::levelOff);
  Sim sim(out, err, options.quiet);
  sim.traceTap().printLevelIs(options.traceLevel);
  int const status = runScript(script, sim);
  out.flush();
  return status;
}

}  // namespace Noxsim
