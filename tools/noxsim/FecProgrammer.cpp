// The emulated FEC programmer: requests in, responses out.

#include "tools/noxsim/FecProgrammer.h"

#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

constexpr uint64_t hwFecIdBase = 100000;

}  // namespace

std::vector<FecProgrammerWiring> const& fecProgrammerTable() {
  static std::vector<FecProgrammerWiring> const table = {
      {.which = "floodset",
       .request = [](World& w) -> Nox::FecIdToHwFecIdRequest& { return *w.floodSetFecRequest; },
       .response = [](World& w) -> Nox::FecIdToHwFecIdResponse& { return *w.floodSetFecResponse; },
       .answersL2Intf = true},
      {.which = "mac",
       .request = [](World& w) -> Nox::FecIdToHwFecIdRequest& { return *w.macFecRequest; },
       .response = [](World& w) -> Nox::FecIdToHwFecIdResponse& { return *w.macFecResponse; },
       .answersL2Intf = false},
  };
  return table;
}

FecProgrammerWiring const* fecProgrammerWiring(std::string_view which) {
  for (auto const& wiring : fecProgrammerTable()) {
    if (wiring.which == which) return &wiring;
  }
  return nullptr;
}

void fecResponseIs(Nox::FecIdToHwFecIdResponse& response, Nox::FecId fecId, uint64_t hwFecId,
                   Gantry::IntfId l2Intf) {
  response.l2IntfIdIs(Nox::FecToL2IntfId(fecId, l2Intf));
  response.hwFecIdIs(Nox::FecToHwFecId(fecId, hwFecId));
}

void fecResponseDel(Nox::FecIdToHwFecIdResponse& response, Nox::FecId fecId) {
  response.l2IntfIdDel(fecId);
  response.hwFecIdDel(fecId);
}

FecProgrammer::FecProgrammer(World& world, FecProgrammerWiring const& wiring)
    : world_(world), wiring_(wiring) {}

bool FecProgrammer::react() {
  if (!autoOn_) return false;
  bool const answered = answerRequests();
  bool const withdrawn = withdrawUnrequested();
  return answered || withdrawn;
}

bool FecProgrammer::answerRequests() {
  auto& request = wiring_.request(world_);
  auto& response = wiring_.response(world_);
  std::vector<Nox::FecId> unanswered;
  for (auto const& entry : request.hwFecIdRequestColl()) {
    if (!response.hwFecIdIsMemberOf(entry.key)) unanswered.push_back(entry.key);
  }
  for (Nox::FecId const& fecId : unanswered) {
    Gantry::IntfId const l2Intf = wiring_.answersL2Intf
                                      ? Gantry::IntfId(Gantry::IntfId::Kind::l2Intf, fecId.number())
                                      : Gantry::IntfId();
    fecResponseIs(response, fecId, hwFecIdBase + fecId.number(), l2Intf);
  }
  return !unanswered.empty();
}

bool FecProgrammer::withdrawUnrequested() {
  auto& request = wiring_.request(world_);
  auto& response = wiring_.response(world_);
  std::vector<Nox::FecId> unrequested;
  for (auto const& entry : response.hwFecIdColl()) {
    if (!request.hwFecIdRequestIsMemberOf(entry.key)) unrequested.push_back(entry.key);
  }
  for (Nox::FecId const& fecId : unrequested) fecResponseDel(response, fecId);
  return !unrequested.empty();
}

}  // namespace Noxsim
