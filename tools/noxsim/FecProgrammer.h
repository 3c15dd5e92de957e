#pragma once

// The emulated FEC programmer, one per kind of FEC request (`floodset` and `mac`, one entry each
// in fecProgrammerTable()). With `fecprogrammer WHICH auto on` it answers, after
// every command, each requested FEC id that has no response yet, in ascending FEC id order, with
// hardware FEC id 100000 + NUM (and, where the kind wants one, layer-2 interface L2IntfNUM);
// then it withdraws, in ascending order, the responses whose request is gone. A response is
// written layer-2 interface first, hardware FEC id last, so that a reader notified of the
// hardware FEC id finds the whole response; it is removed in the same order.

#include <functional>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

#include "tools/noxsim/OutsideAgent.h"
#include "tools/noxsim/World.h"

namespace Noxsim {

struct FecProgrammerWiring {
  std::string_view which;
  std::function<Nox::FecIdToHwFecIdRequest&(World&)> request;
  std::function<Nox::FecIdToHwFecIdResponse&(World&)> response;
  // Whether the answers carry a layer-2 interface.
  bool answersL2Intf = false;
};

// In the order the programmers react.
std::vector<FecProgrammerWiring> const& fecProgrammerTable();
// The wiring of WHICH, or null.
FecProgrammerWiring const* fecProgrammerWiring(std::string_view which);

// Writes one response as the programmer does: l2IntfId entry, then hwFecId entry.
void fecResponseIs(Nox::FecIdToHwFecIdResponse& response, Nox::FecId fecId, uint64_t hwFecId,
                   Gantry::IntfId l2Intf);
// Removes one response in the same order; nothing when absent.
void fecResponseDel(Nox::FecIdToHwFecIdResponse& response, Nox::FecId fecId);

// It looks only at the FEC ids whose request or response changed since it last reacted (both
// tables are watched), so that one request costs it one answer, not a pass over every FEC; it
// looks at them all when it is switched on, or when either table is cleared.
class FecProgrammer : public OutsideAgent {
 public:
  FecProgrammer(World& world, FecProgrammerWiring const& wiring);
  ~FecProgrammer() override;
  std::string_view name() const override { return wiring_.which; }
  bool react() override;

  bool autoOn() const { return autoOn_; }
  void autoOnIs(bool on);

 private:
  class RequestWatch;
  class ResponseWatch;

  void changed(Nox::FecId fecId) { changed_.insert(fecId); }
  void changedAll() { everything_ = true; }
  // The FEC ids to look at, in ascending order, and forgets them.
  std::vector<Nox::FecId> takeChanged();
  bool answerRequests(std::vector<Nox::FecId> const& fecIds);
  bool withdrawUnrequested(std::vector<Nox::FecId> const& fecIds);

  World& world_;
  FecProgrammerWiring const& wiring_;
  bool autoOn_ = false;
  std::unique_ptr<RequestWatch> requestWatch_;
  std::unique_ptr<ResponseWatch> responseWatch_;
  std::set<Nox::FecId> changed_;
  bool everything_ = true;
};

}  // namespace Noxsim
