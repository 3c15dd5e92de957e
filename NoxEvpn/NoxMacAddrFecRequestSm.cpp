// Nox::NoxMacAddrFecRequestSm: the layer-2 RIB's host, label, load-balance and destination
// tables in; FEC records, hardware FEC id requests and object-tuple hardware ids out.
//
// The machine keeps the chains as forward (parent -> children) and reverse (child -> parents)
// maps, so that a change anywhere in a chain re-evaluates the tuples above it. A FEC id is bound
// to a tuple for as long as the tuple keeps its FEC; a released number rests in the allocator's
// quarantine before another FEC may take it, so that the programmer never confuses two FECs.

#include "NoxEvpn/NoxMacAddrFecRequestSm.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "NoxMacAddrFecRequestSm";
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Kelp::Fib::Fec;
using Kelp::Fib::Via;
using L2Rib::HostAndSource;
using L2Rib::Label;
using L2Rib::LoadBalance;

// ---- Records ----

std::string valueToStrep(ObjTupleAndFecId const& v) {
  std::ostringstream os;
  os << "Value('Nox::ObjTupleAndFecId', ** {'objTuple': " << v.objTuple()
     << ", 'fecId': " << v.fecId() << "})";
  return os.str();
}

std::string valueToStrep(FecToHwFecId const& v) {
  std::ostringstream os;
  os << "Value('Nox::FecToHwFecId', ** {'fecId': " << v.fecId() << ", 'hwFecId': " << v.hwFecId()
     << "})";
  return os.str();
}

std::string valueToStrep(FecToL2IntfId const& v) {
  std::ostringstream os;
  os << "Value('Nox::FecToL2IntfId', ** {'fecId': " << v.fecId() << ", 'l2IntfId': " << v.l2IntfId()
     << "})";
  return os.str();
}

namespace {

using LabelId = L2Rib::LabelId;
using LoadBalanceId = L2Rib::LoadBalanceId;
using DestId = L2Rib::DestId;
using MacVlanPair = Bridging::MacVlanPair;
using LabelAndSource = L2Rib::LabelAndSource;

std::string valueToStrep(LabelId const& v) { return std::to_string(v.value()); }
std::string valueToStrep(LoadBalanceId const& v) { return std::to_string(v.value()); }
std::string valueToStrep(DestId const& v) { return std::to_string(v.value()); }
std::string valueToStrep(LabelAndSource const& v) {
  std::ostringstream os;
  os << "label=" << v.label().label() << " next=" << v.label().next() << " source=" << v.source();
  return os.str();
}
std::string valueToStrep(LoadBalance const& v) {
  std::ostringstream os;
  os << "next=";
  for (ObjTuple const& t : v) os << (&t == v.begin() ? "" : ",") << t;
  return os.str();
}
std::string valueToStrep(HostAndSource const& v) {
  std::ostringstream os;
  os << "host=" << v.host() << " source=" << v.source();
  return os.str();
}
std::string valueToStrep(bool v) { return v ? "true" : "false"; }
std::string valueToStrep(uint64_t v) { return std::to_string(v); }

template <class T>
std::string textOf(T const& v) {
  return valueToStrep(v);
}

// Every record kept in these tables, by the name its agent gives it, so kelpcat prints them.
#define NOX_KELP_RECORD(Type, typeNameText) \
  Kelp::RecordTypeRegistrar<Type> const Type##Record(typeNameText, textOf<Type>)

using Dest = L2Rib::Dest;
using Bool = bool;
using U64 = uint64_t;
NOX_KELP_RECORD(FecId, "Kelp::Fib::FecId");
NOX_KELP_RECORD(Fec, "Kelp::Fib::Fec");
NOX_KELP_RECORD(ObjTuple, "L2Rib::ObjTuple");
NOX_KELP_RECORD(ObjTupleAndFecId, "Nox::ObjTupleAndFecId");
NOX_KELP_RECORD(FecToHwFecId, "Nox::FecToHwFecId");
NOX_KELP_RECORD(FecToL2IntfId, "Nox::FecToL2IntfId");
NOX_KELP_RECORD(LabelId, "L2Rib::LabelId");
NOX_KELP_RECORD(LoadBalanceId, "L2Rib::LoadBalanceId");
NOX_KELP_RECORD(DestId, "L2Rib::DestId");
NOX_KELP_RECORD(MacVlanPair, "Bridging::MacVlanPair");
NOX_KELP_RECORD(LabelAndSource, "L2Rib::LabelAndSource");
NOX_KELP_RECORD(LoadBalance, "L2Rib::LoadBalance");
NOX_KELP_RECORD(HostAndSource, "L2Rib::HostAndSource");
NOX_KELP_RECORD(Dest, "L2Rib::Dest");
NOX_KELP_RECORD(Bool, "bool");
NOX_KELP_RECORD(U64, "U64");

}  // namespace

void fecNumAllocatorIs(Vel::Ptr<Cog::TimerWheel> const& timerWheel, Cog::NumAllocatorConfig& config,
                       Vel::Ptr<Cog::NumAllocatorStatus>& status,
                       Vel::Ptr<Cog::NumAllocator>& allocator) {
  config = Cog::NumAllocatorConfig(Cog::Range(0, 0xFFFFFFFF), 100);
  config.expiryTimeIs(10.0);
  status = Vel::Ptr<Cog::NumAllocatorStatus>(new Cog::NumAllocatorStatus);
  allocator = Vel::Ptr<Cog::NumAllocator>(new Cog::NumAllocator(config, status, timerWheel));
}

Vel::Ptr<FecIdToHwFecIdRequest> fecIdToHwFecIdRequestFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<FecIdToHwFecIdRequest>(new FecIdToHwFecIdRequest(std::move(name))));
}

Vel::Ptr<FecIdToHwFecIdResponse> fecIdToHwFecIdResponseFactory(Vel::Name name) {
  return Vel::validPtr(
      Vel::Ptr<FecIdToHwFecIdResponse>(new FecIdToHwFecIdResponse(std::move(name))));
}

Vel::Ptr<ObjTupleToHwId> objTupleToHwIdFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<ObjTupleToHwId>(new ObjTupleToHwId(std::move(name))));
}

// ---- Construction ----

NoxMacAddrFecRequestSm::NoxMacAddrFecRequestSm(
    Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
    Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
    Vel::Ptr<L2Rib::DestOutput const> const& destTable,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
    Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
    Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
    Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap, Vel::Ptr<Cog::TimerWheel> const& timerWheel,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler)
    : labelTable_(labelTable),
      lbTable_(lbTable),
      destTable_(destTable),
      fecResponse_(fecResponse),
      l2RibOutput_(l2RibOutput),
      fecRequest_(fecRequest),
      objTupleToHwIdMap_(objTupleToHwIdMap),
      timerWheel_(timerWheel),
      scheduler_(scheduler) {
  VEL_ASSERT(labelTable_ && lbTable_ && destTable_ && fecResponse_ && l2RibOutput_);
  VEL_ASSERT(fecRequest_ && objTupleToHwIdMap_ && timerWheel_ && scheduler_);
  velLabelTable_ = std::make_unique<VelLabelTable>(labelTable_, this);
  velLbTable_ = std::make_unique<VelLbTable>(lbTable_, this);
  velDestTable_ = std::make_unique<VelDestTable>(destTable_, this);
  velFecResponse_ = std::make_unique<VelFecResponse>(fecResponse_, this);
  velL2RibOutput_ = std::make_unique<VelL2RibOutput>(l2RibOutput_, this);
  handleInitialized();
}

NoxMacAddrFecRequestSm::~NoxMacAddrFecRequestSm() {
  if (reviewBacklog_) {
    reviewBacklog_->unscheduleTask();
    reviewBacklog_->notifieeIs(nullptr);
  }
}

Vel::Ptr<NoxMacAddrFecRequestSm> NoxMacAddrFecRequestSm::NoxMacAddrFecRequestSmIs(
    Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
    Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
    Vel::Ptr<L2Rib::DestOutput const> const& destTable,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
    Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
    Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
    Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap, Vel::Ptr<Cog::TimerWheel> const& timerWheel,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler) {
  return Vel::Ptr<NoxMacAddrFecRequestSm>(
      new NoxMacAddrFecRequestSm(labelTable, lbTable, destTable, fecResponse, l2RibOutput,
                                 fecRequest, objTupleToHwIdMap, timerWheel, scheduler));
}

Vel::Ptr<NoxMacAddrFecRequestSm> noxMacAddrFecRequestSmFactory(
    Vel::Ptr<L2Rib::LabelOutput const> const& labelTable,
    Vel::Ptr<L2Rib::LoadBalanceOutput const> const& lbTable,
    Vel::Ptr<L2Rib::DestOutput const> const& destTable,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& fecResponse,
    Vel::Ptr<L2Rib::HostOutput const> const& l2RibOutput,
    Vel::Ptr<FecIdToHwFecIdRequest> const& fecRequest,
    Vel::Ptr<ObjTupleToHwId> const& objTupleToHwIdMap, Vel::Ptr<Cog::TimerWheel> const& timerWheel,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler) {
  return NoxMacAddrFecRequestSm::NoxMacAddrFecRequestSmIs(labelTable, lbTable, destTable,
                                                          fecResponse, l2RibOutput, fecRequest,
                                                          objTupleToHwIdMap, timerWheel, scheduler);
}

void NoxMacAddrFecRequestSm::maxChainLengthIs(uint32_t n) {
  if (n == maxChainLength_) return;
  // Stored before the check: a rejected value stays, as the agent's configuration shows it.
  maxChainLength_ = n;
  if (n != 2 && n != 3) {
    throw Vel::RangeException("NoxMacAddrFecRequestSm::maxChainLength < 2 or > 3 not allowed");
  }
}

// ---- Initialization ----

// Nothing survives a restart: the request tables are emptied and every FEC is rebuilt from the
// backlog under freshly allocated FEC ids.
void NoxMacAddrFecRequestSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized");
  fecNumAllocatorIs(timerWheel_, numAllocatorConfig_, numAllocatorStatus_, numAllocator_);
  initialized_ = true;
  handleL2RibHost();
  handleLabel();
  handleLb();
  handleDest();
  fecRequest_->hwFecIdRequestDelAll();
  fecRequest_->fecDelAll();
  fecRequest_->fec6DelAll();
  fecRequest_->objTupleToFecIdDelAll();
  reviewBacklog_ =
      Vel::Ptr<Cog::TimerTask>(new Cog::TimerTask(scheduler_, reviewPriority, "reviewTask"));
  reviewBacklog_->notifieeIs(&velReviewBacklog_);
  reviewBacklog_->scheduleTaskDelay(reviewInterval_);
}

// ---- Whole-table handlers: queue every key for the review ----

void NoxMacAddrFecRequestSm::handleL2RibHost() {
  NOX_TRACE_ENTRY("handleL2RibHost");
  if (!initialized()) return;
  // Room for every host at once, in the queue and in the per-host cache the review fills, so
  // that neither grows step by step through a start-up of hundreds of thousands of hosts.
  std::size_t const hosts = l2RibOutput_->hosts();
  hostBackLogQ_.reserve(hostBackLogQs() + hosts);
  macVlanToObjTupleCache_.reserve(std::max(macVlanToObjTupleCaches(), hosts));
  std::size_t const before = hostBackLogQs();
  for (auto const& entry : l2RibOutput_->hostColl()) hostBackLogQIs(entry.key, true);
  hostBacklogSince_.queued(hostBackLogQs() - before, scheduler_->now());
}

void NoxMacAddrFecRequestSm::handleLabel() {
  NOX_TRACE_ENTRY("handleLabel");
  if (!initialized()) return;
  std::size_t const before = objTupleBackLogQs();
  for (auto const& entry : labelTable_->labelColl()) {
    objTupleBackLogQIs(ObjTuple(entry.key.value(), L2Rib::tableTypeLabel_), true);
  }
  tupleBacklogSince_.queued(objTupleBackLogQs() - before, scheduler_->now());
}

void NoxMacAddrFecRequestSm::handleLb() {
  NOX_TRACE_ENTRY("handleLb");
  if (!initialized()) return;
  std::size_t const before = objTupleBackLogQs();
  for (auto const& entry : lbTable_->loadBalanceColl()) {
    objTupleBackLogQIs(ObjTuple(entry.key.value(), L2Rib::tableTypeLoadBalance_), true);
  }
  tupleBacklogSince_.queued(objTupleBackLogQs() - before, scheduler_->now());
}

void NoxMacAddrFecRequestSm::handleDest() {
  NOX_TRACE_ENTRY("handleDest");
  if (!initialized()) return;
  std::size_t const before = objTupleBackLogQs();
  for (auto const& entry : destTable_->destColl()) {
    objTupleBackLogQIs(ObjTuple(entry.key.value(), L2Rib::tableTypeDest_), true);
  }
  tupleBacklogSince_.queued(objTupleBackLogQs() - before, scheduler_->now());
}

// ---- The review task ----

bool NoxMacAddrFecRequestSm::reviewShouldYield() {
  if (!reviewBacklog_->taskShouldYield()) return false;
  reviewBacklog_->scheduleTaskDelay(reviewInterval_);
  return true;
}

// Tuples before hosts, so that a host finds the FECs of its chain and is requested at once.
void NoxMacAddrFecRequestSm::doReviewBacklog() {
  NOX_TRACE_ENTRY("doReviewBacklog");
  VEL_ASSERT(initialized());
  while (auto const first = objTupleBackLogQColl().firstKey()) {
    if (reviewShouldYield()) return;
    ObjTuple const objTuple = *first;
    switch (objTuple.tableType()) {
      case L2Rib::tableTypeLabel_:
        handleLabel(LabelId(objTuple.id()));
        break;
      case L2Rib::tableTypeDest_:
        handleDest(DestId(objTuple.id()));
        break;
      case L2Rib::tableTypeLoadBalance_:
        handleLb(LoadBalanceId(objTuple.id()));
        break;
      default:
        VEL_ASSERT(0);
    }
    objTupleBackLogQDel(objTuple);
    tupleBacklogSince_.dequeued();
    reviewBacklog_->taskWorkCountInc();
  }
  while (auto const first = hostBackLogQColl().firstKey()) {
    if (reviewShouldYield()) return;
    MacVlanPair const macVlan = *first;
    handleL2RibHost(macVlan);
    hostBackLogQDel(macVlan);
    hostBacklogSince_.dequeued();
    reviewBacklog_->taskWorkCountInc();
  }
  reviewBacklog_->unscheduleTask();
}

// ---- Keyed handlers ----

void NoxMacAddrFecRequestSm::handleL2RibHost(MacVlanPair const& macVlan) {
  NOX_TRACE_ENTRY("handleL2RibHost MacVlan:{}", macVlan);
  if (!initialized()) return;
  HostAndSource const hostAndSource = l2RibOutput_->host(macVlan);
  bool const deleted = hostAndSource == HostAndSource();
  // Read once: re-evaluating the old tuple below does not change the host's cache entry.
  ObjTuple const old = macVlanToObjTupleCache(macVlan);
  updateMapsForHostTableChange(hostAndSource, macVlan, old);
  ObjTuple handled;
  if (old != ObjTuple()) {
    maybeUpdateFecRequest(old, false);
    macVlanToObjTupleCacheDel(macVlan);
    handled = old;
  }
  ObjTuple const& now = hostAndSource.host();
  if (!deleted && now != ObjTuple()) {
    maybeUpdateFecRequest(now, false);
    macVlanToObjTupleCacheIs(macVlan, now);
    handled = now;
  }
  switch (handled.tableType()) {
    case L2Rib::tableTypeNone_:
      break;
    case L2Rib::tableTypeLabel_:
      handleLabel(LabelId(handled.id()));
      break;
    case L2Rib::tableTypeLoadBalance_:
      handleLb(LoadBalanceId(handled.id()));
      break;
    default:
      VEL_ASSERT(0);  // a host never points at a destination
  }
}

// The old tuple loses the host at once (and is re-evaluated if that was its last one), also
// when the host still points at it: the count is added back below.
void NoxMacAddrFecRequestSm::updateMapsForHostTableChange(HostAndSource const& hostAndSource,
                                                          MacVlanPair const& macVlan,
                                                          ObjTuple const& oldTuple) {
  NOX_TRACE_ENTRY("updateMapsForHostTableChange MacVlan:{}", macVlan);
  bool const deleted = hostAndSource == HostAndSource();
  if (oldTuple != ObjTuple()) {
    uint32_t const count = isFirstLevelNextHop(oldTuple);
    if (count == 1) {
      isFirstLevelNextHopDel(oldTuple);
      dispatchTuple(oldTuple);
    } else if (count > 1) {
      isFirstLevelNextHopIs(oldTuple, count - 1);
    }
  }
  ObjTuple const& now = hostAndSource.host();
  if (deleted || now == ObjTuple()) return;
  if (auto count = isFirstLevelNextHopFind(now)) {
    ++*count;  // in place: the count keeps its place in the collection
  } else {
    isFirstLevelNextHopIs(now, 1);
  }
}

void NoxMacAddrFecRequestSm::dispatchTuple(ObjTuple const& objTuple) {
  if (objTuple.tableType() == L2Rib::tableTypeLabel_) handleLabel(LabelId(objTuple.id()));
  if (objTuple.tableType() == L2Rib::tableTypeLoadBalance_) handleLb(LoadBalanceId(objTuple.id()));
}

void NoxMacAddrFecRequestSm::handleLabel(LabelId const& labelId) {
  NOX_TRACE_ENTRY("handleLabel LabelId:{}", labelId);
  if (!initialized()) return;
  ObjTuple const objTuple(labelId.value(), L2Rib::tableTypeLabel_);
  Label const label = labelTable_->label(labelId).label();
  bool const deleted = label == Label();
  bool const existedBefore = nextHopForwardMapIsMemberOf(objTuple);
  updateMapsForLabelTableChange(label, labelId, objTuple);
  bool const eligible = isFirstLevelNextHop(objTuple) != 0 || maxChainLength() == 3;
  if (eligible && !(existedBefore && deleted)) {
    FecId const bound = objTupleToFecId(objTuple);
    addFec(buildFecForLabel(label, labelId, objTuple, bound), objTuple, bound);
    chainIncompleteSince_.settle(objTuple, chainIncomplete_, scheduler_->now());
  } else {
    deleteFec(objTuple);
    chainIncompleteSince_.stopped(objTuple);
  }
  // Three-level parents refer to the label by its FEC id, which an update keeps.
  if (maxChainLength() == 3 && existedBefore && !deleted) return;
  handleDependants(objTuple);
}

namespace {

// The fast trace of handleLb's entry says " LblId:" where the text trace says " LbId:"; readers
// of both rely on each as it is.
void traceLbEntry(LoadBalanceId const& lbId) {
  std::uint32_t const mask = noxTraceFacility->mask();
  if (mask & Trace::textBit(8)) [[unlikely]] {
    static constinit Trace::Site const site(noxTraceFacility, NOX_TRACE_FILE_NAME, __LINE__, 8,
                                            "handleLb LbId:{}");
    Trace::write<8>(mask & Trace::textBit(8), site, "handleLb LbId:{}", lbId);
  }
  if (mask & Trace::fleckBit(8)) [[unlikely]] {
    static constinit Trace::Site const site(noxTraceFacility, NOX_TRACE_FILE_NAME, __LINE__, 8,
                                            "handleLb LblId:{}");
    Trace::write<8>(mask & Trace::fleckBit(8), site, "handleLb LblId:{}", lbId);
  }
}

}  // namespace

void NoxMacAddrFecRequestSm::handleLb(LoadBalanceId const& lbId) {
  traceLbEntry(lbId);
  if (!initialized()) return;
  ObjTuple const objTuple(lbId.value(), L2Rib::tableTypeLoadBalance_);
  LoadBalance const lb = lbTable_->loadBalance(lbId);
  bool const deleted = lb == LoadBalance();
  bool const existedBefore = nextHopForwardMapIsMemberOf(objTuple);
  updateMapsForLbTableChange(lb, lbId, objTuple);
  bool const eligible = isFirstLevelNextHop(objTuple) != 0 || maxChainLength() == 3;
  if (eligible && !(existedBefore && deleted)) {
    FecId const bound = objTupleToFecId(objTuple);
    addFec(buildFecForLb(lb, lbId, objTuple, bound), objTuple, bound);
    chainIncompleteSince_.settle(objTuple, chainIncomplete_, scheduler_->now());
  } else {
    deleteFec(objTuple);
    chainIncompleteSince_.stopped(objTuple);
  }
  if (maxChainLength() == 3 && existedBefore && !deleted) return;
  handleDependants(objTuple);
}

void NoxMacAddrFecRequestSm::handleDest(DestId const& destId) {
  NOX_TRACE_ENTRY("handleDest DestId:{}", destId);
  if (!initialized()) return;
  L2Rib::Dest const dest = destTable_->dest(destId);
  if (!(dest == L2Rib::Dest())) VEL_ASSERT(dest.destType() == L2Rib::destTypeTunnel_);
  ObjTuple const objTuple(destId.value(), L2Rib::tableTypeDest_);
  updateMapsForDestTableChange(dest, destId, objTuple);
  handleDependants(objTuple);
}

void NoxMacAddrFecRequestSm::handleHwFecIdResponse(FecId const& fecId) {
  NOX_TRACE_ENTRY("handleHwFecIdResponse FecId:{}", fecId);
  if (!initialized()) return;
  auto const requested = fecRequestReverseMapColl().find(fecId);
  bool const present = fecResponse_->hwFecIdIsMemberOf(fecId);
  if (!requested) {
    if (present) {
      NOX_TRACE_CHANGE("Got stale response for FecId:{}", fecId);
    } else {
      NOX_TRACE_CHANGE("Stale response deletion for FecId:{}", fecId);
    }
    return;
  }
  ObjTuple const objTuple = *requested;  // the writes below notify
  requestSince_.settle(fecId, !present, scheduler_->now());
  if (present) {
    objTupleToHwIdMap_->hwIdIs(objTuple, fecResponse_->hwFecId(fecId).hwFecId());
  } else {
    objTupleToHwIdMap_->hwIdDel(objTuple);
  }
}

// The programmer replaced its whole table: look again at every FEC id this machine requests.
void NoxMacAddrFecRequestSm::handleHwFecIdResponse() {
  NOX_TRACE_ENTRY("handleHwFecIdResponse");
  if (!initialized()) return;
  std::vector<FecId> requested;
  for (auto [fecId, objTuple] : fecRequestReverseMapColl()) requested.push_back(fecId);
  for (FecId const& fecId : requested) handleHwFecIdResponse(fecId);
}

// ---- Maps ----

// Most re-evaluations (another host on the same tuple) find the children as they were.
template <class Children>
bool NoxMacAddrFecRequestSm::sameChildren(ObjTuple const& objTuple,
                                          Children const& children) const {
  auto const forward = nextHopForwardMapColl().find(objTuple);
  if (!forward) return false;
  std::size_t count = 0;
  for (ObjTuple const& child : children) {
    if (!forward->objTupleIsMemberOf(child)) return false;
    ++count;
  }
  return count == forward->objTuples();
}

template <class Children>
void NoxMacAddrFecRequestSm::updateForwardMap(ObjTuple const& objTuple, Children const& children,
                                              bool deleted) {
  if (!deleted && sameChildren(objTuple, children)) return;
  if (auto forward = nextHopForwardMap(objTuple)) {
    for (auto [child, flag] : forward->objTupleColl()) {
      auto reverse = nextHopReverseMap(child);
      if (!reverse) continue;
      reverse->objTupleDel(objTuple);
      if (reverse->objTuples() == 0) nextHopReverseMapDel(child);
    }
  }
  nextHopForwardMapDel(objTuple);
  if (deleted) return;
  auto forward = nextHopForwardMapIs(objTuple);
  forward->objTupleDelAll();
  for (ObjTuple const& child : children) {
    forward->objTupleIs(child, true);
    nextHopReverseMapIs(child)->objTupleIs(objTuple, true);
  }
  if (forward->objTuples() == 0) nextHopForwardMapDel(objTuple);
}

void NoxMacAddrFecRequestSm::updateMapsForLabelTableChange(Label const& label, LabelId labelId,
                                                           ObjTuple const& objTuple) {
  NOX_TRACE_ENTRY("updateMapsForLabelTableChange LabelId:{}", labelId);
  std::array<ObjTuple, 1> const children{label.next()};
  updateForwardMap(objTuple, children, label == Label());
  if (auto const objTupleSetForward = nextHopForwardMapColl().find(objTuple)) {
    VEL_ASSERT(objTupleSetForward->objTuples() == 1 || objTupleSetForward->objTuples() == 0);
  }
}

void NoxMacAddrFecRequestSm::updateMapsForLbTableChange(LoadBalance const& lb, LoadBalanceId lbId,
                                                        ObjTuple const& objTuple) {
  NOX_TRACE_ENTRY("updateMapsForLbTableChange LbId:{}", lbId);
  updateForwardMap(objTuple, lb, lb == LoadBalance());
}

// A destination is only ever a child: the parents' maps record its place.
void NoxMacAddrFecRequestSm::updateMapsForDestTableChange(L2Rib::Dest const&, DestId destId,
                                                          ObjTuple const&) {
  NOX_TRACE_ENTRY("updateMapsForDestTableChange DestId:{}", destId);
}

namespace {

// The reverse-map entry being walked: the child whose parents are re-evaluated.
struct ReverseMapIter {
  ObjTuple child;
  ObjTuple const& key() const { return child; }
};

}  // namespace

void NoxMacAddrFecRequestSm::handleDependants(ObjTuple const& objTuple) {
  NOX_TRACE_ENTRY("handleDependants ObjTuple:{}", objTuple);
  auto const parents = nextHopReverseMapColl().find(objTuple);
  if (!parents) return;
  ReverseMapIter const iter{objTuple};
  // A parent's handler may change the set: walk a copy.
  std::vector<ObjTuple> copy;
  copy.reserve(parents->objTuples());
  for (auto [parent, flag] : parents->objTupleColl()) copy.push_back(parent);
  static ObjTupleSet::ObjTupleColl const noChildren;
  for (ObjTuple const& parent : copy) {
    auto const forward = nextHopForwardMap(parent);
    auto const& forwardMapIter = forward ? forward->objTupleColl() : noChildren;
    // The assertion prints this text as written, spaces included.
    // clang-format off
    VEL_ASSERT(forwardMapIter.isMemberOf( iter.key() ));
    // clang-format on
    switch (parent.tableType()) {
      case L2Rib::tableTypeLabel_:
        handleLabel(LabelId(parent.id()));
        break;
      case L2Rib::tableTypeLoadBalance_:
        handleLb(LoadBalanceId(parent.id()));
        break;
      default:
        VEL_ASSERT(0);
    }
  }
}

// ---- FECs ----

FecId NoxMacAddrFecRequestSm::objTupleToFecId(ObjTuple const& objTuple) const {
  return fecRequest_->objTupleToFecId(objTuple).fecId();
}

bool NoxMacAddrFecRequestSm::isFecDeleted(ObjTuple const& objTuple) const {
  return !objTupleCacheIsMemberOf(objTuple);
}

FecId NoxMacAddrFecRequestSm::idToFecId(int64_t id) const {
  VEL_ASSERT(id >= 0);
  return FecId(fecAdjType, uint64_t(id));
}

// A tuple keeps its FEC id for as long as it keeps its FEC. `bound` is the tuple's FEC id as the
// caller read it (the default when none).
FecId NoxMacAddrFecRequestSm::getFecId(FecId bound) {
  if (bound != FecId()) return bound;
  int64_t const number = numAllocator_->getNumber();
  if (number == numAllocator_->invalidNumber()) return FecId();
  return idToFecId(number);
}

Tunnel::TunnelTable::TunnelId NoxMacAddrFecRequestSm::tunnelIdOf(L2Rib::Dest const& dest) const {
  VEL_ASSERT(dest.destType() == L2Rib::destTypeTunnel_);
  return Tunnel::TunnelTable::TunnelId(dest.destDataTunnel().tunnel().number());
}

// A label inside a load balance, flattened: its label and its destination's tunnel. Whatever of
// the chain is missing is left out of the via.
Via NoxMacAddrFecRequestSm::viaToLabelFlattened(ObjTuple const& labelTuple) {
  Via via;
  LabelId const labelId(labelTuple.id());
  if (!labelTable_->labelIsMemberOf(labelId)) {
    chainIncomplete_ = true;
    return via;
  }
  Label const label = labelTable_->label(labelId).label();
  via.mplsLabelIs(label.label());
  VEL_ASSERT(label.next().tableType() == L2Rib::tableTypeDest_);
  L2Rib::Dest const dest = destTable_->dest(DestId(label.next().id()));
  if (dest == L2Rib::Dest()) {
    chainIncomplete_ = true;
  } else {
    via.tunnelIdIs(tunnelIdOf(dest));
  }
  return via;
}

Fec NoxMacAddrFecRequestSm::buildFecForLb(LoadBalance const& lb, LoadBalanceId lbId,
                                          ObjTuple const&, FecId bound) {
  NOX_TRACE_ENTRY("buildFecForLb LbId:{}", lbId);
  Fec fec(getFecId(bound));
  chainIncomplete_ = lb == LoadBalance();
  for (ObjTuple const* iter = lb.begin(); iter != lb.end(); ++iter) {
    VEL_ASSERT(iter->tableType() != L2Rib::tableTypeLoadBalance_);
    if (iter->tableType() == L2Rib::tableTypeDest_) {
      L2Rib::Dest const dest = destTable_->dest(DestId(iter->id()));
      if (dest == L2Rib::Dest()) {
        chainIncomplete_ = true;
        continue;
      }
      Via via;
      via.tunnelIdIs(tunnelIdOf(dest));
      fec.viaAdd(via);
    } else if (iter->tableType() == L2Rib::tableTypeLabel_ && maxChainLength() == 2) {
      fec.viaAdd(viaToLabelFlattened(*iter));
    } else {
      VEL_ASSERT(maxChainLength() == 3);
      Via via;
      if (FecId const next = objTupleToFecId(*iter); next != FecId()) {
        via.fecIdIs(next);
      } else {
        chainIncomplete_ = true;
      }
      fec.viaAdd(via);
    }
  }
  return fec;
}

Fec NoxMacAddrFecRequestSm::buildFecForLabel(Label const& label, LabelId labelId, ObjTuple const&,
                                             FecId bound) {
  NOX_TRACE_ENTRY("buildFecForLabel LabelId:{}", labelId);
  Fec fec(getFecId(bound));
  chainIncomplete_ = label == Label();
  VEL_ASSERT(label.next().tableType() != L2Rib::tableTypeLabel_);
  ObjTuple const& next = label.next();
  if (next.tableType() == L2Rib::tableTypeDest_) {
    Via via;
    via.mplsLabelIs(label.label());
    L2Rib::Dest const dest = destTable_->dest(DestId(next.id()));
    if (dest == L2Rib::Dest()) {
      chainIncomplete_ = true;
    } else {
      via.tunnelIdIs(tunnelIdOf(dest));
    }
    fec.viaAdd(via);
  } else if (next.tableType() == L2Rib::tableTypeLoadBalance_ && maxChainLength() == 3) {
    Via via;
    via.mplsLabelIs(label.label());
    if (FecId const lbFecId = objTupleToFecId(next); lbFecId != FecId()) {
      via.fecIdIs(lbFecId);
    } else {
      chainIncomplete_ = true;
    }
    fec.viaAdd(via);
  } else if (next.tableType() == L2Rib::tableTypeLoadBalance_) {
    LoadBalance const lb = lbTable_->loadBalance(LoadBalanceId(next.id()));
    if (lb == LoadBalance()) chainIncomplete_ = true;
    for (ObjTuple const* iter = lb.begin(); iter != lb.end(); ++iter) {
      VEL_ASSERT(iter->tableType() == L2Rib::tableTypeDest_);
      L2Rib::Dest const dest = destTable_->dest(DestId(iter->id()));
      if (dest == L2Rib::Dest()) {
        chainIncomplete_ = true;
        continue;
      }
      Via via;
      via.mplsLabelIs(label.label());
      via.tunnelIdIs(tunnelIdOf(dest));
      fec.viaAdd(via);
    }
  }
  return fec;
}

void NoxMacAddrFecRequestSm::addFec(Fec const& fec, ObjTuple const& objTuple, FecId bound) {
  NOX_TRACE_ENTRY("addFec ObjTuple:{} Fec{}", objTuple, fec);
  FecId const fecId = fec.fecId();
  // An equal record changes nothing for the programmer: most re-evaluations (another host on
  // the same tuple) rebuild the FEC as it stands, and are not published again.
  // An absent record reads as the default FEC, as in the table.
  static Fec const noFec;
  auto const published = publishedFec_.find(fecId);
  if (!((published == publishedFec_.end() ? noFec : published->second) == fec)) {
    publishedFec_.insert_or_assign(fecId, fec);
    fecRequest_->fecIs(fec);
  }
  // A tuple found bound to this very FEC id has its binding published already.
  if (bound == FecId() || bound != fecId) {
    ObjTupleAndFecId const binding(objTuple, fecId);
    if (!(fecRequest_->objTupleToFecId(objTuple) == binding)) {
      fecRequest_->objTupleToFecIdIs(binding);
    }
  }
  fecCacheIs(fecId, true);
  objTupleCacheIs(objTuple, true);
  maybeUpdateFecRequest(objTuple, false, &fecId);
}

void NoxMacAddrFecRequestSm::deleteFec(ObjTuple const& objTuple) {
  NOX_TRACE_ENTRY("deleteFec ObjTuple:{}", objTuple);
  if (FecId const fecId = objTupleToFecId(objTuple); fecId != FecId()) {
    fecRequest_->fecDel(fecId);
    publishedFec_.erase(fecId);
    fecRequest_->objTupleToFecIdDel(objTuple);
    fecCacheDel(fecId);
    objTupleCacheDel(objTuple);
    numAllocator_->releaseNumber(int64_t(fecId.number()));
    NOX_TRACE_CHANGE("Deleting FecId:{}", fecId);
  }
  maybeUpdateFecRequest(objTuple, true);
}

// A hardware id is wanted exactly for the tuples that have a FEC and that a host uses directly.
void NoxMacAddrFecRequestSm::maybeUpdateFecRequest(ObjTuple const& objTuple, bool isDelete,
                                                   FecId const* bound) {
  NOX_TRACE_ENTRY("maybeUpdateFecRequest ObjTuple:{} isDelete:{}", objTuple, isDelete ? 1 : 0);
  if (!isDelete && isFirstLevelNextHop(objTuple) != 0) {
    if (FecId const fecId = bound ? *bound : objTupleToFecId(objTuple); fecId != FecId()) {
      return makeFecRequest(objTuple, fecId);
    }
  }
  deleteFecRequest(objTuple);
}

void NoxMacAddrFecRequestSm::makeFecRequest(ObjTuple const& objTuple, FecId fecId) {
  // The tuple's request under this FEC id stands already: both maps and the published request
  // are made and withdrawn together, so there is nothing to write again.
  auto const cached = fecRequestCacheColl().find(objTuple);
  if (!cached || *cached != fecId) {
    fecRequestReverseMapIs(fecId, objTuple);
    if (!fecRequest_->hwFecIdRequestIsMemberOf(fecId)) fecRequest_->hwFecIdRequestIs(fecId);
    fecRequestCacheIs(objTuple, fecId);
    requestSince_.settle(fecId, !fecResponse_->hwFecIdIsMemberOf(fecId), scheduler_->now());
  }
  NOX_TRACE_CHANGE("Making Fec request:{}", fecId);
}

void NoxMacAddrFecRequestSm::deleteFecRequest(ObjTuple const& objTuple) {
  auto const requested = fecRequestCacheColl().find(objTuple);
  if (!requested) return;
  FecId const fecId = *requested;
  NOX_TRACE_CHANGE("Deleting Fec request:{}", fecId);
  fecRequestReverseMapDel(fecId);
  fecRequest_->hwFecIdRequestDel(fecId);
  fecRequestCacheDel(objTuple);
  requestSince_.stopped(fecId);
}

// ---- What waits ----

std::vector<PendingItem> NoxMacAddrFecRequestSm::pending() const {
  std::vector<PendingItem> items;
  std::size_t position = 0;
  for (auto [objTuple, flag] : objTupleBackLogQColl()) {
    items.push_back({"macfec", pendingText(objTuple), "start-up backlog",
                     tupleBacklogSince_.since(position++)});
  }
  auto const hostText = [](MacVlanPair const& macVlan) {
    return pendingText(macVlan.macAddr(), " ", macVlan.vlanId().value());
  };
  position = 0;
  for (auto [macVlan, flag] : hostBackLogQColl()) {
    items.push_back(
        {"macfec", hostText(macVlan), "start-up backlog", hostBacklogSince_.since(position++)});
  }
  // A host's chain is its tuple and, three levels deep, the tuples that one leads to.
  if (chainIncompleteSince_.size() > 0) {
    for (auto [macVlan, objTuple] : macVlanToObjTupleCacheColl()) {
      ObjTuple missing = objTuple;
      bool incomplete = chainIncompleteSince_.waiting(objTuple);
      if (auto const children = nextHopForwardMap(objTuple); !incomplete && children) {
        for (auto [child, member] : children->objTupleColl()) {
          if (!chainIncompleteSince_.waiting(child)) continue;
          missing = child;
          incomplete = true;
          break;
        }
      }
      if (!incomplete) continue;
      items.push_back({"macfec", hostText(macVlan),
                       missing == objTuple
                           ? pendingText("chain of ", objTuple, " incomplete")
                           : pendingText("chain of ", objTuple, " incomplete at ", missing),
                       chainIncompleteSince_.since(missing)});
    }
  }
  for (auto [objTuple, fecId] : fecRequestCacheColl()) {
    if (!requestSince_.waiting(fecId)) continue;
    items.push_back({"macfec", pendingText("fec ", fecId),
                     pendingText("no response for ", objTuple), requestSince_.since(fecId)});
  }
  return items;
}

VEL_REGISTER_TYPE(ObjTupleSet);
VEL_REGISTER_TYPE(FecIdToHwFecIdRequest);
VEL_REGISTER_TYPE(FecIdToHwFecIdResponse);
VEL_REGISTER_TYPE(ObjTupleToHwId);
VEL_REGISTER_TYPE(NoxMacAddrFecRequestSm);

}  // namespace Nox
