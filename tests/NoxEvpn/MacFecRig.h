#pragma once

// Everything the MAC-address FEC machine is wired to, with short writers for the RIB's tables,
// an emulated FEC programmer and the FEC tables rendered as noxsim shows them.

#include <initializer_list>
#include <set>
#include <string>

#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "platform/cog/Clock.h"
#include "platform/cog/TaskScheduler.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"

namespace NoxTest {

inline L2Rib::ObjTuple labelTuple(uint64_t id) { return {id, L2Rib::tableTypeLabel_}; }
inline L2Rib::ObjTuple lbTuple(uint64_t id) { return {id, L2Rib::tableTypeLoadBalance_}; }
inline L2Rib::ObjTuple destTuple(uint64_t id) { return {id, L2Rib::tableTypeDest_}; }
inline Bridging::MacVlanPair hostKey(uint64_t mac) {
  return {Gantry::EthAddr::fromValue(mac), Bridging::VlanId(10)};
}
inline Nox::FecId macFecId(uint64_t number) { return Nox::FecId(8, number); }

// A FEC request table as noxsim shows it: `fec FECID via[K] ...` (` novia` when it has none),
// `objtuple TUPLE fec=FECID` and `request FECID` lines.
inline std::set<std::string> fecTableLines(Nox::FecIdToHwFecIdRequest const& requests) {
  std::set<std::string> lines;
  for (auto const& entry : requests.fecColl()) {
    lines.insert(text("fec ", entry.value, entry.value.vias() == 0 ? " novia" : ""));
  }
  for (auto const& entry : requests.objTupleToFecIdColl()) {
    lines.insert(text("objtuple ", entry.key, " fec=", entry.value.fecId()));
  }
  for (auto const& entry : requests.hwFecIdRequestColl()) lines.insert(text("request ", entry.key));
  return lines;
}

struct MacFecRig {
  using Lines = std::set<std::string>;

  void start() {
    sm = Nox::noxMacAddrFecRequestSmFactory(labels, lbs, dests, responses, hosts, requests, hwIds,
                                            scheduler->timerWheel(), scheduler);
  }
  // Starts and lets the start-up review run.
  void startReviewed() {
    start();
    advance(0.5);
  }
  void advance(double seconds) {
    scheduler->advanceBy(seconds);
    settle();
  }
  // What the agent does after every change: ready tasks, then the programmer's answers.
  void settle() {
    scheduler->runReady();
    if (programmerOn) program();
  }

  // Answers every request without a response (hardware FEC id 100000 + number) and withdraws
  // the responses whose request is gone.
  void program() {
    for (auto const& entry : requests->hwFecIdRequestColl()) {
      if (responses->hwFecIdIsMemberOf(entry.key)) continue;
      responses->hwFecIdIs(Nox::FecToHwFecId(entry.key, 100000 + entry.key.number()));
    }
    std::vector<Nox::FecId> gone;
    for (auto const& entry : responses->hwFecIdColl()) {
      if (!requests->hwFecIdRequestIsMemberOf(entry.key)) gone.push_back(entry.key);
    }
    for (Nox::FecId const& fecId : gone) responses->hwFecIdDel(fecId);
  }

  void dest(uint64_t id, uint64_t tunnel) {
    L2Rib::DestId const destId(id);
    dests->destIs(
        destId, L2Rib::Dest::tunnel(destId, Gantry::IntfId(Gantry::IntfId::Kind::tunnel, tunnel)));
    settle();
  }
  void destDel(uint64_t id) {
    dests->destDel(L2Rib::DestId(id));
    settle();
  }
  void label(uint64_t id, uint32_t mplsLabel, L2Rib::ObjTuple next) {
    L2Rib::Label const value(Gantry::MplsLabel(mplsLabel), next);
    labels->labelIs(L2Rib::LabelId(id), L2Rib::LabelAndSource(value));
    settle();
  }
  void labelDel(uint64_t id) {
    labels->labelDel(L2Rib::LabelId(id));
    settle();
  }
  void lb(uint64_t id, std::initializer_list<L2Rib::ObjTuple> nexts) {
    L2Rib::LoadBalance value;
    for (L2Rib::ObjTuple const& next : nexts) value.nextAdd(next);
    lbs->loadBalanceIs(L2Rib::LoadBalanceId(id), value);
    settle();
  }
  void lbDel(uint64_t id) {
    lbs->loadBalanceDel(L2Rib::LoadBalanceId(id));
    settle();
  }
  void host(uint64_t mac, L2Rib::ObjTuple tuple) {
    hosts->hostIs(hostKey(mac), L2Rib::HostAndSource(tuple));
    settle();
  }
  void hostDel(uint64_t mac) {
    hosts->hostDel(hostKey(mac));
    settle();
  }

  Lines fecLines() const { return fecTableLines(*requests); }
  Lines hwIdLines() const {
    Lines lines;
    for (auto const& entry : hwIds->hwIdColl())
      lines.insert(text(entry.key, " hwId=", entry.value));
    return lines;
  }

  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<L2Rib::LabelOutput> labels = L2Rib::labelOutputFactory("labels");
  Vel::Ptr<L2Rib::LoadBalanceOutput> lbs = L2Rib::loadBalanceOutputFactory("lbs");
  Vel::Ptr<L2Rib::DestOutput> dests = L2Rib::destOutputFactory("dests");
  Vel::Ptr<L2Rib::HostOutput> hosts = L2Rib::hostOutputFactory("hosts");
  Vel::Ptr<Nox::FecIdToHwFecIdResponse> responses = Nox::fecIdToHwFecIdResponseFactory("resp");
  Vel::Ptr<Nox::FecIdToHwFecIdRequest> requests = Nox::fecIdToHwFecIdRequestFactory("req");
  Vel::Ptr<Nox::ObjTupleToHwId> hwIds = Nox::objTupleToHwIdFactory("hwIds");
  Vel::Ptr<Nox::NoxMacAddrFecRequestSm> sm;
  bool programmerOn = false;
};

}  // namespace NoxTest
