// Commands of the EVPN status and the agent's common data (ethernet segments, designated
// forwarders, ESI labels, VLAN-to-dot1q tags, port-channel members), and the flooding helper
// stub's steering attributes.

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

Evpn::EvpnStatus& evpn(Sim& sim) { return *sim.world().evpnStatus; }

Vel::Ptr<Evpn::EthernetSegmentStatus> segmentIfAny(Sim& sim, Gantry::IntfId intf) {
  return evpn(sim).segmentStatus(intf);
}

// A tep is a dynamic tunnel interface.
Gantry::IntfId tep(Args& a, std::size_t i) {
  Gantry::IntfId const intf = a.intf(i);
  if (a.ok() && intf.kind() != Gantry::IntfId::Kind::tunnel) {
    a.fail(cat("bad tep interface '", a.word(i), "' (TunnelN)"));
  }
  return intf;
}

Action parseSegmentAdd(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const intf = in.args.intf(0);
  return [=](Sim& sim) { evpn(sim).segmentStatusIs(intf); };
}

Action parseSegmentDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const intf = in.args.intf(0);
  return [=](Sim& sim) { evpn(sim).segmentStatusDel(intf); };
}

Action parseDfSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const intf = a.intf(0);
  auto const vlan = a.vlan(1);
  auto const tepIntf = tep(a, 2);
  return
      [=](Sim& sim) { evpn(sim).segmentStatusIs(intf)->designatedForwarderTepIs(vlan, tepIntf); };
}

Action parseDfDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const intf = a.intf(0);
  auto const vlan = a.vlan(1);
  return [=](Sim& sim) {
    if (auto segment = segmentIfAny(sim, intf)) segment->designatedForwarderTepDel(vlan);
  };
}

Action parseEsiLabelSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const intf = a.intf(0);
  auto const tepIntf = tep(a, 1);
  auto const label = a.label(2);
  auto encap = Evpn::EncapType::mpls;
  if (auto const text = a.option("encap")) {
    if (*text == "vxlan") {
      encap = Evpn::EncapType::vxlan;
    } else if (*text != "mpls") {
      a.fail(cat("bad encap= value '", *text, "' (mpls or vxlan)"));
    }
  }
  Evpn::EncapTypeLabel const value(encap, label);
  return [=](Sim& sim) { evpn(sim).segmentStatusIs(intf)->remoteEsiLabelIs(tepIntf, value); };
}

Action parseEsiLabelDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const intf = a.intf(0);
  auto const tepIntf = tep(a, 1);
  return [=](Sim& sim) {
    if (auto segment = segmentIfAny(sim, intf)) segment->remoteEsiLabelDel(tepIntf);
  };
}

Action parseDot1qSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const vlan = a.vlan(0);
  auto const tag = Bridging::VlanIdOrNone(a.vlan(1));
  return [=](Sim& sim) { evpn(sim).vlanToDot1qIs(vlan, tag); };
}

Action parseDot1qDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const vlan = in.args.vlan(0);
  return [=](Sim& sim) { evpn(sim).vlanToDot1qDel(vlan); };
}

Action parseLagSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1, SIZE_MAX)) return {};
  auto const lag = a.intf(0);
  Nox::NoxPortList ports;
  for (std::size_t i = 1; i < a.count(); ++i) ports.portIs(a.intf(i));
  return [=](Sim& sim) { sim.world().ncsd->lagToPortIs(lag, ports); };
}

Action parseLagDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const lag = in.args.intf(0);
  return [=](Sim& sim) { sim.world().ncsd->lagToPortDel(lag); };
}

// helper flooding set ATTR=VALUE...: only the attributes that steer later calls.
Action parseFloodingSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(0)) return {};
  auto const esiRc = a.option("createEsiDataRc");
  auto const dot1qRc = a.option("createVlanToDot1qRc");
  auto const exhausted = a.option("hwTunnelIdExhausted");
  auto const index = a.option("hwTunnelIdIndex");
  if (!esiRc && !dot1qRc && !exhausted && !index) {
    a.fail(
        "takes ATTR=VALUE words: createEsiDataRc, createVlanToDot1qRc, hwTunnelIdExhausted, "
        "hwTunnelIdIndex");
    return {};
  }
  auto status = [&a](std::optional<std::string_view> text, std::string_view key) {
    std::optional<Nox::HwProgrammingStatus> value;
    if (!text) return value;
    value = parseStatus(*text);
    if (!value)
      a.fail(cat("bad ", key, "= value '", *text,
                 "' (programmed, notProgrammed, invalidHwId or a number)"));
    return value;
  };
  auto const esiStatus = status(esiRc, "createEsiDataRc");
  auto const dot1qStatus = status(dot1qRc, "createVlanToDot1qRc");
  std::optional<bool> exhaustedValue;
  if (exhausted && !(exhaustedValue = parseBool(*exhausted))) {
    a.fail(cat("bad hwTunnelIdExhausted= value '", *exhausted, "' (true or false)"));
  }
  std::optional<uint64_t> indexValue;
  if (index && !(indexValue = parseUnsigned(*index, UINT32_MAX))) {
    a.fail(cat("bad hwTunnelIdIndex= value '", *index, "' (0-", UINT32_MAX, ")"));
  }
  return [=](Sim& sim) {
    auto& stub = *sim.world().floodingHelper;
    if (esiStatus) stub.createEsiDataRcIs(*esiStatus);
    if (dot1qStatus) stub.createVlanToDot1qRcIs(*dot1qStatus);
    if (exhaustedValue) stub.hwTunnelIdExhaustedIs(*exhaustedValue);
    if (indexValue) stub.hwTunnelIdIndexIs(uint32_t(*indexValue));
  };
}

}  // namespace

std::vector<CommandEntry> evpnCommands() {
  return {
      {.words = "evpn segment add", .parse = parseSegmentAdd},
      {.words = "evpn segment del", .parse = parseSegmentDel},
      {.words = "evpn df set", .parse = parseDfSet},
      {.words = "evpn df del", .parse = parseDfDel},
      {.words = "evpn esilabel set", .parse = parseEsiLabelSet},
      {.words = "evpn esilabel del", .parse = parseEsiLabelDel},
      {.words = "evpn dot1q set", .parse = parseDot1qSet},
      {.words = "evpn dot1q del", .parse = parseDot1qDel},
      {.words = "lag set", .parse = parseLagSet},
      {.words = "lag del", .parse = parseLagDel},
      {.words = "helper flooding set", .parse = parseFloodingSet},
  };
}

}  // namespace Noxsim
