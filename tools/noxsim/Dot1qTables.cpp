// The `dot1q` table: what the running dot1q machine holds. Its collections live and die with
// the machine, so the table is empty while the machine is stopped.

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "tools/noxsim/IntfVlanText.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

void printStatus(Nox::IntfVlanKey const& pair, Nox::IntfVlanStatus const& status,
                 TableLines& lines) {
  if (status.programmeds() != 0) {
    lines.entries.push_back(
        cat("status ", intfVlanText(pair), " programmed=", portsText(status.programmedColl())));
  }
  if (status.unprogrammeds() != 0) {
    lines.entries.push_back(
        cat("status ", intfVlanText(pair), " unprogrammed=", portsText(status.unprogrammedColl())));
  }
}

void printDot1q(Sim& sim, TableLines& lines) {
  auto const* sm = static_cast<Nox::EvpnFloodingDot1qSm const*>(sim.machine("dot1q"));
  if (!sm) return;
  for (auto [pair, dot1q] : sm->intfVlanDot1qColl()) {
    lines.entries.push_back(cat(intfVlanText(pair), " dot1q=", dot1q.value()));
  }
  for (auto [pair, status] : sm->dot1qStatusColl()) printStatus(pair, *status, lines);
  for (auto [pair, waiting] : sm->unprogrammedDot1qColl()) {
    lines.entries.push_back(cat("unprogrammedDot1q ", intfVlanText(pair)));
  }
}

}  // namespace

std::vector<TableEntry> dot1qTables() { return {{"dot1q", printDot1q}}; }

}  // namespace Noxsim
