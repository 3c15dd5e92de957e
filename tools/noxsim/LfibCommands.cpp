// Commands of the LFIB and its emulated owner, and of the decap helper stub.
//
// The emulated LFIB owner writes the LFIB, then, in the same command, adds to the tracking
// backlog every route whose state the write changed: for a route, that route; for a via set,
// every route that uses it; for a filter via, every route whose via set exists and starts with
// it. Every `set` counts as a change, also one that writes the stored value; a `del` of an
// absent entry is none.

#include <charconv>
#include <optional>
#include <vector>

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

using Mpls::LfibViaKey;
using Mpls::LfibViaSetKey;
using Mpls::RouteKey;

Mpls::LfibStatus& lfib(Sim& sim) { return *sim.world().lfib; }

void touch(Sim& sim, RouteKey const& key) {
  sim.world().lfibTracking->routeKeyBacklogIs(key, true);
}

void touchRoutesUsing(Sim& sim, LfibViaSetKey viaSetKey) {
  std::vector<RouteKey> keys;
  for (auto const& entry : lfib(sim).routeColl()) {
    if (entry.value.viaSetKey() == viaSetKey) keys.push_back(entry.key);
  }
  for (RouteKey const& key : keys) touch(sim, key);
}

void touchRoutesStartingWith(Sim& sim, LfibViaKey viaKey) {
  std::vector<RouteKey> keys;
  for (auto const& entry : lfib(sim).routeColl()) {
    Mpls::LfibViaSet const viaSet = lfib(sim).viaSet(entry.value.viaSetKey());
    if (viaSet.viaKeys() > 0 && viaSet.viaKey(0) == viaKey) keys.push_back(entry.key);
  }
  for (RouteKey const& key : keys) touch(sim, key);
}

template <class T>
std::optional<T> parseDecimal(std::string_view text) {
  T value{};
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

// VIATYPE/VIAID: a 32-bit type and a 64-bit id, both decimal.
std::optional<LfibViaKey> viaKey(Args& a, std::string_view word) {
  auto const slash = word.find('/');
  auto const type = parseDecimal<uint32_t>(word.substr(0, slash));
  auto const id = slash == std::string_view::npos ? std::nullopt
                                                  : parseDecimal<uint64_t>(word.substr(slash + 1));
  if (!type || !id) {
    a.fail(cat("bad via '", word, "' (VIATYPE/VIAID, decimal)"));
    return std::nullopt;
  }
  return LfibViaKey(Mpls::LfibViaType(*type), *id);
}

RouteKey routeKey(Args& a, std::size_t i) { return RouteKey(a.label(i)); }

Action parseRouteSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  RouteKey const key = routeKey(a, 0);
  auto const viaSetText = a.option("viaset");
  auto const viaSetId = viaSetText ? parseDecimal<uint64_t>(*viaSetText) : std::nullopt;
  if (!viaSetId) {
    a.fail("needs viaset=ID (decimal)");
    return {};
  }
  Mpls::LfibRoute const route{LfibViaSetKey(*viaSetId)};
  return [=](Sim& sim) {
    lfib(sim).routeIs(key, route);
    touch(sim, key);
  };
}

Action parseRouteDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  RouteKey const key = routeKey(a, 0);
  return [=](Sim& sim) {
    if (lfib(sim).routeDel(key)) touch(sim, key);
  };
}

Action parseViaSetSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2, Mpls::LfibViaSet::maxVias + 1)) return {};
  auto const id = LfibViaSetKey(a.number(0));
  Mpls::LfibViaSet viaSet;
  for (std::size_t i = 1; i < a.count(); ++i) {
    auto const via = viaKey(a, a.word(i));
    if (!via) return {};
    viaSet.viaKeyIs(*via);
  }
  return [=](Sim& sim) {
    lfib(sim).viaSetIs(id, viaSet);
    touchRoutesUsing(sim, id);
  };
}

Action parseViaSetDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  auto const id = LfibViaSetKey(a.number(0));
  return [=](Sim& sim) {
    if (lfib(sim).viaSetDel(id)) touchRoutesUsing(sim, id);
  };
}

Action parseFilterSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const via = viaKey(a, a.word(0));
  Mpls::LfibEvpnEthernetSegmentFilterVia const filter(a.intf(1));
  if (!via) return {};
  return [=](Sim& sim) {
    lfib(sim).evpnEthernetSegmentFilterViaIs(*via, filter);
    touchRoutesStartingWith(sim, *via);
  };
}

Action parseFilterDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  auto const via = viaKey(a, a.word(0));
  if (!via) return {};
  return [=](Sim& sim) {
    if (lfib(sim).evpnEthernetSegmentFilterViaDel(*via)) touchRoutesStartingWith(sim, *via);
  };
}

Action parseBacklogAdd(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  RouteKey const key = routeKey(a, 0);
  return [=](Sim& sim) { touch(sim, key); };
}

Action parseHelperDecapSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(0)) return {};
  auto const rcText = a.option("createEsiPortMapRc");
  auto const rc = rcText ? parseDecimal<uint32_t>(*rcText) : std::nullopt;
  if (!rc) {
    a.fail("needs createEsiPortMapRc=N (decimal)");
    return {};
  }
  return [=](Sim& sim) {
    sim.world().decapHelper->createEsiPortMapRcIs(Mpls::LfibHwProgrammingReturnCode(*rc));
  };
}

}  // namespace

std::vector<CommandEntry> decapCommands() {
  return {
      {.words = "lfib route set", .parse = parseRouteSet},
      {.words = "lfib route del", .parse = parseRouteDel},
      {.words = "lfib viaset set", .parse = parseViaSetSet},
      {.words = "lfib viaset del", .parse = parseViaSetDel},
      {.words = "lfib esfilter set", .parse = parseFilterSet},
      {.words = "lfib esfilter del", .parse = parseFilterDel},
      {.words = "lfib backlog add", .parse = parseBacklogAdd},
      {.words = "helper decap set", .parse = parseHelperDecapSet},
  };
}

}  // namespace Noxsim
