// The ESI, dot1q and decap machines in one simulated agent, driven by random noxsim commands:
// segments, designated forwarders, ESI labels, dot1q tags, port-channel members, VLAN members,
// LFIB routes, via sets and filter vias, helpers that fail and recover, time for the reviews, and
// machines stopped and started again. After every command each running machine publishes what
// a fresh build of it over the same inputs publishes, but for the differences the verification
// explains.

#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <sstream>
#include <string>

#include "tests/tools/noxsim/RunOutcome.h"
#include "tools/noxsim/VerifyCommands.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

#include "tests/NoxEvpn/VerifyUtil.h"

namespace {

struct FloodingOp {
  int kind;
  int a;
  int b;
  int c;
  bool flag;
};

void showValue(FloodingOp const& op, std::ostream& os) {
  os << "{kind " << op.kind << " a " << op.a << " b " << op.b << " c " << op.c
     << (op.flag ? " on" : " off") << "}";
}

std::string lag(int n) { return "Port-Channel" + std::to_string(n); }
std::string port(int n) { return "Ethernet" + std::to_string(n); }
std::string tep(int n) { return "Tunnel" + std::to_string(n); }
std::string vlan(int n) { return std::to_string(10 * n); }

// One noxsim command of the op. The names are few, so that commands meet each other's state.
std::string command(FloodingOp const& op) {
  static char const* const floodingRc[] = {"programmed", "notProgrammed", "invalidHwId"};
  static int const decapRc[] = {0, 2, 3, 7};
  switch (op.kind) {
    case 0:
      return op.flag ? "evpn df set " + lag(op.a) + " " + vlan(op.b) + " " + tep(op.c)
                     : "evpn df del " + lag(op.a) + " " + vlan(op.b);
    case 1:
      return op.flag ? "evpn esilabel set " + lag(op.a) + " " + tep(op.c) + " " +
                           std::to_string(1000 + op.b)
                     : "evpn esilabel del " + lag(op.a) + " " + tep(op.c);
    case 2:
      return op.flag ? "evpn dot1q set " + vlan(op.b) + " " + std::to_string(100 + op.c)
                     : "evpn dot1q del " + vlan(op.b);
    case 3:
      return op.flag ? "lag set " + lag(op.a) + " " + port(op.b) + " " + port(op.c)
                     : "lag del " + lag(op.a);
    case 4:
      return std::string(op.flag ? "vlan intf add " : "vlan intf del ") + vlan(op.b) + " " +
             lag(op.a);
    case 5:
      return op.flag ? "evpn segment add " + lag(op.a) : "evpn segment del " + lag(op.a);
    case 6:
      // The ESI helper has no hardware id to refuse: invalidHwId is its caller's error.
      return std::string("helper flooding set createEsiDataRc=") + floodingRc[op.b % 2] +
             " createVlanToDot1qRc=" + floodingRc[op.c % 3] +
             " hwTunnelIdExhausted=" + (op.flag && op.a == 1 ? "true" : "false");
    case 7:
      return "helper decap set createEsiPortMapRc=" + std::to_string(decapRc[op.b % 4]);
    case 8:
      return op.flag ? "lfib route set " + std::to_string(1000 + op.a) +
                           " viaset=" + std::to_string(op.b)
                     : "lfib route del " + std::to_string(1000 + op.a);
    case 9:
      // The first via decides: a filter via, or another type that the machine skips.
      return op.flag ? "lfib viaset set " + std::to_string(op.b) + " " +
                           (op.c == 3 ? "5/1 6/1" : "6/" + std::to_string(op.c))
                     : "lfib viaset del " + std::to_string(op.b);
    case 10:
      return op.flag ? "lfib esfilter set 6/" + std::to_string(op.c) + " " + port(op.a)
                     : "lfib esfilter del 6/" + std::to_string(op.c);
    default:
      return "advance " + std::to_string(op.flag ? 10 : 3);
  }
}

constexpr int machineOp = 12;
char const* const machines[] = {"esi", "dot1q", "decap"};

rc::Gen<FloodingOp> genFloodingOp() {
  // At full size every kind and name is as likely as another; a small size would keep to the
  // first few.
  return rc::gen::resize(
      100, rc::gen::construct<FloodingOp>(rc::gen::inRange(0, machineOp + 1),
                                          rc::gen::inRange(1, 3), rc::gen::inRange(1, 4),
                                          rc::gen::inRange(1, 4), rc::gen::arbitrary<bool>()));
}

class Agent {
 public:
  Agent() { run("start esi dot1q decap\nhwagent auto on\n"); }

  void run(std::string const& text) { RC_ASSERT(Noxsim::runText(sim_, scripts_, text) == ""); }

  // A machine op stops a running machine or restarts it, and starts a stopped one; the others
  // are plain commands.
  void apply(FloodingOp const& op) {
    if (op.kind != machineOp) {
      RC_LOG() << command(op) << "\n";
      run(command(op) + "\n");
      return;
    }
    std::string const machine = machines[op.b % 3];
    bool const stopped = stopped_.count(machine) != 0;
    std::string const line = (stopped ? "start " : op.flag ? "restart " : "stop ") + machine;
    if (stopped) {
      stopped_.erase(machine);
    } else if (!op.flag) {
      stopped_.insert(machine);
    }
    RC_LOG() << line << "\n";
    run(line + "\n");
  }

  // Every running machine; a stopped one keeps what it last wrote, which nothing fresh stands for.
  void verify() {
    auto const found = Noxsim::verifyMachines(sim_, verifier_);
    RC_ASSERT(found.has_value());
    NoxTest::requireVerified(*found);
  }

 private:
  std::set<std::string> stopped_;
  std::deque<Noxsim::Script> scripts_;
  std::ostringstream out_;
  std::ostringstream err_;
  Noxsim::Sim sim_{out_, err_, true};
  Nox::Verifier verifier_;
};

RC_GTEST_PROP(FloodingVerify, EsiDot1qAndDecapAgreeWithAFreshBuildAfterEveryCommand, ()) {
  auto const ops = *rc::gen::container<std::vector<FloodingOp>>(genFloodingOp());
  Agent agent;
  for (FloodingOp const& op : ops) {
    agent.apply(op);
    agent.verify();
  }
}

}  // namespace

#endif
