// Tables of the ESI flooding path: the running esi machine's programming state, the flooding
// helper stub's attributes, and the EVPN status and port-channel members it reads.

#include <sstream>

#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "tools/noxsim/IntfVlanText.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

Nox::EvpnFloodingEsiSm const* runningEsi(Sim& sim) {
  return static_cast<Nox::EvpnFloodingEsiSm const*>(sim.machine(machineIndex("esi")));
}

// Empty while the machine is stopped: its state went with it.
void printEsi(Sim& sim, TableLines& lines) {
  Nox::EvpnFloodingEsiSm const* esi = runningEsi(sim);
  if (!esi) return;
  for (auto [key, status] : esi->esiStatusColl()) {
    if (status->programmeds()) {
      lines.entries.push_back(
          cat("status ", intfVlanText(key), " programmed=", portsText(status->programmedColl())));
    }
    if (status->unprogrammeds()) {
      lines.entries.push_back(cat("status ", intfVlanText(key),
                                  " unprogrammed=", portsText(status->unprogrammedColl())));
    }
  }
  for (auto [key, flag] : esi->unprogrammedEsiColl()) {
    lines.entries.push_back(cat("unprogrammedEsi ", intfVlanText(key)));
  }
  for (auto [tunnel, flag] : esi->unprogrammedTunnelColl()) {
    lines.entries.push_back(cat("unprogrammedTunnel ", tunnel.value()));
  }
}

void printFloodingHelper(Sim& sim, TableLines& lines) {
  auto const& s = *sim.world().floodingHelper;
  auto status = [](Nox::HwProgrammingStatus v) { return Nox::stringValue(v); };
  auto flag = [](bool v) { return std::string(v ? "true" : "false"); };
  lines.entries = {
      cat("createVlanToDot1qIntfId=", s.createVlanToDot1qIntfId().name()),
      cat("createVlanToDot1qVlanId=", s.createVlanToDot1qVlanId().value()),
      cat("createVlanToDot1qDot1q=", s.createVlanToDot1qDot1q().value()),
      cat("createVlanToDot1qCount=", s.createVlanToDot1qCount()),
      cat("createVlanToDot1qRc=", status(s.createVlanToDot1qRc())),
      cat("deleteVlanToDot1qIntfId=", s.deleteVlanToDot1qIntfId().name()),
      cat("deleteVlanToDot1qVlanId=", s.deleteVlanToDot1qVlanId().value()),
      cat("deleteVlanToDot1qDot1q=", s.deleteVlanToDot1qDot1q().value()),
      cat("deleteVlanToDot1qCount=", s.deleteVlanToDot1qCount()),
      cat("createEsiDataIntfId=", s.createEsiDataIntfId().name()),
      cat("createEsiDataVlanId=", s.createEsiDataVlanId().value()),
      cat("createEsiDataTid=", s.createEsiDataTid().value()),
      cat("createEsiDataHwTid=", s.createEsiDataHwTid().value()),
      cat("createEsiDataLabel=", s.createEsiDataLabel().stringValue()),
      cat("createEsiDataCount=", s.createEsiDataCount()),
      cat("createEsiDataRc=", status(s.createEsiDataRc())),
      cat("deleteEsiDataIntfId=", s.deleteEsiDataIntfId().name()),
      cat("deleteEsiDataVlanId=", s.deleteEsiDataVlanId().value()),
      cat("deleteEsiDataCount=", s.deleteEsiDataCount()),
      cat("hwTunnelIdExhausted=", flag(s.hwTunnelIdExhausted())),
      cat("hwTunnelIdIndex=", s.hwTunnelIdIndex()),
      cat("getHwTunnelIdCount=", s.getHwTunnelIdCount()),
      cat("releaseHwTunnelIdHwTunnelId=", s.releaseHwTunnelIdHwTunnelId().value()),
      cat("releaseHwTunnelIdCount=", s.releaseHwTunnelIdCount()),
  };
}

void printEvpn(Sim& sim, TableLines& lines) {
  Evpn::EvpnStatus const& evpn = *sim.world().evpnStatus;
  for (auto [intf, segment] : evpn.segmentStatusColl()) {
    lines.entries.push_back(cat("segment ", intf.name()));
    for (auto [vlan, tep] : segment->designatedForwarderTepColl()) {
      lines.entries.push_back(cat("df ", intf.name(), " ", vlan.value(), " ", tep.name()));
    }
    for (auto [tep, label] : segment->remoteEsiLabelColl()) {
      std::ostringstream encap;
      encap << label.encapType();
      lines.entries.push_back(cat("esilabel ", intf.name(), " ", tep.name(), " ",
                                  label.mplsLabel().stringValue(), " encap=", encap.str()));
    }
  }
  for (auto [vlan, tag] : evpn.vlanToDot1qColl()) {
    lines.entries.push_back(cat("dot1q ", vlan.value(), " ", tag.value()));
  }
}

void printLags(Sim& sim, TableLines& lines) {
  for (auto [lag, ports] : sim.world().ncsd->lagToPortColl()) {
    std::string line = lag.name();
    for (Gantry::IntfId const& port : ports.portColl()) line += cat(" ", port.name());
    lines.entries.push_back(std::move(line));
  }
}

}  // namespace

std::vector<TableEntry> esiTables() {
  return {
      {"esi", printEsi},
      {"helper flooding", printFloodingHelper},
      {"evpn", printEvpn},
      {"lag", printLags},
  };
}

}  // namespace Noxsim
