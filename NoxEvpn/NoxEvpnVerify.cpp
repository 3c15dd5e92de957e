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
// Tuples and FEC ids name most rows of the FEC machines: their own text functions, not the
// stream the generic one writes through, which costs more than the rest of a row.
std::string toStrep(L2Rib::ObjTuple const& tuple) { return L2Rib::valueToStrep(tuple); }
std::string toStrep(FecId const& fecId) { return Kelp::Fib::valueToStrep(fecId); }

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

// The event thread of the fresh machines: a clock of its own, so that running one to completion
// moves no live timer. A machine takes its tasks with it when it goes, so one verification
// leaves nothing scheduled for the next.
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

// Emptying a scratch table for its next fresh machine: every collection the machine writes.
void clear(FecIdToHwFecIdRequest& request) {
  request.fecDelAll();
  request.fec6DelAll();
  request.objTupleToFecIdDelAll();
  request.hwFecIdRequestDelAll();
}
void clear(FecIdToHwFecIdResponse& response) {
  response.l2IntfIdDelAll();
  response.hwFecIdDelAll();
}
void clear(ObjTupleToHwId& hwIds) { hwIds.hwIdDelAll(); }
void clear(TunnelIdToHwTunnelIdMapping& tunnels) {
  tunnels.tunnelIdToHwTunnelIdReadyIs(false);
  tunnels.tunnelIdToHwTunnelIdDelAll();
}
void clear(Mpls::LfibTrackingStatus& tracking) { tracking.routeKeyBacklogDelAll(); }
void clear(Mpls::LfibHwStatus& status) { status.unprogrammedRouteDelAll(); }

// The scratch table in `slot`, made on first use, emptied on every later one.
template <class T, class Make>
Vel::Ptr<T> const& reused(Vel::Ptr<T>& slot, Make const& make) {
  if (slot) {
    clear(*slot);
  } else {
    slot = make();
  }
  return slot;
}

}  // namespace

struct Verifier::Tables {
  Scratch scratch;
  Vel::Ptr<FecIdToHwFecIdRequest> floodSetFecRequest;
  Vel::Ptr<FecIdToHwFecIdResponse> floodSetFecResponse;
  Vel::Ptr<FecIdToHwFecIdRequest> macFecRequest;
  Vel::Ptr<FecIdToHwFecIdResponse> macFecResponse;
  Vel::Ptr<ObjTupleToHwId> macFecHwIds;
  Vel::Ptr<TunnelIdToHwTunnelIdMapping> tunnels;
  Vel::Ptr<Mpls::LfibTrackingStatus> lfibTracking;
  Vel::Ptr<Mpls::LfibHwStatus> lfibHwStatus;
};

Verifier::Verifier() : tables_(std::make_unique<Tables>()) {}
Verifier::~Verifier() = default;

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

std::vector<VerifyDifference> Verifier::filter(VlanFloodSetFilterSm const& live) {
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

std::vector<VerifyDifference> Verifier::floodSet(EvpnVlanFloodSetSm const& live) {
  auto const scratch = evpnVlanFloodSetHwConfigFactory();
  auto const fresh =
      evpnVlanFloodSetSmFactory(live.floodSetOutput(), live.hwTunnelIdMapping(),
                                live.hwInfoMapping(), scratch, live.vlanFloodSetHwStatus());
  std::vector<VerifyDifference> out;
  compareRows("floodset", "hwconfig", hwConfigRows(*live.vlanFloodSetHwConfig()),
              hwConfigRows(*scratch), {}, out);
  return out;
}

std::vector<VerifyDifference> Verifier::floodSetFec(EvpnFloodSetFecSm const& live) {
  Scratch& s = tables_->scratch;
  auto const& request = reused(tables_->floodSetFecRequest, [] {
    return fecIdToHwFecIdRequestFactory("verifyFloodSetFecRequest");
  });
  auto const& response = reused(tables_->floodSetFecResponse, [] {
    return fecIdToHwFecIdResponseFactory("verifyFloodSetFecResponse");
  });
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

std::vector<VerifyDifference> Verifier::macFec(NoxMacAddrFecRequestSm const& live,
                                               MacFecInputs const& in) {
  Scratch& s = tables_->scratch;
  auto const& request = reused(tables_->macFecRequest,
                               [] { return fecIdToHwFecIdRequestFactory("verifyMacFecRequest"); });
  auto const& response = reused(tables_->macFecResponse, [] {
    return fecIdToHwFecIdResponseFactory("verifyMacFecResponse");
  });
  auto const& hwIds =
      reused(tables_->macFecHwIds, [] { return objTupleToHwIdFactory("verifyObjTupleToHwId"); });
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

std::vector<VerifyDifference> Verifier::esi(EvpnFloodingEsiSm const& live) {
  Scratch& s = tables_->scratch;
  auto const helper = NoxHelper::evpnFloodingSmHelperStubFactory("verifyFlooding");
  auto const& tunnels = reused(tables_->tunnels, [] {
    return tunnelIdToHwTunnelIdMappingFactory("verifyTunnelIdToHwTunnelId");
  });
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

std::vector<VerifyDifference> Verifier::dot1q(EvpnFloodingDot1qSm const& live) {
  Scratch& s = tables_->scratch;
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

std::vector<VerifyDifference> Verifier::decap(EsiFilteringDecapSm const& live) {
  Scratch& s = tables_->scratch;
  auto const helper = NoxHelper::esiFilteringDecapHelperStubFactory("verifyDecap");
  // The machine works from the backlog of changed routes and removes what it handled; a fresh
  // one is given every route of the LFIB as changed.
  auto const& backlog = reused(
      tables_->lfibTracking, [] { return Mpls::lfibTrackingStatusFactory("verifyLfibTracking"); });
  for (auto const& entry : live.lfibStatus()->routeColl())
    backlog->routeKeyBacklogIs(entry.key, true);
  auto const& hwStatus =
      reused(tables_->lfibHwStatus, [] { return Mpls::lfibHwStatusFactory("verifyLfibHwStatus"); });
  auto const fresh =
      esiFilteringDecapSmFactory(helper, live.lfibStatus(), s.scheduler, backlog, hwStatus);
  s.settle();

  auto routeText = [](Mpls::RouteKey const& key) { return key.label().stringValue(); };
  // Rows are keyed by label text; the routes behind them, from wherever either side has one.
  std::map<std::string, Mpls::RouteKey> routes;
  for (auto const& entry : live.lfibStatus()->routeColl()) routes[routeText(entry.key)] = entry.key;
  for (auto [key, via] : live.routeEsiFilterViaColl()) routes[routeText(key)] = key;
  for (auto const& entry : live.lfibHwStatus()->unprogrammedRouteColl()) {
    routes[routeText(entry.key)] = entry.key;
  }
  auto const reason = [&](std::string const& text) -> std::optional<std::string> {
    auto const found = routes.find(text);
    if (found == routes.end()) return std::nullopt;
    Mpls::RouteKey const& key = found->second;
    if (live.lfibTrackingStatus()->routeKeyBacklogIsMemberOf(key)) {
      return "the route is in the backlog, not handled yet";
    }
    // A route listed as refused while its port map is programmed is no refusal at all.
    bool const programmed = live.routeEsiFilterViaIsMemberOf(key);
    if (!programmed && live.lfibHwStatus()->unprogrammedRouteIsMemberOf(key)) {
      return "the helper refused the port map (code " +
             toStrep(uint32_t(live.lfibHwStatus()->unprogrammedRoute(key))) + ")";
    }
    // What the LFIB holds for the route now: its filter via, if its first via is one.
    Mpls::LfibStatus const& lfib = *live.lfibStatus();
    Mpls::LfibRoute const route = lfib.route(key);
    Mpls::LfibViaSet const viaSet =
        route == Mpls::LfibRoute() ? Mpls::LfibViaSet() : lfib.viaSet(route.viaSetKey());
    bool const filtered = viaSet.viaKeys() > 0 &&
                          viaSet.viaKey(0).viaType() == Mpls::lfibViaTypeEvpnEthernetSegmentFilter;
    auto const via = filtered ? lfib.evpnEthernetSegmentFilterVia(viaSet.viaKey(0))
                              : Mpls::LfibEvpnEthernetSegmentFilterVia();
    if (!programmed) {
      // The machine keeps nothing of a route the helper refused with a code above 3, nor of one
      // it has not met in the backlog.
      if (via == Mpls::LfibEvpnEthernetSegmentFilterVia()) return std::nullopt;
      return "the machine holds nothing for the route: refused with a code above 3 (neither "
             "listed nor retried), or not in the backlog since the machine started or the "
             "route changed";
    }
    if (route != Mpls::LfibRoute() && viaSet != Mpls::LfibViaSet() && !filtered) {
      return "the route's first via is no longer a filter via: a skipped route keeps its map";
    }
    if (via != live.routeEsiFilterVia(key)) {
      return "the route changed without its key entering the backlog, through which alone the "
             "machine sees routes";
    }
    if (hwStatus->unprogrammedRoute(key) == Mpls::lfibHwProgrammingConflict) {
      return "another route names the interface: the first one programmed keeps it";
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
  auto expected = [&reason](std::string const& key, std::string const&, std::string const&) {
    return reason(key);
  };
  std::vector<VerifyDifference> out;
  compareRows("decap", "port-map", portMapRows(live), portMapRows(*fresh), expected, out);
  compareRows("decap", "lfib-hwstatus", unprogrammedRows(*live.lfibHwStatus()),
              unprogrammedRows(*hwStatus), expected, out);
  return out;
}

std::vector<VerifyDifference> verifyFilter(VlanFloodSetFilterSm const& live) {
  return Verifier().filter(live);
}
std::vector<VerifyDifference> verifyFloodSet(EvpnVlanFloodSetSm const& live) {
  return Verifier().floodSet(live);
}
std::vector<VerifyDifference> verifyFloodSetFec(EvpnFloodSetFecSm const& live) {
  return Verifier().floodSetFec(live);
}
std::vector<VerifyDifference> verifyEsi(EvpnFloodingEsiSm const& live) {
  return Verifier().esi(live);
}
std::vector<VerifyDifference> verifyDot1q(EvpnFloodingDot1qSm const& live) {
  return Verifier().dot1q(live);
}
std::vector<VerifyDifference> verifyDecap(EsiFilteringDecapSm const& live) {
  return Verifier().decap(live);
}
std::vector<VerifyDifference> verifyMacFec(NoxMacAddrFecRequestSm const& live,
                                           MacFecInputs const& inputs) {
  return Verifier().macFec(live, inputs);
}

}  // namespace Nox
