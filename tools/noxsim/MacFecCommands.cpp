// Commands of the MAC-address FEC path: the layer-2 RIB's resolution tables, the running
// machine's chain length, and the FEC programmer's responses (by hand or emulated).

#include <deque>
#include <string>

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

World& world(Sim& sim) { return sim.world(); }

// lb:ID, label:ID, dest:ID or none.
std::optional<L2Rib::ObjTuple> parseTuple(std::string_view text) {
  if (text == "none") return L2Rib::ObjTuple();
  auto const colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view const kind = text.substr(0, colon);
  auto const id = parseUnsigned(text.substr(colon + 1));
  if (!id) return std::nullopt;
  if (kind == "lb") return L2Rib::ObjTuple(*id, L2Rib::tableTypeLoadBalance_);
  if (kind == "label") return L2Rib::ObjTuple(*id, L2Rib::tableTypeLabel_);
  if (kind == "dest") return L2Rib::ObjTuple(*id, L2Rib::tableTypeDest_);
  return std::nullopt;
}

template <class T>
T checked(Args& a, std::optional<T> const& value, std::string_view word, std::string_view what,
          std::string_view form) {
  if (!value) a.fail(cat("bad ", what, " '", word, "' (", form, ")"));
  return value.value_or(T());
}

L2Rib::ObjTuple tupleArg(Args& a, std::string_view word) {
  return checked(a, parseTuple(word), word, "object tuple", "lb:ID, label:ID, dest:ID or none");
}

Nox::FecId fecIdArg(Args& a, std::size_t i) {
  return checked(a, parseFecId(a.word(i)), a.word(i), "FEC id", "ADJ:NUM");
}

Bridging::MacVlanPair hostArg(Args& a) {
  auto const vlan = a.vlan(0);
  return Bridging::MacVlanPair(a.mac(1), vlan);
}

Action parseHostSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const pair = hostArg(a);
  auto const tuple = tupleArg(a, a.word(2));
  return [=](Sim& sim) { world(sim).l2ribHosts->hostIs(pair, L2Rib::HostAndSource(tuple)); };
}

Action parseHostDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const pair = hostArg(a);
  return [=](Sim& sim) { world(sim).l2ribHosts->hostDel(pair); };
}

Action parseLabelSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  L2Rib::LabelId const id(a.number(0));
  auto const label = a.label(1);
  auto const next = a.option("next");
  if (!next) a.fail("next= is required");
  L2Rib::Label const value(label, next ? tupleArg(a, *next) : L2Rib::ObjTuple());
  return [=](Sim& sim) { world(sim).l2ribLabels->labelIs(id, L2Rib::LabelAndSource(value)); };
}

Action parseLabelDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  L2Rib::LabelId const id(in.args.number(0));
  return [=](Sim& sim) { world(sim).l2ribLabels->labelDel(id); };
}

Action parseLbSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(1)) return {};
  L2Rib::LoadBalanceId const id(a.number(0));
  auto const next = a.option("next");
  if (!next) a.fail("next= is required");
  L2Rib::LoadBalance value;
  for (std::string_view rest = next.value_or(""); !rest.empty() && a.ok();) {
    auto const comma = rest.find(',');
    L2Rib::ObjTuple const tuple = tupleArg(a, rest.substr(0, comma));
    if (value.nexts() == L2Rib::LoadBalance::capacity) {
      a.fail(cat("at most ", L2Rib::LoadBalance::capacity, " next tuples"));
      break;
    }
    value.nextAdd(tuple);
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
  }
  return [=](Sim& sim) { world(sim).l2ribLbs->loadBalanceIs(id, value); };
}

Action parseLbDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  L2Rib::LoadBalanceId const id(in.args.number(0));
  return [=](Sim& sim) { world(sim).l2ribLbs->loadBalanceDel(id); };
}

Action parseDestSet(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const dest = in.args.dest(0);
  return [=](Sim& sim) { world(sim).l2ribDests->destIs(dest.destId(), dest); };
}

Action parseDestDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  L2Rib::DestId const id(in.args.number(0));
  return [=](Sim& sim) { world(sim).l2ribDests->destDel(id); };
}

Action parseMaxChain(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const length = uint32_t(in.args.number(0, UINT32_MAX));
  return [=](Sim& sim) {
    int const m = machineIndex("macfec");
    if (!sim.running(m)) return sim.fail("machine 'macfec' is not started");
    static_cast<Nox::NoxMacAddrFecRequestSm*>(sim.machine(m))->maxChainLengthIs(length);
  };
}

// The response commands of one FEC programmer.
std::vector<CommandEntry> fecResponseCommands(std::size_t index) {
  // Command words are views: keep their text for the life of the process.
  static std::deque<std::string> words;
  auto const word = [](std::string text) -> std::string_view {
    return words.emplace_back(std::move(text));
  };
  std::string_view const which = fecProgrammerTable()[index].which;
  auto const parseSet = [index](ParseInput& in) -> Action {
    Args& a = in.args;
    if (!a.countIs(2)) return {};
    auto const fecId = fecIdArg(a, 0);
    uint64_t const hwFecId = a.number(1);
    auto const l2Intf = a.option("l2intf");
    auto const intf = l2Intf ? parseIntf(*l2Intf) : std::optional<Gantry::IntfId>(Gantry::IntfId());
    if (!intf) a.fail(cat("bad interface '", *l2Intf, "'"));
    Gantry::IntfId const l2IntfId = intf.value_or(Gantry::IntfId());
    return [=](Sim& sim) {
      fecResponseIs(fecProgrammerTable()[index].response(sim.world()), fecId, hwFecId, l2IntfId);
    };
  };
  auto const parseDel = [index](ParseInput& in) -> Action {
    if (!in.args.countIs(1)) return {};
    auto const fecId = fecIdArg(in.args, 0);
    return
        [=](Sim& sim) { fecResponseDel(fecProgrammerTable()[index].response(sim.world()), fecId); };
  };
  auto const parseAuto = [index](ParseInput& in) -> Action {
    if (!in.args.countIs(1)) return {};
    bool const on = in.args.onOff(0);
    return [=](Sim& sim) { sim.fecProgrammer(index).autoOnIs(on); };
  };
  return {
      {.words = word(cat("fecresponse ", which, " set")), .parse = parseSet},
      {.words = word(cat("fecresponse ", which, " del")), .parse = parseDel},
      {.words = word(cat("fecprogrammer ", which, " auto")), .parse = parseAuto},
  };
}

}  // namespace

std::vector<CommandEntry> macFecCommands() {
  std::vector<CommandEntry> commands = {
      {.words = "l2rib host set", .parse = parseHostSet},
      {.words = "l2rib host del", .parse = parseHostDel},
      {.words = "l2rib label set", .parse = parseLabelSet},
      {.words = "l2rib label del", .parse = parseLabelDel},
      {.words = "l2rib lb set", .parse = parseLbSet},
      {.words = "l2rib lb del", .parse = parseLbDel},
      {.words = "l2rib dest set", .parse = parseDestSet},
      {.words = "l2rib dest del", .parse = parseDestDel},
      {.words = "macfec maxchain", .parse = parseMaxChain},
  };
  for (std::size_t i = 0; i < fecProgrammerTable().size(); ++i) {
    auto const family = fecResponseCommands(i);
    commands.insert(commands.end(), family.begin(), family.end());
  }
  return commands;
}

}  // namespace Noxsim
