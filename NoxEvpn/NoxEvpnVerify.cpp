#include "NoxEvpn/NoxEvpnVerify.h"

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "platform/vel/Value.h"

#include "platform/cog/Clock.h"

namespace Nox {

namespace {

using Vel::toStrep;

// One output as key -> member text; keys are sorted so that differences come out in a stable
// order.
using Rows = std::map<std::string, std::string>;
// Returns the reason when a difference of that key is one the live machine may have.
using ExpectedFn = std::function<std::optional<std::string>(
    std::string const& key, std::string const& live, std::string const& fresh)>;

void compareRows(std::string const& machine, std::string const& table, Rows const& live,
                 Rows const& fresh, ExpectedFn const& expected,
                 std::vector<VerifyDifference>& out) {
  auto report = [&](std::string const& key, std::string const& l, std::string const& f) {
    VerifyDifference d{machine, table, key, l, f, false, {}};
    if (expected) {
      if (auto reason = expected(key, l, f)) {
        d.expected = true;
        d.reason = std::move(*reason);
      }
    }
    out.push_back(std::move(d));
  };
  auto l = live.begin();
  auto f = fresh.begin();
  while (l != live.end() || f != fresh.end()) {
    if (f == fresh.end() || (l != live.end() && l->first < f->first)) {
      report(l->first, l->second, "");
      ++l;
    } else if (l == live.end() || f->first < l->first) {
      report(f->first, "", f->second);
      ++f;
    } else {
      if (l->second != f->second) report(l->first, l->second, f->second);
      ++l;
      ++f;
    }
  }
}

// The event thread of a fresh machine: its own clock, so that running it to completion moves
// no live timer.
struct Scratch {
  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};

  // Ready tasks first (yielding backlogs), then a few rounds of time for timers (reviews, holds);
  // a review that keeps failing would run forever, so the rounds are bounded.
  void settle() {
    for (int round = 0; round < 3; ++round) {
      while (scheduler->runReady() != 0) {
      }
      scheduler->advanceBy(10.0);
    }
    while (scheduler->runReady() != 0) {
    }
  }
};

// ---- Flood sets ----

Rows floodSetRows(L2Rib::FloodSetOutput const& output) {
  Rows rows;
  for (auto [vlan, vlanFloodSet] : output.vlanFloodSetColl()) {
    std::string const vlanText = toStrep(vlan.value());
    if (vlanFloodSet->floodSets() == 0) rows[vlanText] = "nofloodset";
    for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) {
      std::string const setText = vlanText + " " + mac.stringValue();
      std::string const type = "type=" + toStrep(uint32_t(floodSet->floodSetType()));
      if (floodSet->destSets() == 0) rows[setText] = "nodest " + type;
      for (auto [dest, flag] : floodSet->destSetColl()) {
        rows[setText + " " + dest.stringValue()] =
            std::string(flag ? "flag=true " : "flag=false ") + type;
      }
    }
  }
  return rows;
}

std::string pairText(Bridging::MacVlanPair const& pair) {
  return toStrep(pair.vlanId().value()) + " " + pair.macAddr().stringValue();
}

std::string viaText(MplsFloodSetVia const& via) {
  return "tunnel=" + toStrep(via.tunnelId().value()) + " label=" + via.label().stringValue();
}

std::string configText(MplsDestConfig const& c) {
  return "hwTunnelId=" + toStrep(c.hwTunnelId().value()) +
         " hwId=" + toStrep(c.hwIdForTunnelProgramming()) + " l2Intf=" + c.l2IntfId().name();
}

Rows hwConfigRows(EvpnVlanFloodSetHwConfig const& config) {
  Rows rows;
  for (auto [pair, pairConfig] : config.configColl()) {
    if (pairConfig->mplsDestConfigs() == 0) rows[pairText(pair)] = "noconfig";
    for (auto [dest, present] : pairConfig->mplsDestConfigColl()) {
      rows[pairText(pair) + " " + viaText(dest.via())] = configText(dest);
    }
  }
  return rows;
}

Rows hwInfoRows(HwInfoMapping const& hwInfo) {
  Rows rows;
  for (auto [via, info] : hwInfo.mappingColl()) {
    rows[viaText(via)] =
        "hwId=" + toStrep(info.hwIdForTunnelProgramming()) + " l2Intf=" + info.l2IntfId().name();
  }
  return rows;
}

// ---- FEC requests ----

// The FEC requests by what they ask for rather than by FEC id, which is allocated: a FEC named
// by the tuple that maps to it, or else by its own vias, with every FEC id a via refers to
// replaced by that FEC's name in turn.
struct FecView {
  Rows fecs;                                  // name -> vias
  std::map<std::string, FecId> ids;           // name -> FEC id
  std::vector<VerifyDifference> idConflicts;  // FEC ids that do not name one FEC each
};

std::string viasText(Kelp::Fib::Fec const& fec, std::map<FecId, std::string> const& names) {
  std::string out;
  if (fec.vias() == 0) return "novia";
  for (uint32_t i = 0; i < fec.vias(); ++i) {
    Kelp::Fib::Via const& via = fec.via(i);
    if (i) out += "; ";
    out += "via";
    if (via.hasMplsLabel()) out += " label=" + via.mplsLabel().stringValue();
    if (via.hasTunnelId()) out += " tunnel=" + toStrep(via.tunnelId().value());
    if (via.hasFecId()) {
      auto const name = names.find(via.fecId());
      out +=
          " fec=" + (name == names.end() ? "?" + toStrep(via.fecId()) : "(" + name->second + ")");
    }
  }
  return out;
}

FecView fecView(FecIdToHwFecIdRequest const& request, std::string const& machine) {
  FecView view;
  std::map<FecId, std::string> names;
  for (auto const& entry : request.objTupleToFecIdColl()) {
    std::string const name = "tuple " + toStrep(entry.key);
    auto const [it, inserted] = names.emplace(entry.value.fecId(), name);
    if (!inserted) {
      view.idConflicts.push_back({machine,
                                  "fec-id",
                                  "fec " + toStrep(entry.value.fecId()),
                                  it->second + " and " + name,
                                  "",
                                  false,
                                  {}});
    }
  }
  for (auto const& entry : request.fecColl()) {
    if (!names.count(entry.key)) names.emplace(entry.key, "vias " + viasText(entry.value, {}));
  }
  for (auto const& entry : request.fecColl()) {
    std::string const& name = names[entry.key];
    std::string vias = viasText(entry.value, names);
    if (request.hwFecIdRequest(entry.key)) vias += " requested";
    bool const requested = request.hwFecIdRequest(entry.key);
    if (view.ids.count(name)) {
      // A FEC without request beside a requested one of the same contents is what a stopped
      // machine left: its successor starts over with ids of its own.
      FecId const other = view.ids[name];
      bool const otherRequested = request.hwFecIdRequest(other);
      VerifyDifference d{
          machine, "fec-id", name, "fec " + toStrep(other) + " and fec " + toStrep(entry.key),
          "",      false,    {}};
      if (requested != otherRequested) {
        d.expected = true;
        d.reason = "a leftover of a stopped machine, no longer requested";
      }
      view.idConflicts.push_back(std::move(d));
      if (otherRequested && !requested) continue;
    }
    view.fecs[name] = std::move(vias);
    view.ids[name] = entry.key;
  }
  for (auto const& entry : request.objTupleToFecIdColl()) {
    if (!request.fecIsMemberOf(entry.value.fecId())) {
      view.fecs["tuple " + toStrep(entry.key)] = "fec " + toStrep(entry.value.fecId()) + " missing";
    }
  }
  return view;
}

// The vias' text without their links to other FECs.
std::string withoutLinks(std::string text) {
  for (auto at = text.find(" fec=("); at != std::string::npos; at = text.find(" fec=(")) {
    int depth = 0;
    std::size_t end = at + 5;
    for (; end < text.size(); ++end) {
      if (text[end] == '(') ++depth;
      if (text[end] == ')' && --depth == 0) break;
    }
    text.erase(at, end + 1 - at);
  }
  return text;
}

// What the FEC programmer answered the live FECs, given to the fresh machine's FECs of the
// same contents under their fresh ids, as the programmer writes it: layer-2 interface first.
void copyResponses(FecView const& live, FecView const& fresh,
                   FecIdToHwFecIdResponse const& liveResponse, FecIdToHwFecIdResponse& scratch) {
  for (auto const& [name, freshId] : fresh.ids) {
    auto const liveId = live.ids.find(name);
    if (liveId == live.ids.end()) continue;
    if (withoutLinks(live.fecs.at(name)) != withoutLinks(fresh.fecs.at(name))) continue;
    if (!liveResponse.hwFecIdIsMemberOf(liveId->second)) continue;
    if (liveResponse.l2IntfIdIsMemberOf(liveId->second)) {
      scratch.l2IntfIdIs(FecToL2IntfId(freshId, liveResponse.l2IntfId(liveId->second).l2IntfId()));
    }
    scratch.hwFecIdIs(FecToHwFecId(freshId, liveResponse.hwFecId(liveId->second).hwFecId()));
  }
}

// ---- Helper-programmed state ----

std::string intfVlanText(IntfVlanKey const& key) {
  return key.intfId().name() + " " + toStrep(key.vlanId().value());
}

Rows portStatusRows(auto const& statusColl) {
  Rows rows;
  for (auto [key, status] : statusColl) {
    for (auto [port, flag] : status->programmedColl()) {
      rows[intfVlanText(key) + " " + port.name()] = "programmed";
    }
    for (auto [port, flag] : status->unprogrammedColl()) {
      rows[intfVlanText(key) + " " + port.name()] = "unprogrammed";
    }
  }
  return rows;
}

// The key of a port row names its pair first ("INTF VLAN PORT").
std::string pairOfPortKey(std::string const& key) { return key.substr(0, key.rfind(' ')); }

// Whether the port row `portKey` belongs to a pair of `unprogrammed` (a machine's list of pairs
// the helper failed, which its review retries).
template <class PairColl>
bool pairListed(PairColl const& unprogrammed, std::string const& portKey) {
  std::string const pairKey = pairOfPortKey(portKey);
  for (auto [pair, flag] : unprogrammed) {
    if (intfVlanText(pair) == pairKey) return true;
  }
  return false;
}

}  // namespace

std::string verifyDifferenceText(VerifyDifference const& d) {
  std::string out = d.machine + " " + d.table + " " + d.key +
                    ": live=" + (d.live.empty() ? "-" : d.live) +
                    " fresh=" + (d.fresh.empty() ? "-" : d.fresh);
  if (d.expected) out += " (expected: " + d.reason + ")";
  return out;
}

bool hasUnexpectedDifference(std::vector<VerifyDifference> const& differences) {
  for (auto const& d : differences) {
    if (!d.expected) return true;
  }
  return false;
}

std::vector<VerifyDifference> verifyFilter(VlanFloodSetFilterSm const& live) {
  auto const scratch = L2Rib::floodSetOutputFactory();
  auto const fresh = vlanFloodSetFilterSmFactory(live.destType(), live.inFloodSetOutput(), scratch);
  std::vector<VerifyDifference> out;
  // A started filter adds what its input holds and removes only the deletions it sees, so what
  // it wrote before a stop and its input lost meanwhile stays.
  compareRows(
      "filter", "floodset-filtered", floodSetRows(*live.outFloodSetOutput()),
      floodSetRows(*scratch),
      [](std::string const&, std::string const&,
         std::string const& f) -> std::optional<std::string> {
        if (!f.empty()) return std::nullopt;
        return "a leftover of a stop: the filter removes only deletions it sees";
      },
      out);
  return out;
}

std::vector<VerifyDifference> verifyFloodSet(EvpnVlanFloodSetSm const& live) {
  auto const scratch = evpnVlanFloodSetHwConfigFactory();
  auto const fresh =
      evpnVlanFloodSetSmFactory(live.floodSetOutput(), live.hwTunnelIdMapping(),
                                live.hwInfoMapping(), scratch, live.vlanFloodSetHwStatus());
  std::vector<VerifyDifference> out;
  compareRows("floodset", "hwconfig", hwConfigRows(*live.vlanFloodSetHwConfig()),
              hwConfigRows(*scratch), {}, out);
  return out;
}

std::vector<VerifyDifference> verifyFloodSetFec(EvpnFloodSetFecSm const& live) {
  Scratch s;
  auto const request = fecIdToHwFecIdRequestFactory("verifyFloodSetFecRequest");
  auto const response = fecIdToHwFecIdResponseFactory("verifyFloodSetFecResponse");
  auto const hwInfo = hwInfoMappingFactory();
  auto const fresh = evpnFloodSetFecSmFactory(live.floodSetOutput(), live.hwTunnelIdMapping(),
                                              live.vlanFloodSetHwStatus(), request, response,
                                              hwInfo, s.scheduler->timerWheel());
  s.settle();
  FecView const liveView = fecView(*live.mplsFloodSetFecRequest(), "floodset-fec");
  FecView const freshView = fecView(*request, "floodset-fec");
  copyResponses(liveView, freshView, *live.mplsFloodSetFecResponse(), *response);
  s.settle();
  // A FEC outlives the last flood set that uses its via while the hardware status still shows
  // a configuration with that via programmed; a fresh machine makes none for such a via.
  std::set<std::string> held;
  for (auto [pair, status] : live.vlanFloodSetHwStatus()->statusColl()) {
    for (auto [config, st] : status->mplsDestStatusColl()) {
      if (st != programmed) continue;
      held.insert("vias via label=" + config.label().stringValue() +
                  " tunnel=" + toStrep(config.tunnelId().value()));
      held.insert(viaText(config.via()));
    }
  }
  auto const heldFn = [&held](std::string const& key, std::string const&,
                              std::string const& f) -> std::optional<std::string> {
    if (!f.empty() || !held.count(key)) return std::nullopt;
    return "held while the hardware shows the via programmed";
  };
  std::vector<VerifyDifference> out = liveView.idConflicts;
  compareRows("floodset-fec", "fec", liveView.fecs, freshView.fecs, heldFn, out);
  compareRows("floodset-fec", "hwinfo", hwInfoRows(*live.hwInfoMapping()), hwInfoRows(*hwInfo),
              heldFn, out);
  return out;
}

std::vector<VerifyDifference> verifyMacFec(NoxMacAddrFecRequestSm const& live,
                                           MacFecInputs const& in) {
  Scratch s;
  auto const request = fecIdToHwFecIdRequestFactory("verifyMacFecRequest");
  auto const response = fecIdToHwFecIdResponseFactory("verifyMacFecResponse");
  auto const hwIds = objTupleToHwIdFactory("verifyObjTupleToHwId");
  auto const fresh =
      noxMacAddrFecRequestSmFactory(in.labels, in.lbs, in.dests, response, in.hosts, request, hwIds,
                                    s.scheduler->timerWheel(), s.scheduler);
  fresh->maxChainLengthIs(live.maxChainLength());
  s.settle();
  FecView const liveView = fecView(*live.fecRequest(), "macfec");
  FecView const freshView = fecView(*request, "macfec");
  copyResponses(liveView, freshView, *in.fecResponse, *response);
  s.settle();
  auto hwIdRows = [](ObjTupleToHwId const& map) {
    Rows rows;
    for (auto const& entry : map.hwIdColl())
      rows["tuple " + toStrep(entry.key)] = toStrep(entry.value);
    return rows;
  };
  std::vector<VerifyDifference> out = liveView.idConflicts;
  // With chain length 3 a label or load balance deleted and evaluated again (its last host
  // leaving) is built again as one never seen: an empty FEC without a request, which a fresh
  // machine never makes. The other way round, a tuple deleted under its hosts takes its FEC
  // along, where a fresh machine gives the hosts of a tuple never seen an empty FEC at once.
  compareRows(
      "macfec", "fec", liveView.fecs, freshView.fecs,
      [](std::string const&, std::string const& l,
         std::string const& f) -> std::optional<std::string> {
        if (l.empty() && f == "novia requested") {
          return "the tuple was deleted under its hosts";
        }
        if (!l.empty() && !f.empty() && withoutLinks(l) == withoutLinks(f)) {
          return "a link to a missing tuple: an empty via or its empty FEC, by order";
        }
        if (l != "novia" || !f.empty()) return std::nullopt;
        return "an emptied chain keeps its empty FEC";
      },
      out);
  // The hardware id of a tuple stays after its FEC is gone, until a new one replaces it.
  compareRows(
      "macfec", "objtuple-hwid", hwIdRows(*live.objTupleToHwIdMap()), hwIdRows(*hwIds),
      [&liveView](std::string const& key, std::string const&,
                  std::string const& f) -> std::optional<std::string> {
        auto const fec = liveView.fecs.find(key);
        bool const requested =
            fec != liveView.fecs.end() && fec->second.find(" requested") != std::string::npos;
        if (!f.empty() || requested) return std::nullopt;
        return "the tuple's request is withdrawn; its last hardware id stays";
      },
      out);
  return out;
}

std::vector<VerifyDifference> verifyEsi(EvpnFloodingEsiSm const& live) {
  Scratch s;
  auto const helper = NoxHelper::evpnFloodingSmHelperStubFactory("verifyFlooding");
  auto const tunnels = tunnelIdToHwTunnelIdMappingFactory("verifyTunnelIdToHwTunnelId");
  auto const fresh =
      evpnFloodingEsiSmFactory(helper, s.scheduler, live.ncsd(), live.evpnStatus(), tunnels);
  s.settle();
  std::vector<VerifyDifference> out;

  // Hardware tunnel ids are allocated: only which tunnels have one is compared, and the live
  // ids must be distinct.
  auto tunnelRows = [](TunnelIdToHwTunnelIdMapping const& m) {
    Rows rows;
    for (auto const& entry : m.tunnelIdToHwTunnelIdColl()) {
      rows[toStrep(entry.value.key().value())] = "mapped";
    }
    return rows;
  };
  std::map<uint32_t, uint64_t> owners;
  for (auto const& entry : live.tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdColl()) {
    auto const [it, inserted] =
        owners.emplace(entry.value.hwTunnelId().value(), entry.value.key().value());
    if (!inserted) {
      out.push_back(
          {"esi",
           "hw-tunnel-id",
           toStrep(entry.value.hwTunnelId().value()),
           "tunnels " + toStrep(it->second) + " and " + toStrep(entry.value.key().value()),
           "",
           false,
           {}});
    }
  }
  compareRows(
      "esi", "tunnels", tunnelRows(*live.tunnelIdHwTunnelId()), tunnelRows(*tunnels),
      [&live](std::string const& key, std::string const& l,
              std::string const&) -> std::optional<std::string> {
        if (!l.empty()) return std::nullopt;
        for (auto [tunnel, flag] : live.unprogrammedTunnelColl()) {
          if (toStrep(tunnel.value()) == key) {
            return "no hardware tunnel id was free; the review asks again";
          }
        }
        return std::nullopt;
      },
      out);

  auto tunnelOfPair = [](EvpnFloodingEsiSm const& sm) {
    Rows rows;
    for (auto [key, tunnel] : sm.intfVlanTunnelColl())
      rows[intfVlanText(key)] = toStrep(tunnel.value());
    return rows;
  };
  compareRows("esi", "df-tunnel", tunnelOfPair(live), tunnelOfPair(*fresh), {}, out);
  compareRows(
      "esi", "status", portStatusRows(live.esiStatusColl()), portStatusRows(fresh->esiStatusColl()),
      [&live](std::string const& key, std::string const& l,
              std::string const& f) -> std::optional<std::string> {
        if (l == "programmed" || f != "programmed") return std::nullopt;
        std::string const pairKey = pairOfPortKey(key);
        if (pairListed(live.unprogrammedEsiColl(), key)) {
          return "the helper failed this port; the review retries it";
        }
        for (auto [pair, tunnel] : live.intfVlanTunnelColl()) {
          if (intfVlanText(pair) == pairKey && live.unprogrammedTunnelIsMemberOf(tunnel)) {
            return "the pair's tunnel waits for a hardware tunnel id";
          }
        }
        return std::nullopt;
      },
      out);
  return out;
}

std::vector<VerifyDifference> verifyDot1q(EvpnFloodingDot1qSm const& live) {
  Scratch s;
  auto const helper = NoxHelper::evpnFloodingSmHelperStubFactory("verifyFlooding");
  auto const fresh = evpnFloodingDot1qSmFactory(helper, s.scheduler, live.ncsd(),
                                                live.bridgingConfig(), live.evpnStatus());
  s.settle();
  auto tagRows = [](EvpnFloodingDot1qSm const& sm) {
    Rows rows;
    for (auto [pair, tag] : sm.intfVlanDot1qColl()) rows[intfVlanText(pair)] = toStrep(tag.value());
    return rows;
  };
  std::vector<VerifyDifference> out;
  compareRows("dot1q", "tag", tagRows(live), tagRows(*fresh), {}, out);
  compareRows(
      "dot1q", "status", portStatusRows(live.dot1qStatusColl()),
      portStatusRows(fresh->dot1qStatusColl()),
      [&live](std::string const& key, std::string const& l,
              std::string const&) -> std::optional<std::string> {
        if (l != "unprogrammed") return std::nullopt;
        if (pairListed(live.unprogrammedDot1qColl(), key)) {
          return "the helper failed this port; the review retries it";
        }
        return std::nullopt;
      },
      out);
  return out;
}

std::vector<VerifyDifference> verifyDecap(EsiFilteringDecapSm const& live) {
  Scratch s;
  auto const helper = NoxHelper::esiFilteringDecapHelperStubFactory("verifyDecap");
  // The machine works from the backlog of changed routes and removes what it handled; a fresh
  // one is given every route of the LFIB as changed.
  auto const backlog = Mpls::lfibTrackingStatusFactory("verifyLfibTracking");
  for (auto const& entry : live.lfibStatus()->routeColl())
    backlog->routeKeyBacklogIs(entry.key, true);
  auto const hwStatus = Mpls::lfibHwStatusFactory("verifyLfibHwStatus");
  auto const fresh =
      esiFilteringDecapSmFactory(helper, live.lfibStatus(), s.scheduler, backlog, hwStatus);
  s.settle();

  auto routeText = [](Mpls::RouteKey const& key) { return key.label().stringValue(); };
  auto pending = [&live, &routeText](std::string const& key) -> std::optional<std::string> {
    for (auto const& entry : live.lfibTrackingStatus()->routeKeyBacklogColl()) {
      if (routeText(entry.key) == key) return "the route is in the backlog, not handled yet";
    }
    // A route listed as refused while its port map is programmed is no refusal at all.
    auto const& unprogrammed = live.lfibHwStatus()->unprogrammedRouteColl();
    for (auto const& entry : unprogrammed) {
      if (routeText(entry.key) == key && !live.routeEsiFilterViaIsMemberOf(entry.key)) {
        return "the helper refused the port map (code " + toStrep(uint32_t(entry.value)) + ")";
      }
    }
    return std::nullopt;
  };
  auto portMapRows = [&routeText](EsiFilteringDecapSm const& sm) {
    Rows rows;
    for (auto [key, via] : sm.routeEsiFilterViaColl()) rows[routeText(key)] = via.intfId().name();
    return rows;
  };
  auto unprogrammedRows = [&routeText](Mpls::LfibHwStatus const& status) {
    Rows rows;
    for (auto const& entry : status.unprogrammedRouteColl()) {
      rows[routeText(entry.key)] = toStrep(uint32_t(entry.value));
    }
    return rows;
  };
  auto expected = [&pending](std::string const& key, std::string const&, std::string const&) {
    return pending(key);
  };
  std::vector<VerifyDifference> out;
  compareRows("decap", "port-map", portMapRows(live), portMapRows(*fresh), expected, out);
  compareRows("decap", "lfib-hwstatus", unprogrammedRows(*live.lfibHwStatus()),
              unprogrammedRows(*hwStatus), expected, out);
  return out;
}

}  // namespace Nox
