#pragma once

// Self-verification of the machines: each function builds a fresh machine of one kind over the
// live machine's current inputs, with scratch outputs, a scratch scheduler and a recording helper
// stub that always succeeds, runs it until nothing more happens, and compares what it published
// with what the live machine publishes, member by member. Each difference names the machine, the
// table, the key and both values; a difference the live machine is allowed to have (an id
// allocated in another order, a port the review has not retried yet) is marked expected with its
// reason. docs/verify.md lists those cases.
//
// The comparison is for operators and tests: it copies every output, so it costs as much as a
// start of the machine and is not meant for the event loop's hot path.

#include <memory>
#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"
#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"
#include "NoxEvpn/NoxMacAddrFecRequestSm.h"

namespace Nox {

struct VerifyDifference {
  std::string machine;
  std::string table;
  std::string key;
  // The member's text on each side; empty where that side has no such member.
  std::string live;
  std::string fresh;
  bool expected = false;
  std::string reason;  // why an expected difference is expected
};

// "machine table key: live=... fresh=..." and, when expected, " (expected: reason)".
std::string verifyDifferenceText(VerifyDifference const& d);
// Whether any difference is not an expected one.
bool hasUnexpectedDifference(std::vector<VerifyDifference> const& differences);

// The MAC-address FEC machine does not keep its inputs where they can be read back: they are
// passed as they were given to its factory.
struct MacFecInputs {
  Vel::Ptr<L2Rib::LabelOutput const> labels;
  Vel::Ptr<L2Rib::LoadBalanceOutput const> lbs;
  Vel::Ptr<L2Rib::DestOutput const> dests;
  Vel::Ptr<FecIdToHwFecIdResponse const> fecResponse;
  Vel::Ptr<L2Rib::HostOutput const> hosts;
};

// Verifications that share their scratch tables: the tables a fresh machine writes (FEC
// requests and responses, hardware ids, the tunnel table, the LFIB backlog and hardware status)
// are made on first use and emptied before each later verification, so that a caller verifying
// after every step does not pay for making them each time. One verification at a time.
class Verifier {
 public:
  Verifier();
  ~Verifier();
  Verifier(Verifier const&) = delete;
  Verifier& operator=(Verifier const&) = delete;

  std::vector<VerifyDifference> filter(VlanFloodSetFilterSm const& live);
  std::vector<VerifyDifference> floodSet(EvpnVlanFloodSetSm const& live);
  std::vector<VerifyDifference> floodSetFec(EvpnFloodSetFecSm const& live);
  std::vector<VerifyDifference> esi(EvpnFloodingEsiSm const& live);
  std::vector<VerifyDifference> dot1q(EvpnFloodingDot1qSm const& live);
  std::vector<VerifyDifference> decap(EsiFilteringDecapSm const& live);
  std::vector<VerifyDifference> macFec(NoxMacAddrFecRequestSm const& live,
                                       MacFecInputs const& inputs);

 private:
  struct Tables;
  std::unique_ptr<Tables> tables_;
};

// One verification each, with scratch tables of its own.
std::vector<VerifyDifference> verifyFilter(VlanFloodSetFilterSm const& live);
std::vector<VerifyDifference> verifyFloodSet(EvpnVlanFloodSetSm const& live);
std::vector<VerifyDifference> verifyFloodSetFec(EvpnFloodSetFecSm const& live);
std::vector<VerifyDifference> verifyEsi(EvpnFloodingEsiSm const& live);
std::vector<VerifyDifference> verifyDot1q(EvpnFloodingDot1qSm const& live);
std::vector<VerifyDifference> verifyDecap(EsiFilteringDecapSm const& live);
std::vector<VerifyDifference> verifyMacFec(NoxMacAddrFecRequestSm const& live,
                                           MacFecInputs const& inputs);

}  // namespace Nox
