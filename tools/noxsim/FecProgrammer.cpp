// The emulated FEC programmer: requests in, responses out.

#include "tools/noxsim/FecProgrammer.h"

#include <set>

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

class FecProgrammer::RequestWatch : public Nox::FecIdToHwFecIdRequest::NotifieeConst {
 public:
  RequestWatch(Vel::Ptr<Nox::FecIdToHwFecIdRequest const> const& r, FecProgrammer* programmer)
      : NotifieeConst(r), programmer_(programmer) {}
  void onHwFecIdRequest(Nox::FecId const& fecId) override { programmer_->changed(fecId); }
  void onHwFecIdRequest() override { programmer_->changedAll(); }
  VEL_DESCRIBE("Noxsim::FecProgrammer::RequestWatch", "hwFecIdRequest")

 private:
  FecProgrammer* programmer_;
};

class FecProgrammer::ResponseWatch : public Nox::FecIdToHwFecIdResponse::NotifieeConst {
 public:
  ResponseWatch(Vel::Ptr<Nox::FecIdToHwFecIdResponse const> const& r, FecProgrammer* programmer)
      : NotifieeConst(r), programmer_(programmer) {}
  void onHwFecId(Nox::FecId const& fecId) override { programmer_->changed(fecId); }
  void onHwFecId() override { programmer_->changedAll(); }
  VEL_DESCRIBE("Noxsim::FecProgrammer::ResponseWatch", "hwFecId")

 private:
  FecProgrammer* programmer_;
};

FecProgrammer::FecProgrammer(World& world, FecProgrammerWiring const& wiring)
    : world_(world),
      wiring_(wiring),
      requestWatch_(new RequestWatch(&wiring.request(world), this)),
      responseWatch_(new ResponseWatch(&wiring.response(world), this)) {}

FecProgrammer::~FecProgrammer() = default;

void FecProgrammer::autoOnIs(bool on) {
  // Switched on, it catches up with whatever was written while it was off.
  if (on && !autoOn_) changedAll();
  autoOn_ = on;
}

bool FecProgrammer::react() {
  if (!autoOn_) return false;
  std::vector<Nox::FecId> const fecIds = takeChanged();
  bool const answered = answerRequests(fecIds);
  bool const withdrawn = withdrawUnrequested(fecIds);
  return answered || withdrawn;
}

std::vector<Nox::FecId> FecProgrammer::takeChanged() {
  std::vector<Nox::FecId> fecIds;
  if (everything_) {
    std::set<Nox::FecId> all;
    for (auto const& entry : wiring_.request(world_).hwFecIdRequestColl()) all.insert(entry.key);
    for (auto const& entry : wiring_.response(world_).hwFecIdColl()) all.insert(entry.key);
    fecIds.assign(all.begin(), all.end());
  } else {
    fecIds.assign(changed_.begin(), changed_.end());
  }
  everything_ = false;
  changed_.clear();
  return fecIds;
}

bool FecProgrammer::answerRequests(std::vector<Nox::FecId> const& fecIds) {
  auto& request = wiring_.request(world_);
  auto& response = wiring_.response(world_);
  std::vector<Nox::FecId> unanswered;
  for (Nox::FecId const& fecId : fecIds) {
    if (request.hwFecIdRequestIsMemberOf(fecId) && !response.hwFecIdIsMemberOf(fecId)) {
      unanswered.push_back(fecId);
    }
  }
  for (Nox::FecId const& fecId : unanswered) {
    Gantry::IntfId const l2Intf = wiring_.answersL2Intf
                                      ? Gantry::IntfId(Gantry::IntfId::Kind::l2Intf, fecId.number())
                                      : Gantry::IntfId();
    fecResponseIs(response, fecId, hwFecIdBase + fecId.number(), l2Intf);
  }
  return !unanswered.empty();
}

bool FecProgrammer::withdrawUnrequested(std::vector<Nox::FecId> const& fecIds) {
  auto& request = wiring_.request(world_);
  auto& response = wiring_.response(world_);
  std::vector<Nox::FecId> unrequested;
  for (Nox::FecId const& fecId : fecIds) {
    if (response.hwFecIdIsMemberOf(fecId) && !request.hwFecIdRequestIsMemberOf(fecId)) {
      unrequested.push_back(fecId);
    }
  }
  for (Nox::FecId const& fecId : unrequested) fecResponseDel(response, fecId);
  return !unrequested.empty();
}

}  // namespace Noxsim
