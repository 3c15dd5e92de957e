// The run loop: each step runs, then the agent settles; a range error waits for `expect error`.

#include "tools/noxsim/Runner.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <utility>

#include "platform/kelp/Segment.h"
#include "platform/kelp/VelKelp.h"
#include "platform/trace/Counters.h"
#include "platform/trace/Facility.h"
#include "platform/trace/Fleck.h"
#include "platform/trace/PrivateFile.h"
#include "platform/trace/Sink.h"
#include "platform/vel/Exception.h"
#include "platform/vel/OrderedMap.h"
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

// A run stopped by SIGINT or SIGTERM runs no destructor: the handler removes the names of the
// published tables itself, then lets the signal end the process as it would have.
void removeTablesAndDie(int signal) {
  Kelp::unlinkCreatedSegments();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// For the length of one run: the published prefix and, unless the tables are to be kept, the
// handlers that remove them; what was there before comes back when the run ends.
class PublishedTables {
 public:
  explicit PublishedTables(Options const& options) {
    Kelp::Options published;
    published.groupReadable = options.shmGroup;
    VelKelp::publishPrefixIs(options.shmPrefix, published);
    if (options.shmPrefix.empty() || options.keepShm) return;
    handled_ = true;
    struct sigaction action {};
    action.sa_handler = removeTablesAndDie;
    ::sigaction(SIGINT, &action, &previousInt_);
    ::sigaction(SIGTERM, &action, &previousTerm_);
  }
  ~PublishedTables() {
    if (handled_) {
      ::sigaction(SIGINT, &previousInt_, nullptr);
      ::sigaction(SIGTERM, &previousTerm_, nullptr);
    }
    VelKelp::publishPrefixIs("");
  }
  PublishedTables(PublishedTables const&) = delete;
  PublishedTables& operator=(PublishedTables const&) = delete;

 private:
  bool handled_ = false;
  struct sigaction previousInt_ {};
  struct sigaction previousTerm_ {};
};

int reportFailure(Sim& sim) {
  sim.out().flush();
  std::string_view failure = sim.failure();
  if (failure.ends_with('\n')) failure.remove_suffix(1);
  sim.err() << failure << '\n';
  return exitFailed;
}

// The agent's housekeeping of its heap. After a mass removal (every VLAN gone, say) the state's
// memory is freed, but glibc keeps it for reuse and can return only the top of its heap, which a
// few live blocks pin: the process would stay as large as it ever was. Once a second, and when
// the scenario ends and the agent is idle, free heap that is both large and more than what is
// in use is handed back to the system. Not more often: reading the heap's figures walks every
// free block, which after a large removal takes milliseconds.
//
// While the state grows, the heap's fresh pages are faulted in ahead of use, a step at a time:
// on a virtual machine a page faulted in by its first touch costs about three times one faulted
// in by madvise, and a run that builds hundreds of megabytes takes a fault every 4 KiB.
class HeapHousekeeping {
 public:
  HeapHousekeeping() {
#ifdef __GLIBC__
    // The heap grows in steps of this much, so each step is worth one call to fault it in.
    ::mallopt(M_TOP_PAD, int(growthStep));
    populatedTo_ = heapEnd();
#endif
  }
  void afterStep() {
    ++steps_;
    if (steps_ % growthEvery == 0) faultInGrowth();
    if (steps_ % clockEvery != 0) return;
    auto const now = std::chrono::steady_clock::now();
    if (now - last_ < std::chrono::seconds(1)) return;
    last_ = now;
    giveBackIfMostlyFree();
  }
  void giveBackIfMostlyFree() {
#ifdef __GLIBC__
    struct mallinfo2 const heap = ::mallinfo2();
    if (heap.fordblks >= minFreeBytes && heap.fordblks > heap.uordblks) ::malloc_trim(0);
#endif
  }

 private:
  static constexpr uint32_t clockEvery = 1024;  // commands between looks at the clock
  static constexpr uint32_t growthEvery = 64;   // commands between looks at the heap's end
  static constexpr std::size_t minFreeBytes = std::size_t(64) << 20;
  static constexpr std::size_t growthStep = std::size_t(4) << 20;

  static uintptr_t heapEnd() {
    auto const end = reinterpret_cast<uintptr_t>(::sbrk(0));
    return end / Vel::pageBytes() * Vel::pageBytes();
  }
  // Faults in what the heap took since the last look. The pages may already hold blocks:
  // faulting in for writing keeps what they hold. Where the kernel cannot, pages are left to
  // their first touch.
  void faultInGrowth() {
#if defined(__GLIBC__) && defined(MADV_POPULATE_WRITE)
    uintptr_t const end = heapEnd();
    if (end > populatedTo_) {
      ::madvise(reinterpret_cast<void*>(populatedTo_), end - populatedTo_, MADV_POPULATE_WRITE);
    }
    populatedTo_ = end;  // a trimmed heap is looked at again from its new end
#endif
  }

  uint32_t steps_ = 0;
  uintptr_t populatedTo_ = 0;
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

}  // namespace

int runScript(Script const& script, Sim& sim) {
  // Where the error that no `expect error` took was raised.
  std::optional<std::pair<uint32_t, uint32_t>> errorAt;
  std::string readError;
  HeapHousekeeping housekeeping;
  bool const read = script.forEachStep(
      [&](Step const& step) {
        if (sim.pendingError() && !step.checksError) return false;
        sim.locationIs(script.fileName(step.file), step.line);
        bool const hadError = sim.pendingError().has_value();
        execute(step, sim);
        if (sim.failed()) return false;
        if (!hadError && sim.pendingError()) errorAt = {step.file, step.line};
        housekeeping.afterStep();
        return true;
      },
      readError);
  housekeeping.giveBackIfMostlyFree();
  if (sim.failed()) return reportFailure(sim);
  if (!read) {
    sim.out().flush();
    sim.err() << "noxsim: " << readError << '\n';
    return exitFailed;
  }
  if (sim.pendingError()) {
    sim.locationIs(script.fileName(errorAt->first), errorAt->second);
    sim.fail(cat("unexpected error: ", *sim.pendingError(),
                 "\n(a command that raises an error is followed by `expect error TEXT`)"));
    return reportFailure(sim);
  }
  return exitOk;
}

namespace {

// The process's own gauges, under the names the usual process collector gives them, taken at
// the end of the run with the agent still up: what its state holds in memory after the
// scenario (after its deletions, say), the most it ever held, and the CPU time of the run.
std::string processMetrics() {
  std::ostringstream text;
  rusage usage{};
  if (::getrusage(RUSAGE_SELF, &usage) == 0) {
    double const cpu = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    text << "# HELP process_cpu_seconds_total user and system CPU time of the run\n"
         << "# TYPE process_cpu_seconds_total counter\nprocess_cpu_seconds_total " << cpu << '\n'
         << "# HELP process_resident_memory_max_bytes the most resident memory of the run\n"
         << "# TYPE process_resident_memory_max_bytes gauge\nprocess_resident_memory_max_bytes "
         << uint64_t(usage.ru_maxrss) * 1024 << '\n';
  }
  // Linux keeps the current size in pages, resident second; elsewhere the gauge is left out.
  std::ifstream statm("/proc/self/statm");
  uint64_t size = 0;
  uint64_t resident = 0;
  long const page = ::sysconf(_SC_PAGESIZE);
  if (statm >> size >> resident && page > 0) {
    text << "# HELP process_resident_memory_bytes resident memory at the end of the run\n"
         << "# TYPE process_resident_memory_bytes gauge\nprocess_resident_memory_bytes "
         << resident * uint64_t(page) << '\n';
  }
#ifdef __GLIBC__
  // What the allocator has handed out and not had back, with the large blocks collections map
  // for themselves: what the state itself holds, whatever free memory the allocator keeps
  // mapped.
  struct mallinfo2 const heap = ::mallinfo2();
  text << "# HELP noxsim_heap_in_use_bytes heap memory allocated and not freed at the end of the "
          "run, collections' own mappings included\n"
       << "# TYPE noxsim_heap_in_use_bytes gauge\nnoxsim_heap_in_use_bytes "
       << heap.uordblks + heap.hblkhd + Vel::mappedBytes() << '\n';
#endif
  return text.str();
}

// The counters as a scrape would see them, into a file of ours (see Trace::openPrivateFile).
bool writeMetrics(std::string const& path, std::ostream& err) {
  std::string const text = Trace::countersExposition() + processMetrics();
  try {
    int const fd = Trace::openPrivateFile(path);
    bool ok = ::ftruncate(fd, 0) == 0;
    for (std::size_t done = 0; ok && done < text.size();) {
      ssize_t const n = ::write(fd, text.data() + done, text.size() - done);
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) done += static_cast<std::size_t>(n);
    }
    ok = ::close(fd) == 0 && ok;
    if (!ok)
      err << "noxsim: --metrics: cannot write " << path << ": " << std::strerror(errno) << '\n';
    return ok;
  } catch (Vel::RangeException const& e) {
    err << "noxsim: --metrics: " << e.what() << '\n';
    return false;
  }
}

}  // namespace

int runMain(int argc, char const* const* argv, std::istream& in, std::ostream& out,
            std::ostream& err) {
  std::string error;
  Options const options = parseOptions(argc, argv, error);
  if (options.help) {
    out << usage();
    return exitOk;
  }
  if (!error.empty()) {
    err << "noxsim: " << error << '\n' << usage();
    return exitSyntax;
  }
  if (char const* size = std::getenv("NOX_FLECK_SIZE"); size && !Fleck::parseFileBytes(size)) {
    err << "noxsim: NOX_FLECK_SIZE: '" << size << "' is not a size from 64K to 64G\n";
    return exitSyntax;
  }
  // Published tables are built with the agent, after this.
  PublishedTables const published(options);

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
  std::unique_ptr<Sim> sim;
  try {
    sim = std::make_unique<Sim>(out, err, options.quiet);
  } catch (Vel::RangeException const& e) {
    // Tables that cannot be published (another writer, a name taken by someone else).
    err << "noxsim: " << e.what() << '\n';
    return exitFailed;
  }
  sim->traceTap().printLevelIs(options.traceLevel);
  int status = runScript(script, *sim);
  if (!options.metricsFile.empty() && !writeMetrics(options.metricsFile, err) && status == exitOk) {
    status = exitFailed;
  }
  out.flush();
  return status;
}

}  // namespace Noxsim
