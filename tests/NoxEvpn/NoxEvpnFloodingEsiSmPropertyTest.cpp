// Random interleavings of segment, designated-forwarder, label and port-channel changes with
// refused ESI data, exhausted hardware tunnel ids and reviews, checked after every step against
// what the inputs say hardware and the tunnel-id table must hold.

#include <gtest/gtest.h>

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

#include <array>

#include "tests/NoxEvpn/FloodingTestUtil.h"
#include "tests/NoxEvpn/VerifyUtil.h"

// Named as well: suites are compiled several files to a unit, and the flooding property
// tests share helper names.
namespace EsiProperty {
namespace {

using NoxTest::FloodingWorld;
using NoxTest::PortVlan;

std::array<char const*, 4> const segments = {"Ethernet1", "Ethernet2", "Port-Channel1",
                                             "Port-Channel2"};
// Each port-channel draws its members from its own ports, so no port serves two segments.
std::array<std::array<char const*, 3>, 2> const lagPorts = {
    {{"Ethernet10", "Ethernet11", "Ethernet12"}, {"Ethernet20", "Ethernet21", "Ethernet22"}}};

enum Op {
  segmentAdd,
  segmentDel,
  dfSet,
  dfDel,
  labelSet,
  labelDel,
  lagSet,
  lagDel,
  helperRc,
  exhaustion,
  review,
  opCount
};

void apply(FloodingWorld& w, int op, int a, int b, int c) {
  std::string const intf = segments[a % segments.size()];
  uint16_t const vlan = uint16_t(1 + b % 4);
  uint64_t const tep = uint64_t(1 + c % 3);
  switch (op) {
    case segmentAdd:
      w.segment(intf);
      break;
    case segmentDel:
      w.evpn->segmentStatusDel(Gantry::IntfId(intf));
      break;
    case dfSet:
      w.dfIs(intf, vlan, tep);
      break;
    case dfDel:
      w.dfDel(intf, vlan);
      break;
    case labelSet:
      w.labelIs(intf, tep, uint32_t(100 + b % 3),
                c % 5 == 0 ? Evpn::EncapType::vxlan : Evpn::EncapType::mpls);
      break;
    case labelDel:
      w.segment(intf)->remoteEsiLabelDel(FloodingWorld::tepOf(tep));
      break;
    case lagSet: {
      std::vector<std::string> ports;
      for (std::size_t i = 0; i < 3; ++i) {
        if (b & (1 << i)) ports.push_back(lagPorts[a % 2][i]);
      }
      w.lag(a % 2 ? "Port-Channel2" : "Port-Channel1", ports);
      break;
    }
    case lagDel:
      w.ncsd->lagToPortDel(Gantry::IntfId(a % 2 ? "Port-Channel2" : "Port-Channel1"));
      break;
    case helperRc:
      w.helper->createEsiDataRcIs(c % 2 ? Nox::notProgrammed : Nox::programmed);
      break;
    case exhaustion:
      w.helper->hwTunnelIdExhaustedIs(c % 2 == 1);
      break;
    case review:
      w.advance(5.0);
      break;
  }
  w.scheduler->runReady();
}

std::vector<Gantry::IntfId> physicalPorts(FloodingWorld const& w, Gantry::IntfId const& intf) {
  if (!Nox::isLag(intf)) return {intf};
  auto const members = w.ncsd->lagToPortColl().find(intf);
  return members ? members->portColl() : std::vector<Gantry::IntfId>();
}

// What the inputs say: per designated-forwarder tunnel in use, and per (port, VLAN) that may
// carry ESI data, its tunnel and label (the label only when the tep advertised an MPLS one).
struct Expected {
  std::set<uint64_t> tunnels;
  std::map<PortVlan, std::pair<uint64_t, std::optional<uint32_t>>> ports;
};

Expected expected(FloodingWorld const& w) {
  Expected e;
  for (auto [intf, segment] : w.evpn->segmentStatusColl()) {
    for (auto [vlan, tep] : segment->designatedForwarderTepColl()) {
      uint64_t const tunnel = tep.number();
      e.tunnels.insert(tunnel);
      auto const label = segment->remoteEsiLabelColl().find(tep);
      std::optional<uint32_t> mpls;
      if (label && label->isMpls()) mpls = label->mplsLabel().value();
      for (Gantry::IntfId const& port : physicalPorts(w, intf)) {
        e.ports[{port.name(), vlan.value()}] = {tunnel, mpls};
      }
    }
  }
  return e;
}

void checkInvariants(FloodingWorld const& w, Nox::EvpnFloodingEsiSm const& sm) {
  Expected const e = expected(w);
  std::map<uint64_t, uint32_t> published;
  std::set<uint32_t> hwIds;
  for (auto const& entry : w.tunnels->tunnelIdToHwTunnelIdColl()) {
    published[entry.value.key().value()] = entry.value.hwTunnelId().value();
    RC_ASSERT(hwIds.insert(entry.value.hwTunnelId().value()).second);
  }
  for (uint64_t tunnel : e.tunnels) {
    bool const waiting = sm.unprogrammedTunnelIsMemberOf(Nox::TunnelId(tunnel));
    RC_ASSERT(published.count(tunnel) + (waiting ? 1u : 0u) == 1u);
  }
  for (auto const& [tunnel, hwId] : published) RC_ASSERT(e.tunnels.count(tunnel) == 1u);
  // Every id taken is published or given back, and nothing is given back twice.
  RC_ASSERT(w.helper->heldIds == hwIds);
  RC_ASSERT(w.helper->releaseHwTunnelIdCount() <= w.helper->getHwTunnelIdCount());

  for (auto const& [key, data] : w.helper->esiData) {
    auto const want = e.ports.find(key);
    RC_ASSERT(want != e.ports.end());
    RC_ASSERT(data.tunnel == want->second.first);
    RC_ASSERT(want->second.second == std::optional<uint32_t>(data.label));
    RC_ASSERT(published.at(data.tunnel) == data.hwTunnelId);
  }
}

// Once failures stop, hardware holds ESI data for every port the inputs give an MPLS label.
void settleAndCheck(FloodingWorld& w, Nox::EvpnFloodingEsiSm const& sm) {
  w.helper->createEsiDataRcIs(Nox::programmed);
  w.helper->hwTunnelIdExhaustedIs(false);
  for (int i = 0; i < 100 && sm.reviewUnprogrammed()->taskScheduled(); ++i) w.advance(5.0);
  checkInvariants(w, sm);
  for (auto const& [key, data] : expected(w).ports) {
    if (data.second) RC_ASSERT(w.helper->esiData.count(key) == 1u);
  }
}

RC_GTEST_PROP(EsiSmProperty, HardwareAndTableFollowTheInputsThroughFailures, ()) {
  auto const steps = *rc::gen::container<std::vector<std::array<int, 4>>>(rc::gen::apply(
      [](int op, int a, int b, int c) {
        return std::array<int, 4>{op, a, b, c};
      },
      rc::gen::inRange(0, int(opCount)), rc::gen::inRange(0, 8), rc::gen::inRange(0, 8),
      rc::gen::inRange(0, 16)));
  auto const quantum = *rc::gen::element<std::uint64_t>(0, 1, 2, 5);

  FloodingWorld w;
  w.scheduler->yieldPolicyIs(Vel::Ptr<Cog::YieldPolicy>(new Cog::WorkQuantumYield(quantum)));
  auto sm = w.startEsi();
  Nox::Verifier verifier;
  for (auto const& [op, a, b, c] : steps) {
    apply(w, op, a, b, c);
    checkInvariants(w, *sm);
    // Compared once the step's work is done, as the agent's loop would leave it.
    while (w.scheduler->runReady() != 0) {
    }
    NoxTest::requireVerified(verifier.esi(*sm));
  }
  settleAndCheck(w, *sm);

  // A machine built afresh over the same inputs programs the same.
  FloodingWorld fresh;
  fresh.evpn = w.evpn;
  fresh.ncsd = w.ncsd;
  auto freshSm = fresh.startEsi();
  settleAndCheck(fresh, *freshSm);
}

}  // namespace
}  // namespace EsiProperty
#endif
