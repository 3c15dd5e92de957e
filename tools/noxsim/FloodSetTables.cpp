// Tables of the MPLS flood path: the layer-2 RIB's flood sets, their filtered copy, the hardware
// configuration and status of flood sets, and the hardware information of vias.
//
// Empty members, which the inputs may hold (a flood set whose destinations were all deleted, a
// status entity whose configurations were deleted by hand), print as one line of their own
// (`nodest`, `nofloodset`, `noconfig`, `nostatus`) so that they can be seen and expected.

#include <sstream>

#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

std::string pairText(Bridging::MacVlanPair const& pair) {
  return cat(pair.vlanId().value(), " ", pair.macAddr().stringValue());
}

std::string configText(Nox::MplsDestConfig const& c) {
  std::ostringstream os;
  os << "tunnel=" << c.tunnelId().value() << " label=" << c.label().stringValue()
     << " hwTunnelId=" << c.hwTunnelId().value() << " hwId=" << c.hwIdForTunnelProgramming()
     << " l2Intf=" << c.l2IntfId().name();
  return os.str();
}

void printFloodSets(L2Rib::FloodSetOutput const& output, TableLines& lines) {
  lines.header.push_back(cat("source ", output.source()));
  for (auto [vlan, vlanFloodSet] : output.vlanFloodSetColl()) {
    std::string const vlanText = cat(vlan.value());
    if (vlanFloodSet->floodSets() == 0) lines.entries.push_back(cat(vlanText, " nofloodset"));
    for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) {
      std::string const setText = cat(vlanText, " ", mac.stringValue());
      std::string const typeText = cat(" type=", uint32_t(floodSet->floodSetType()));
      if (floodSet->destSets() == 0) lines.entries.push_back(cat(setText, " nodest", typeText));
      for (auto [dest, flag] : floodSet->destSetColl()) {
        lines.entries.push_back(
            cat(setText, " ", dest.stringValue(), flag ? " flag=true" : " flag=false", typeText));
      }
    }
  }
}

void printHwConfig(Sim& sim, TableLines& lines) {
  for (auto [pair, pairConfig] : sim.world().hwConfig->configColl()) {
    if (pairConfig->mplsDestConfigs() == 0)
      lines.entries.push_back(cat(pairText(pair), " noconfig"));
    for (auto [config, present] : pairConfig->mplsDestConfigColl()) {
      lines.entries.push_back(cat(pairText(pair), " ", configText(config)));
    }
  }
}

void printHwStatus(Sim& sim, TableLines& lines) {
  for (auto [pair, status] : sim.world().hwStatus->statusColl()) {
    if (status->mplsDestStatusColl().empty())
      lines.entries.push_back(cat(pairText(pair), " nostatus"));
    for (auto [config, value] : status->mplsDestStatusColl()) {
      lines.entries.push_back(
          cat(pairText(pair), " ", configText(config), " status=", Nox::stringValue(value)));
    }
  }
}

void printHwInfo(Sim& sim, TableLines& lines) {
  for (auto [via, info] : sim.world().hwInfo->mappingColl()) {
    lines.entries.push_back(
        cat("tunnel=", via.tunnelId().value(), " label=", via.label().stringValue(),
            " hwId=", info.hwIdForTunnelProgramming(), " l2Intf=", info.l2IntfId().name()));
  }
}

}  // namespace

std::vector<TableEntry> floodSetTables() {
  return {
      {"floodset", [](Sim& s, TableLines& l) { printFloodSets(*s.world().l2ribFloodSets, l); }},
      {"floodset-filtered",
       [](Sim& s, TableLines& l) { printFloodSets(*s.world().filteredFloodSets, l); }},
      {"hwconfig", printHwConfig},
      {"hwstatus", printHwStatus},
      {"hwinfo", printHwInfo},
  };
}

}  // namespace Noxsim
