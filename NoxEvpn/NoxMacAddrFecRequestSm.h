#pragma once

// Nox::NoxMacAddrFecRequestSm turns the layer-2 RIB's resolution chains for remote MAC addresses
// (host -> label -> destination, host -> load balance -> label -> destination, ...) into FEC
// records and hardware FEC id requests for the FEC programmer, and copies the hardware FEC ids
// that come back into the object-tuple -> hardware-id map.
//
// With maxChainLength 2 (the default) every chain is flattened into one FEC per tuple that a host
// uses directly; with 3 every label and load balance gets a FEC of its own and the levels are
// linked by FEC id. A hardware id is requested only for tuples some host uses directly. At
// start-up everything is rebuilt from a backlog that a yielding task works off, tuples first.
//
// The records it exchanges with the FEC programmer (requests, responses, hardware ids) are Kelp
// tables, so the programmer and tools in other processes can read them.

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "platform/cog/NumAllocator.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"
#include "platform/kelp/VelKelpEntity.h"
#include "platform/types/Fib/Fib.h"
#include "platform/types/L2Rib/L2RibTables.h"
#include "platform/vel/Vel.h"

namespace Nox {

using FecId = Kelp::Fib::FecId;
using L2Rib::ObjTuple;

// ---- Records ----

class ObjTupleAndFecId {
 public:
  ObjTupleAndFecId() = default;
  ObjTupleAndFecId(ObjTuple const& objTuple, FecId fecId) : objTuple_(objTuple), fecId_(fecId) {}
  ObjTuple const& objTuple() const { return objTuple_; }
  FecId fecId() const { return fecId_; }
  friend bool operator==(ObjTupleAndFecId const&, ObjTupleAndFecId const&) = default;

 private:
  ObjTuple objTuple_;
  FecId fecId_;
};
std::string valueToStrep(ObjTupleAndFecId const& v);

class FecToHwFecId {
 public:
  FecToHwFecId() = default;
  FecToHwFecId(FecId fecId, uint64_t hwFecId) : fecId_(fecId), hwFecId_(hwFecId) {}
  FecId fecId() const { return fecId_; }
  uint64_t hwFecId() const { return hwFecId_; }
  friend bool operator==(FecToHwFecId const&, FecToHwFecId const&) = default;

 private:
  FecId fecId_;
  uint64_t hwFecId_ = 0;
};
std::string valueToStrep(FecToHwFecId const& v);

class FecToL2IntfId {
 public:
  FecToL2IntfId() = default;
  FecToL2IntfId(FecId fecId, Gantry::IntfId l2IntfId) : fecId_(fecId), l2IntfId_(l2IntfId) {}
  FecId fecId() const { return fecId_; }
  Gantry::IntfId l2IntfId() const { return l2IntfId_; }
  friend bool operator==(FecToL2IntfId const&, FecToL2IntfId const&) = default;

 private:
  FecId fecId_;
  Gantry::IntfId l2IntfId_;
};
std::string valueToStrep(FecToL2IntfId const& v);

// FEC records, the tuple each FEC stands for, and the FEC ids whose hardware id is wanted.
class FecIdToHwFecIdRequest : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<FecIdToHwFecIdRequest> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onFec(FecId const&) {}
    virtual void onFec() {}
    virtual void onFec6(FecId const&) {}
    virtual void onFec6() {}
    virtual void onObjTupleToFecId(ObjTuple const&) {}
    virtual void onObjTupleToFecId() {}
    virtual void onHwFecIdRequest(FecId const&) {}
    virtual void onHwFecIdRequest() {}
  };
  explicit FecIdToHwFecIdRequest(Vel::Name name) : TableEntity(std::move(name)) {}

  void fecIs(Kelp::Fib::Fec const& fec) { fecIs(fec.fecId(), fec); }
  void objTupleToFecIdIs(ObjTupleAndFecId const& entry) {
    objTupleToFecIdIs(entry.objTuple(), entry);
  }
  void hwFecIdRequestIs(FecId fecId) { hwFecIdRequestIs(fecId, true); }

  VEL_DESCRIBE("Nox::FecIdToHwFecIdRequest", "fec", "fec6", "objTupleToFecId", "hwFecIdRequest")

 public:
  VELKELP_COLLECTION(fec, Fec, FecId, Kelp::Fib::Fec)

  VELKELP_COLLECTION(fec6, Fec6, FecId, Kelp::Fib::Fec)

  VELKELP_COLLECTION(objTupleToFecId, ObjTupleToFecId, ObjTuple, ObjTupleAndFecId)

  VELKELP_COLLECTION(hwFecIdRequest, HwFecIdRequest, FecId, bool)
};

// The FEC programmer's answers: per FEC id the hardware FEC id and the layer-2 interface.
class FecIdToHwFecIdResponse : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<FecIdToHwFecIdResponse> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onHwFecId(FecId const&) {}
    virtual void onHwFecId() {}
    virtual void onL2IntfId(FecId const&) {}
    virtual void onL2IntfId() {}
  };
  explicit FecIdToHwFecIdResponse(Vel::Name name) : TableEntity(std::move(name)) {}

  void hwFecIdIs(FecToHwFecId const& entry) { hwFecIdIs(entry.fecId(), entry); }
  void l2IntfIdIs(FecToL2IntfId const& entry) { l2IntfIdIs(entry.fecId(), entry); }

  VEL_DESCRIBE("Nox::FecIdToHwFecIdResponse", "hwFecId", "l2IntfId")

 public:
  VELKELP_COLLECTION(hwFecId, HwFecId, FecId, FecToHwFecId)

  VELKELP_COLLECTION(l2IntfId, L2IntfId, FecId, FecToL2IntfId)
};

class ObjTupleToHwId : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<ObjTupleToHwId> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onHwId(ObjTuple const&) {}
    virtual void onHwId() {}
  };
  explicit ObjTupleToHwId(Vel::Name name) : TableEntity(std::move(name)) {}

  VEL_DESCRIBE("Nox::ObjTupleToHwId", "hwId")

 public:
  VELKELP_COLLECTION(hwId, HwId, ObjTuple, uint64_t)
};

// The FEC-number allocator every FEC machine starts with: the whole 32-bit range, up to 100
// released numbers taken back per allocation, and 10 s of quarantine before a released number
// is handed out again. Made in this order: config, status, then the allocator on the wheel's
// clock.
void fecNumAllocatorIs(Vel::Ptr<Cog::TimerWheel> const& timerWheel, Cog::NumAllocatorConfig& config,
                       Vel::Ptr<Cog::NumAllocatorStatus>& status,
                       Vel::Ptr<Cog::NumAllocator>& allocator);

Vel::Ptr<FecIdToHwFecIdRequest> fecIdToHwFecIdRequestFactory(Vel::Name name);
Vel::Ptr<FecIdToHwFecIdResponse> fecIdToHwFecIdResponseFactory(Vel::Name name);
Vel::Ptr<ObjTupleToHwId> objTupleToHwIdFactory(Vel::Name name);

// The tuples one tuple leads to, or comes from.
NOX_SET_ENTITY(ObjTupleSet, "Nox::ObjTupleSet", ObjTuple, objTuple, ObjTuple, ObjTuple);

// ---- The machine ----

// Watches one input table: a key's change calls the keyed handler, a whole-table change the
// handler without argument.
#define NOX_MACFEC_INPUT_NOTIFIEE(Vel_, Input, OnName, Key, handler)     \
  class Vel_ : public Input::NotifieeConst {                             \
   public:                                                               \
    Vel_(Vel::Ptr<Input const> const& input, NoxMacAddrFecRequestSm* sm) \
        : NotifieeConst(input), sm_(sm) {}                               \
    void OnName(Key const& key) override {                               \
      if (hasNotificationActive()) sm_->handler(key);                    \
    }                                                                    \
    void OnName() override {                                             \
      if (hasNotificationActive()) sm_->handler();                       \
    }                                                                    \
    VEL_DESCRIBE("Nox::NoxMacAddrFecRequestSm::" #Vel_, #OnName)         \
                                                                         \
   private:                                                              \
    NoxMacAddrFecRequestSm* sm_;                                         \
  }

class NoxMacAddrFecRequestSm : public Vel::PtrInterface, public Vel::Described {
 public:
  using LabelId = L2Rib::LabelId;
  using LoadBalanceId = L2Rib::LoadBalanceId;
  using DestId = L2Rib::DestId;
  using MacVlanPair = Bridging::MacVlanPair;

  static constexpr Cog::TaskPriority reviewPriority = 2;
  static constexpr uint8_t fecAdjType = 8;

  NOX_MACFEC_INPUT_NOTIFIEE(VelLabelTable, L2Rib::LabelOutput, onLabel, LabelId, handleLabel);
  NOX_MACFEC_INPUT_NOTIFIEE(VelLbTable, L2Rib::LoadBalanceOutput, onLoadBalance, LoadBalanceId,
                            handleLb);
  NOX_MACFEC_INPUT_NOTIFIEE(VelDestTable, L2Rib::DestOutput, onDest, DestId, handleDest);
  NOX_MACFEC_INPUT_NOTIFIEE(VelL2RibOutput, L2Rib::HostOutput, onHost, MacVlanPair,
                            handleL2RibHost);
  NOX_MACFEC_INPUT_NOTIFIEE(VelFecResponse, FecIdToHwFecIdResponse, onHwFecId, FecId,
                            handleHwFecIdResponse);

  class VelReviewBacklog : public Cog::Task::Notifiee {
   public:
    explicit VelReviewBacklog(NoxMacAddrFecRequestSm* sm) : sm_(sm) {}
    void onTaskRun() override { sm_->doReviewBacklog(); }

   private:
    NoxMacAddrFecRequestSm* sm_;
  };

  static Vel::Ptr<NoxMacAddrFecRequestSm> NoxMacAddrFecRequestSmIs(
      Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
      Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
      Vel::Ptr<L2Rib::DestOutput const> const& destTable,
      Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
      Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
      Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
      Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap,
      Vel::Ptr<Cog::TimerWheel> const& timerWheel, Vel::Ptr<Cog::TaskScheduler> const& scheduler);
  ~NoxMacAddrFecRequestSm() override;

  Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest() const { return fecRequest_; }
  Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap() const { return objTupleToHwIdMap_; }
  Vel::Ptr<Cog::NumAllocator> const& numAllocator() const { return numAllocator_; }
  Cog::NumAllocatorConfig const& numAllocatorConfig() const { return numAllocatorConfig_; }
  Vel::Ptr<Cog::NumAllocatorStatus> const& numAllocatorStatus() const {
    return numAllocatorStatus_;
  }
  uint32_t maxChainLength() const { return maxChainLength_; }
  // Raises Vel::RangeException for anything but 2 or 3, keeping the value given.
  void maxChainLengthIs(uint32_t n);
  Vel::Ptr<Cog::TimerTask> const& reviewBacklog() const { return reviewBacklog_; }
  double reviewInterval() const { return reviewInterval_; }
  void reviewIntervalIs(double seconds) { reviewInterval_ = seconds; }
  bool backLogQsDrained() const { return backLogQsDrained_; }
  bool initialized() const { return initialized_; }
  // What waits, in this order: the start-up backlog (tuples, then hosts, in queue order), the
  // hosts whose chain misses a piece (in macVlanToObjTupleCache's order), then the requests
  // without a response (in fecRequestCache's order).
  std::vector<PendingItem> pending() const;

  void handleInitialized();
  void handleL2RibHost(MacVlanPair const& macVlan);
  void handleLabel(LabelId const& labelId);
  void handleLb(LoadBalanceId const& lbId);
  void handleDest(DestId const& destId);
  void handleHwFecIdResponse(FecId const& fecId);
  void handleL2RibHost();
  void handleLabel();
  void handleLb();
  void handleDest();
  void handleHwFecIdResponse();
  void doReviewBacklog();

  // The FEC id bound to a tuple, or the default when none.
  FecId objTupleToFecId(ObjTuple const& objTuple) const;
  bool isFecDeleted(ObjTuple const& objTuple) const;

  VEL_DESCRIBE("Nox::NoxMacAddrFecRequestSm", "labelTable", "lbTable", "destTable", "fecResponse",
               "l2RibOutput", "fecRequest", "objTupleToHwIdMap", "timerWheel", "scheduler",
               "nextHopReverseMap", "nextHopForwardMap", "objTupleToFecId", "isFirstLevelNextHop",
               "fecRequestCache", "macVlanToObjTupleCache", "fecRequestReverseMap", "hostBackLogQ",
               "objTupleBackLogQ", "fecCache", "objTupleCache", "numAllocator",
               "numAllocatorConfig", "numAllocatorStatus", "maxChainLength", "reviewBacklog",
               "reviewInterval", "backLogQsDrained", "initialized")

 private:
  NoxMacAddrFecRequestSm(Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
                         Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
                         Vel::Ptr<L2Rib::DestOutput const> const& destTable,
                         Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
                         Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
                         Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
                         Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap,
                         Vel::Ptr<Cog::TimerWheel> const& timerWheel,
                         Vel::Ptr<Cog::TaskScheduler> const& scheduler);

  // `oldTuple`: the host's tuple in macVlanToObjTupleCache (the default when none).
  void updateMapsForHostTableChange(L2Rib::HostAndSource const& hostAndSource,
                                    MacVlanPair const& macVlan, ObjTuple const& oldTuple);
  void updateMapsForLabelTableChange(L2Rib::Label const& label, LabelId labelId,
                                     ObjTuple const& objTuple);
  void updateMapsForLbTableChange(L2Rib::LoadBalance const& lb, LoadBalanceId lbId,
                                  ObjTuple const& objTuple);
  void updateMapsForDestTableChange(L2Rib::Dest const& dest, DestId destId,
                                    ObjTuple const& objTuple);
  // The tuple's children become `children` (none when deleted).
  template <class Children>
  bool sameChildren(ObjTuple const& objTuple, Children const& children) const;
  template <class Children>
  void updateForwardMap(ObjTuple const& objTuple, Children const& children, bool deleted);
  // The tuple's FEC id: `bound`, as the caller read it from objTupleToFecId, or a new one.
  FecId getFecId(FecId bound);
  FecId idToFecId(int64_t id) const;
  Kelp::Fib::Fec buildFecForLb(L2Rib::LoadBalance const& lb, LoadBalanceId lbId,
                               ObjTuple const& objTuple, FecId bound);
  Kelp::Fib::Fec buildFecForLabel(L2Rib::Label const& label, LabelId labelId,
                                  ObjTuple const& objTuple, FecId bound);
  // Builders note a missing piece of the chain in chainIncomplete_.
  Kelp::Fib::Via viaToLabelFlattened(ObjTuple const& labelTuple);
  Tunnel::TunnelTable::TunnelId tunnelIdOf(L2Rib::Dest const& dest) const;
  void addFec(Kelp::Fib::Fec const& fec, ObjTuple const& objTuple, FecId bound);
  void deleteFec(ObjTuple const& objTuple);
  void handleDependants(ObjTuple const& objTuple);
  // `bound`, when given, is the tuple's FEC id as just published (saves reading it back).
  void maybeUpdateFecRequest(ObjTuple const& objTuple, bool isDelete, FecId const* bound = nullptr);
  void makeFecRequest(ObjTuple const& objTuple, FecId fecId);
  void deleteFecRequest(ObjTuple const& objTuple);
  // Re-evaluates a label or load-balance tuple.
  void dispatchTuple(ObjTuple const& objTuple);
  bool reviewShouldYield();

  // Inputs: the RIB's label, load-balance and destination tables, the programmer's responses,
  // and the RIB's hosts.
  Vel::Ptr<L2Rib::LabelOutput const> labelTable_;
  Vel::Ptr<L2Rib::LoadBalanceOutput const> lbTable_;
  Vel::Ptr<L2Rib::DestOutput const> destTable_;
  Vel::Ptr<FecIdToHwFecIdResponse const> fecResponse_;
  Vel::Ptr<L2Rib::HostOutput const> l2RibOutput_;
  // Outputs: FEC records and requests, and the hardware id of every requested tuple.
  Vel::Ptr<FecIdToHwFecIdRequest> fecRequest_;
  Vel::Ptr<ObjTupleToHwId> objTupleToHwIdMap_;
  // The event thread's timers (the allocator's clock) and tasks.
  Vel::Ptr<Cog::TimerWheel> timerWheel_;
  Vel::Ptr<Cog::TaskScheduler> scheduler_;
  std::unique_ptr<VelLabelTable> velLabelTable_;
  std::unique_ptr<VelLbTable> velLbTable_;
  std::unique_ptr<VelDestTable> velDestTable_;
  std::unique_ptr<VelFecResponse> velFecResponse_;
  std::unique_ptr<VelL2RibOutput> velL2RibOutput_;

 public:
  // Per tuple, the tuples whose next hop it is (its parents).
  VEL_INTERNAL_ENTITY_COLLECTION(nextHopReverseMap, NextHopReverseMap, ObjTuple, ObjTupleSet)

 public:
  // Per label or load-balance tuple, its next tuples (children).
  VEL_INTERNAL_ENTITY_COLLECTION(nextHopForwardMap, NextHopForwardMap, ObjTuple, ObjTupleSet)

 public:
  // How many hosts point directly at a tuple; absent = 0.
  VEL_INTERNAL_VALUE_COLLECTION(isFirstLevelNextHop, IsFirstLevelNextHop, ObjTuple, uint32_t)

 public:
  // Tuples whose hardware id is requested, with the FEC id requested.
  VEL_INTERNAL_VALUE_COLLECTION(fecRequestCache, FecRequestCache, ObjTuple, FecId)

 public:
  // The tuple last seen for each host.
  VEL_INTERNAL_VALUE_COLLECTION(macVlanToObjTupleCache, MacVlanToObjTupleCache, MacVlanPair,
                                ObjTuple)

 public:
  // Inverse of fecRequestCache: a response whose FEC id is not here is stale.
  VEL_INTERNAL_VALUE_COLLECTION(fecRequestReverseMap, FecRequestReverseMap, FecId, ObjTuple)

 public:
  // Hosts, and label, load-balance and destination tuples, waiting for the review task.
  VEL_INTERNAL_VALUE_COLLECTION(hostBackLogQ, HostBackLogQ, MacVlanPair, bool)

 public:
  VEL_INTERNAL_VALUE_COLLECTION(objTupleBackLogQ, ObjTupleBackLogQ, ObjTuple, bool)

 public:
  // FEC ids this machine has published, and the tuples they stand for.
  VEL_INTERNAL_VALUE_COLLECTION(fecCache, FecCache, FecId, bool)

 public:
  VEL_INTERNAL_VALUE_COLLECTION(objTupleCache, ObjTupleCache, ObjTuple, bool)

 private:
  // FEC numbers, with their configuration and state.
  Vel::Ptr<Cog::NumAllocator> numAllocator_;
  Cog::NumAllocatorConfig numAllocatorConfig_;
  Vel::Ptr<Cog::NumAllocatorStatus> numAllocatorStatus_;
  uint32_t maxChainLength_ = 2;
  // The FEC records as this machine last published them (it alone writes FECs under its
  // adjacency type): a rebuilt FEC is compared here instead of being read back from the table.
  struct FecIdHasher {
    std::size_t operator()(FecId const& fecId) const { return fecId.hash(); }
  };
  std::unordered_map<FecId, Kelp::Fib::Fec, FecIdHasher> publishedFec_;
  // Works off the start-up backlog, yielding to the scheduler.
  Vel::Ptr<Cog::TimerTask> reviewBacklog_;
  VelReviewBacklog velReviewBacklog_{this};
  double reviewInterval_ = 0.5;
  // Kept for observers; the review does not change it.
  bool backLogQsDrained_ = false;
  bool initialized_ = false;
  // Whether the FEC just built misses a piece of its chain.
  bool chainIncomplete_ = false;
  // Since when the backlog's entries, the tuples whose chain misses a piece and the requests
  // without a response have waited.
  PendingBatches tupleBacklogSince_;
  PendingBatches hostBacklogSince_;
  PendingSince<ObjTuple> chainIncompleteSince_;
  PendingSince<FecId> requestSince_;
};

Vel::Ptr<NoxMacAddrFecRequestSm> noxMacAddrFecRequestSmFactory(
    Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
    Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
    Vel::Ptr<L2Rib::DestOutput const> const& destTable,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
    Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
    Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
    Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap, Vel::Ptr<Cog::TimerWheel> const& timerWheel,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler);

}  // namespace Nox
