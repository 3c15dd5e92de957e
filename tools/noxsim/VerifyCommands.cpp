// `verify [MACHINE...]` and `expect verify [MACHINE...]`: each running machine checked against a
// fresh build of it over the current inputs (NoxEvpn/NoxEvpnVerify.h). `verify` prints the
// differences, one a line; `expect verify` fails unless every difference is an expected one.

#include <algorithm>
#include <functional>
#include <ostream>

#include "NoxEvpn/NoxEvpnVerify.h"
#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Text.h"
#include "tools/noxsim/VerifyCommands.h"

namespace Noxsim {

namespace {

using VerifyFn = std::function<std::vector<Nox::VerifyDifference>(Sim&, Nox::Verifier&,
                                                                  Vel::PtrInterface const&)>;

struct VerifyEntry {
  std::string_view machine;
  VerifyFn verify;
};

template <class Sm, std::vector<Nox::VerifyDifference> (Nox::Verifier::*verify)(Sm const&)>
VerifyFn of() {
  return [](Sim&, Nox::Verifier& verifier, Vel::PtrInterface const& m) {
    return (verifier.*verify)(static_cast<Sm const&>(m));
  };
}

std::vector<VerifyEntry> const& verifyTable() {
  static std::vector<VerifyEntry> const table = {
      {"filter", of<Nox::VlanFloodSetFilterSm, &Nox::Verifier::filter>()},
      {"floodset-fec", of<Nox::EvpnFloodSetFecSm, &Nox::Verifier::floodSetFec>()},
      {"floodset", of<Nox::EvpnVlanFloodSetSm, &Nox::Verifier::floodSet>()},
      {"esi", of<Nox::EvpnFloodingEsiSm, &Nox::Verifier::esi>()},
      {"dot1q", of<Nox::EvpnFloodingDot1qSm, &Nox::Verifier::dot1q>()},
      {"decap", of<Nox::EsiFilteringDecapSm, &Nox::Verifier::decap>()},
      {"macfec",
       [](Sim& sim, Nox::Verifier& verifier, Vel::PtrInterface const& m) {
         World const& w = sim.world();
         return verifier.macFec(
             static_cast<Nox::NoxMacAddrFecRequestSm const&>(m),
             {w.l2ribLabels, w.l2ribLbs, w.l2ribDests, w.macFecResponse, w.l2ribHosts});
       }},
  };
  return table;
}

VerifyEntry const* verifyEntry(std::string_view machine) {
  for (auto const& entry : verifyTable()) {
    if (entry.machine == machine) return &entry;
  }
  return nullptr;
}

std::string verifiableNames() {
  std::string names;
  for (auto const& entry : verifyTable()) names += cat(names.empty() ? "" : ", ", entry.machine);
  return names;
}

// The named machines (each must be running when the command runs), or every running one.
std::vector<std::string> verifyArgs(Args& a) {
  // Copies: the words die with the parse.
  std::vector<std::string> names;
  for (std::string_view name : a.positional()) {
    if (!verifyEntry(name)) {
      a.fail(cat("unknown machine '", name, "' (machines: ", verifiableNames(), ")"));
    } else if (std::find(names.begin(), names.end(), name) != names.end()) {
      a.fail(cat("machine '", name, "' named twice"));
    }
    names.emplace_back(name);
  }
  return names;
}

Action parseVerify(ParseInput& in) {
  auto const names = verifyArgs(in.args);
  return [names](Sim& sim) {
    auto const found = verifyMachines(sim, {names.begin(), names.end()});
    if (!found || sim.quiet()) return;
    for (auto const& d : *found) sim.out() << Nox::verifyDifferenceText(d) << '\n';
  };
}

Action parseExpectVerify(ParseInput& in) {
  auto const names = verifyArgs(in.args);
  return [names](Sim& sim) {
    auto const found = verifyMachines(sim, {names.begin(), names.end()});
    if (!found || !Nox::hasUnexpectedDifference(*found)) return;
    std::string message = "expect verify: the machines differ from a fresh build";
    for (auto const& d : *found) message += cat("\n  ", Nox::verifyDifferenceText(d));
    sim.fail(message);
  };
}

}  // namespace

std::optional<std::vector<Nox::VerifyDifference>> verifyMachines(
    Sim& sim, std::vector<std::string_view> const& names) {
  Nox::Verifier verifier;
  return verifyMachines(sim, verifier, names);
}

std::optional<std::vector<Nox::VerifyDifference>> verifyMachines(
    Sim& sim, Nox::Verifier& verifier, std::vector<std::string_view> const& names) {
  std::vector<Nox::VerifyDifference> all;
  for (auto const& entry : verifyTable()) {
    bool const named = std::find(names.begin(), names.end(), entry.machine) != names.end();
    if (!names.empty() && !named) continue;
    Vel::PtrInterface const* machine = sim.machine(entry.machine);
    if (!machine) {
      // A stopped machine's outputs keep what it wrote last; no fresh build stands for them.
      if (!named) continue;
      sim.fail(cat("verify: machine '", entry.machine, "' is not running"));
      return std::nullopt;
    }
    auto found = entry.verify(sim, verifier, *machine);
    all.insert(all.end(), found.begin(), found.end());
  }
  return all;
}

std::vector<CommandEntry> verifyCommands() {
  return {
      {.words = "verify", .parse = parseVerify},
      {.words = "expect verify", .parse = parseExpectVerify},
  };
}

}  // namespace Noxsim
