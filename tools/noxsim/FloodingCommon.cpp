// The flooding helper stub with its call log, port-channel membership (`lag set|del`), and the
// stub's settings and attributes (`helper flooding set`, `helper flooding`).

#include "tools/noxsim/FloodingCommon.h"

#include <sstream>

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

// Every id prints as its name; the empty id as nothing.
std::string intfText(Gantry::IntfId const& intf) {
  std::ostringstream os;
  os << intf;
  return os.str();
}

std::string statusText(Nox::HwProgrammingStatus status) { return Nox::stringValue(status); }

std::string boolText(bool value) { return value ? "true" : "false"; }

}  // namespace

// The call log.

Nox::HwProgrammingStatus FloodingStub::createVlanToDot1qMapping(Gantry::IntfId intfId,
                                                                Bridging::VlanId vlanId,
                                                                Bridging::VlanIdOrNone dot1q) {
  auto const rc = EvpnFloodingSmHelperStub::createVlanToDot1qMapping(intfId, vlanId, dot1q);
  calls_->push_back(cat("flooding createVlanToDot1qMapping intf=", intfText(intfId), " vlan=",
                        vlanId.value(), " dot1q=", dot1q.value(), " -> ", statusText(rc)));
  return rc;
}

void FloodingStub::deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                            Bridging::VlanIdOrNone dot1q) {
  EvpnFloodingSmHelperStub::deleteVlanToDot1qMapping(intfId, vlanId, dot1q);
  calls_->push_back(cat("flooding deleteVlanToDot1qMapping intf=", intfText(intfId),
                        " vlan=", vlanId.value(), " dot1q=", dot1q.value()));
}

Nox::HwProgrammingStatus FloodingStub::createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                     Tunnel::TunnelTable::TunnelId const& tunnelId,
                                                     Nox::HwTunnelId hwTunnelId,
                                                     Gantry::MplsLabel label) {
  auto const rc =
      EvpnFloodingSmHelperStub::createEsiData(intfId, vlanId, tunnelId, hwTunnelId, label);
  calls_->push_back(cat("flooding createEsiData intf=", intfText(intfId), " vlan=", vlanId.value(),
                        " tunnel=", tunnelId.value(), " hwTunnelId=", hwTunnelId.value(),
                        " label=", label.stringValue(), " -> ", statusText(rc)));
  return rc;
}

void FloodingStub::deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) {
  EvpnFloodingSmHelperStub::deleteEsiData(intfId, vlanId);
  calls_->push_back(
      cat("flooding deleteEsiData intf=", intfText(intfId), " vlan=", vlanId.value()));
}

Nox::HwTunnelId FloodingStub::getHwTunnelId() {
  auto const id = EvpnFloodingSmHelperStub::getHwTunnelId();
  calls_->push_back(cat("flooding getHwTunnelId -> ", id.value()));
  return id;
}

void FloodingStub::releaseHwTunnelId(Nox::HwTunnelId hwTunnelId) {
  EvpnFloodingSmHelperStub::releaseHwTunnelId(hwTunnelId);
  calls_->push_back(cat("flooding releaseHwTunnelId hwTunnelId=", hwTunnelId.value()));
}

Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> floodingStubFactory(std::vector<std::string>* calls) {
  return Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub>(new FloodingStub("flooding", calls));
}

namespace {

// Commands.

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

// The settings a scenario may steer, each applied when given.
struct FloodingSettings {
  std::optional<Nox::HwProgrammingStatus> createEsiDataRc;
  std::optional<Nox::HwProgrammingStatus> createVlanToDot1qRc;
  std::optional<bool> hwTunnelIdExhausted;
  std::optional<uint64_t> hwTunnelIdIndex;
};

template <class T>
std::optional<T> readSetting(Args& a, std::string_view key,
                             std::optional<T> (*parse)(std::string_view), std::string_view form) {
  auto const text = a.option(key);
  if (!text) return std::nullopt;
  auto value = parse(*text);
  if (!value) a.fail(cat("bad ", key, " '", *text, "' (expected ", form, ")"));
  return value;
}

std::optional<uint64_t> parseIndex(std::string_view text) {
  return parseUnsigned(text, UINT32_MAX);
}

Action parseHelperSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(0)) return {};
  FloodingSettings s;
  char const* statusForm = "programmed, notProgrammed, invalidHwId or a number";
  s.createEsiDataRc = readSetting(a, "createEsiDataRc", parseStatus, statusForm);
  s.createVlanToDot1qRc = readSetting(a, "createVlanToDot1qRc", parseStatus, statusForm);
  s.hwTunnelIdExhausted = readSetting(a, "hwTunnelIdExhausted", parseBool, "true or false");
  s.hwTunnelIdIndex = readSetting(a, "hwTunnelIdIndex", parseIndex, "0-4294967295");
  if (!a.optionsDone()) return {};
  return [s](Sim& sim) {
    auto& stub = *sim.world().floodingHelper;
    if (s.createEsiDataRc) stub.createEsiDataRcIs(*s.createEsiDataRc);
    if (s.createVlanToDot1qRc) stub.createVlanToDot1qRcIs(*s.createVlanToDot1qRc);
    if (s.hwTunnelIdExhausted) stub.hwTunnelIdExhaustedIs(*s.hwTunnelIdExhausted);
    if (s.hwTunnelIdIndex) stub.hwTunnelIdIndexIs(uint32_t(*s.hwTunnelIdIndex));
  };
}

// Tables.

void printFloodingHelper(Sim& sim, TableLines& lines) {
  auto const& s = *sim.world().floodingHelper;
  auto add = [&lines](std::string_view name, std::string const& value) {
    lines.entries.push_back(cat(name, "=", value));
  };
  add("createVlanToDot1qIntfId", intfText(s.createVlanToDot1qIntfId()));
  add("createVlanToDot1qVlanId", cat(s.createVlanToDot1qVlanId().value()));
  add("createVlanToDot1qDot1q", cat(s.createVlanToDot1qDot1q().value()));
  add("createVlanToDot1qCount", cat(s.createVlanToDot1qCount()));
  add("createVlanToDot1qRc", statusText(s.createVlanToDot1qRc()));
  add("deleteVlanToDot1qIntfId", intfText(s.deleteVlanToDot1qIntfId()));
  add("deleteVlanToDot1qVlanId", cat(s.deleteVlanToDot1qVlanId().value()));
  add("deleteVlanToDot1qDot1q", cat(s.deleteVlanToDot1qDot1q().value()));
  add("deleteVlanToDot1qCount", cat(s.deleteVlanToDot1qCount()));
  add("createEsiDataIntfId", intfText(s.createEsiDataIntfId()));
  add("createEsiDataVlanId", cat(s.createEsiDataVlanId().value()));
  add("createEsiDataTid", cat(s.createEsiDataTid().value()));
  add("createEsiDataHwTid", cat(s.createEsiDataHwTid().value()));
  add("createEsiDataLabel", s.createEsiDataLabel().stringValue());
  add("createEsiDataCount", cat(s.createEsiDataCount()));
  add("createEsiDataRc", statusText(s.createEsiDataRc()));
  add("deleteEsiDataIntfId", intfText(s.deleteEsiDataIntfId()));
  add("deleteEsiDataVlanId", cat(s.deleteEsiDataVlanId().value()));
  add("deleteEsiDataCount", cat(s.deleteEsiDataCount()));
  add("hwTunnelIdExhausted", boolText(s.hwTunnelIdExhausted()));
  add("hwTunnelIdIndex", cat(s.hwTunnelIdIndex()));
  add("getHwTunnelIdCount", cat(s.getHwTunnelIdCount()));
  add("releaseHwTunnelIdHwTunnelId", cat(s.releaseHwTunnelIdHwTunnelId().value()));
  add("releaseHwTunnelIdCount", cat(s.releaseHwTunnelIdCount()));
}

}  // namespace

std::vector<CommandEntry> floodingCommonCommands() {
  return {
      {.words = "lag set", .parse = parseLagSet},
      {.words = "lag del", .parse = parseLagDel},
      {.words = "helper flooding set", .parse = parseHelperSet},
  };
}

std::vector<TableEntry> floodingCommonTables() {
  return {{"helper flooding", printFloodingHelper}};
}

}  // namespace Noxsim
