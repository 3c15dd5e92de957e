// With the emulated FEC programmer answering, after every change of the RIB's tables (and
// restarts, and the passing of time) every host's FEC holds the vias computed directly from the
// label, load-balance and destination tables, its hardware id is requested and copied, and no
// two live FECs share an id.

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/NoxEvpn/MacFecRig.h"
#include "tests/NoxEvpn/VerifyUtil.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

namespace {

using Kelp::Fib::Fec;
using Kelp::Fib::Via;
using L2Rib::ObjTuple;
using NoxTest::destTuple;
using NoxTest::labelTuple;
using NoxTest::lbTuple;

// The shapes the RIB sends: leaf labels 1-3 lead to destinations 1-3, upper labels 4-5 to the
// destination-only load balances 1-2; load balances 3-4 mix leaf labels and destinations.
// Hosts 1-4 point at any label or load balance.
struct Op {
  int kind;  // 0 dest, 1 label, 2 lb, 3 host, 4 restart, 5 time
  int id;
  bool del;
  std::vector<int> picks;
};

void showValue(Op const& op, std::ostream& os) {
  os << "{kind " << op.kind << " id " << op.id << (op.del ? " del" : " set") << " picks";
  for (int pick : op.picks) os << " " << pick;
  os << "}";
}

ObjTuple pickTuple(int pick) {
  return pick < 5 ? labelTuple(uint64_t(pick + 1)) : lbTuple(uint64_t(pick - 4));
}

class Model {
 public:
  Model(NoxTest::MacFecRig& rig, uint32_t chainLength) : rig_(rig), chainLength_(chainLength) {}

  void restart() {
    rig_.sm = nullptr;
    rig_.start();
    if (chainLength_ == 3) rig_.sm->maxChainLengthIs(3);
    // The programmer sees the emptied requests before the review makes new ones.
    rig_.settle();
    rig_.advance(0.5);
  }

  void apply(Op const& op) {
    uint64_t const id = uint64_t(op.id);
    switch (op.kind) {
      case 0:
        op.del ? rig_.destDel(id) : rig_.dest(id, uint64_t(op.picks[0] + 1));
        break;
      case 1:
        if (op.del) return rig_.labelDel(id);
        rig_.label(id, 1000 + op.picks[0],
                   id <= 3 ? destTuple(uint64_t(op.picks[0] % 3 + 1))
                           : lbTuple(uint64_t(op.picks[0] % 2 + 1)));
        break;
      case 2:
        op.del ? rig_.lbDel(id) : lbSet(id, op.picks);
        break;
      case 3:
        op.del ? rig_.hostDel(id) : rig_.host(id, pickTuple(op.picks[0] % 9));
        break;
      case 4:
        restart();
        break;
      default:
        rig_.advance(double(op.picks[0] % 12));
        break;
    }
  }

  void check() const {
    std::set<Nox::FecId> bound;
    for (auto const& entry : rig_.requests->objTupleToFecIdColl()) {
      RC_ASSERT(bound.insert(entry.value.fecId()).second);
      RC_ASSERT(rig_.requests->fecIsMemberOf(entry.value.fecId()));
    }
    RC_ASSERT(bound.size() == rig_.requests->fecs());
    std::set<ObjTuple> used;
    for (auto const& entry : rig_.hosts->hostColl()) {
      ObjTuple const tuple = entry.value.host();
      used.insert(tuple);
      Nox::FecId const fecId = rig_.requests->objTupleToFecId(tuple).fecId();
      if (!present(tuple)) {
        RC_ASSERT(fecId == Nox::FecId() || rig_.requests->fec(fecId).vias() == 0);
        continue;
      }
      RC_ASSERT(fecId != Nox::FecId());
      RC_ASSERT(vias(rig_.requests->fec(fecId)) == expectedVias(tuple));
      RC_ASSERT(rig_.requests->hwFecIdRequestIsMemberOf(fecId));
      RC_ASSERT(rig_.hwIds->hwId(tuple) == 100000 + fecId.number());
    }
    for (auto const& entry : rig_.requests->objTupleToFecIdColl()) {
      bool const requested = rig_.requests->hwFecIdRequestIsMemberOf(entry.value.fecId());
      RC_ASSERT(requested == used.contains(entry.key));
    }
  }

 private:
  void lbSet(uint64_t id, std::vector<int> const& picks) {
    L2Rib::LoadBalance lb;
    for (int pick : picks) {
      bool const label = id >= 3 && pick % 2 == 1;
      lb.nextAdd(label ? labelTuple(uint64_t(pick % 3 + 1)) : destTuple(uint64_t(pick % 3 + 1)));
    }
    rig_.lbs->loadBalanceIs(L2Rib::LoadBalanceId(id), lb);
    rig_.settle();
  }

  bool present(ObjTuple const& t) const {
    if (t.tableType() == L2Rib::tableTypeLabel_)
      return rig_.labels->labelIsMemberOf(L2Rib::LabelId(t.id()));
    return rig_.lbs->loadBalanceIsMemberOf(L2Rib::LoadBalanceId(t.id()));
  }

  static std::vector<Via> vias(Fec const& fec) {
    std::vector<Via> all;
    for (uint32_t i = 0; i < fec.vias(); ++i) all.push_back(fec.via(i));
    return all;
  }

  void addTunnel(Via& via, uint64_t destId) const {
    if (!rig_.dests->destIsMemberOf(L2Rib::DestId(destId))) return;
    auto const dest = rig_.dests->dest(L2Rib::DestId(destId));
    via.tunnelIdIs(Tunnel::TunnelTable::TunnelId(dest.destDataTunnel().tunnel().number()));
  }

  void addFecLink(Via& via, ObjTuple const& next) const {
    Nox::FecId const fecId = rig_.requests->objTupleToFecId(next).fecId();
    if (fecId != Nox::FecId()) via.fecIdIs(fecId);
  }

  std::vector<Via> expectedVias(ObjTuple const& t) const {
    std::vector<Via> out;
    if (t.tableType() == L2Rib::tableTypeLabel_) {
      L2Rib::Label const label = rig_.labels->label(L2Rib::LabelId(t.id())).label();
      Via via;
      via.mplsLabelIs(label.label());
      if (label.next().tableType() == L2Rib::tableTypeDest_) {
        addTunnel(via, label.next().id());
        out.push_back(via);
      } else if (chainLength_ == 3) {
        addFecLink(via, label.next());
        out.push_back(via);
      } else {
        for (ObjTuple const& d : rig_.lbs->loadBalance(L2Rib::LoadBalanceId(label.next().id()))) {
          if (!rig_.dests->destIsMemberOf(L2Rib::DestId(d.id()))) continue;
          Via flat = via;
          addTunnel(flat, d.id());
          out.push_back(flat);
        }
      }
      return out;
    }
    for (ObjTuple const& next : rig_.lbs->loadBalance(L2Rib::LoadBalanceId(t.id()))) {
      Via via;
      if (next.tableType() == L2Rib::tableTypeDest_) {
        if (!rig_.dests->destIsMemberOf(L2Rib::DestId(next.id()))) continue;
        addTunnel(via, next.id());
      } else if (chainLength_ == 3) {
        addFecLink(via, next);
      } else if (rig_.labels->labelIsMemberOf(L2Rib::LabelId(next.id()))) {
        L2Rib::Label const label = rig_.labels->label(L2Rib::LabelId(next.id())).label();
        via.mplsLabelIs(label.label());
        addTunnel(via, label.next().id());
      }
      out.push_back(via);
    }
    return out;
  }

  NoxTest::MacFecRig& rig_;
  uint32_t const chainLength_;
};

rc::Gen<Op> genOp() {
  return rc::gen::exec([] {
    Op op;
    op.kind = *rc::gen::weightedElement<int>({{3, 0}, {4, 1}, {4, 2}, {5, 3}, {1, 4}, {1, 5}});
    int const ids[] = {3, 5, 4, 4, 1, 1};
    op.id = *rc::gen::inRange(1, ids[op.kind] + 1);
    op.del = *rc::gen::weightedElement<bool>({{1, true}, {3, false}});
    auto const picks = *rc::gen::inRange<std::size_t>(1, 4);
    op.picks = *rc::gen::container<std::vector<int>>(picks, rc::gen::inRange(0, 60));
    return op;
  });
}

RC_GTEST_PROP(MacFecProperty, HostFecsFollowTheTablesAndIdsStayUnique, ()) {
  uint32_t const chainLength = *rc::gen::element(2u, 3u);
  auto const ops = *rc::gen::container<std::vector<Op>>(genOp());
  NoxTest::MacFecRig rig;
  rig.programmerOn = true;
  Model model(rig, chainLength);
  model.restart();
  // One verifier for the whole run: its scratch tables are made once.
  Nox::Verifier verifier;
  for (Op const& op : ops) {
    model.apply(op);
    model.check();
    NoxTest::requireVerified(
        verifier.macFec(*rig.sm, {rig.labels, rig.lbs, rig.dests, rig.responses, rig.hosts}));
  }
}

}  // namespace

#endif
