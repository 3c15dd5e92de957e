// Tables of the ESI filtering decap path: the port maps decap programmed, the LFIB hardware
// status, the LFIB (routes, via sets, filter vias), its backlog, the decap helper stub's
// attributes, and the LFIB itself.

#include <sstream>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

std::string streamed(Mpls::LfibViaSet const& viaSet) {
  std::ostringstream os;
  os << viaSet;
  return os.str();
}

std::string labelText(Mpls::RouteKey const& key) { return key.label().stringValue(); }

void printDecap(Sim& sim, TableLines& lines) {
  auto const* machine = sim.machine(machineIndex("decap"));
  if (!machine) return;
  auto const& sm = static_cast<Nox::EsiFilteringDecapSm const&>(*machine);
  for (auto [key, via] : sm.routeEsiFilterViaColl()) {
    lines.entries.push_back(cat("route ", labelText(key), " intf=", via.intfId().name()));
  }
}

void printLfib(Sim& sim, TableLines& lines) {
  Mpls::LfibStatus const& lfib = *sim.world().lfib;
  for (auto const& entry : lfib.routeColl()) {
    lines.entries.push_back(
        cat("route ", labelText(entry.key), " viaset=", entry.value.viaSetKey().value()));
  }
  for (auto const& entry : lfib.viaSetColl()) {
    lines.entries.push_back(cat("viaset ", entry.key.value(), " ", streamed(entry.value)));
  }
  for (auto const& entry : lfib.evpnEthernetSegmentFilterViaColl()) {
    lines.entries.push_back(
        cat("esfilter ", valueToStrep(entry.key), " intf=", entry.value.intfId().name()));
  }
}

void printHwStatus(Sim& sim, TableLines& lines) {
  for (auto const& entry : sim.world().lfibHwStatus->unprogrammedRouteColl()) {
    lines.entries.push_back(
        cat("unprogrammed ", labelText(entry.key), " reason=", uint32_t(entry.value)));
  }
}

void printBacklog(Sim& sim, TableLines& lines) {
  for (auto const& entry : sim.world().lfibTracking->routeKeyBacklogColl()) {
    lines.entries.push_back(labelText(entry.key));
  }
}

// In declaration order, as the stub lists its attributes.
void printHelper(Sim& sim, TableLines& lines) {
  DecapHelper const& h = *sim.world().decapHelper;
  lines.entries = {
      cat("createEsiPortMapRc=", uint32_t(h.createEsiPortMapRc())),
      cat("createEsiPortMapCount=", h.createEsiPortMapCount()),
      cat("createEsiPortMapLabel=", h.createEsiPortMapLabel().stringValue()),
      cat("createEsiPortMapIntfId=", h.createEsiPortMapIntfId().name()),
      cat("deleteEsiPortMapCount=", h.deleteEsiPortMapCount()),
      cat("deleteEsiPortMapLabel=", h.deleteEsiPortMapLabel().stringValue()),
      cat("deleteEsiPortMapIntfId=", h.deleteEsiPortMapIntfId().name()),
  };
}

}  // namespace

std::vector<TableEntry> decapTables() {
  return {
      {"decap", printDecap},
      {"lfib", printLfib},
      {"lfib-hwstatus", printHwStatus},
      {"lfib-backlog", printBacklog},
      {"helper decap", printHelper, false},
  };
}

}  // namespace Noxsim
