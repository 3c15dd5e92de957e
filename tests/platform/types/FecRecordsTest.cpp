#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

#include "platform/types/Fib/Fib.h"
#include "platform/types/L2Rib/L2RibTables.h"
#include "platform/vel/Exception.h"

namespace {

using Kelp::Fib::Fec;
using Kelp::Fib::FecId;
using Kelp::Fib::Via;
using L2Rib::ObjTuple;

// Records live in shared memory and are compared byte for byte there.
static_assert(std::has_unique_object_representations_v<FecId>);
static_assert(std::has_unique_object_representations_v<Via>);
static_assert(std::has_unique_object_representations_v<Fec>);
static_assert(std::has_unique_object_representations_v<ObjTuple>);
static_assert(std::has_unique_object_representations_v<L2Rib::LabelAndSource>);
static_assert(std::has_unique_object_representations_v<L2Rib::LoadBalance>);
static_assert(std::has_unique_object_representations_v<L2Rib::HostAndSource>);
static_assert(std::has_unique_object_representations_v<L2Rib::Dest>);

template <class T>
std::string text(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(FecId, OrdersByAdjacencyTypeThenNumberAndPrintsBoth) {
  EXPECT_LT(FecId(8, 500), FecId(12, 0));
  EXPECT_LT(FecId(8, 1), FecId(8, 2));
  EXPECT_EQ(FecId(8, 7).adjType(), 8);
  EXPECT_EQ(FecId(8, 7).number(), 7u);
  EXPECT_EQ(text(FecId(12, 4294967295)), "12:4294967295");
  EXPECT_EQ(text(FecId()), "0:0");
}

TEST(Fec, ViasPrintOnlyTheirSetFieldsAndTheSeventeenthIsARangeError) {
  Fec fec(FecId(8, 3));
  Via both;
  both.mplsLabelIs(Gantry::MplsLabel(1000));
  both.tunnelIdIs(Tunnel::TunnelTable::TunnelId(5));
  Via link;
  link.fecIdIs(FecId(8, 1));
  fec.viaAdd(both);
  fec.viaAdd(link);
  fec.viaAdd(Via());
  EXPECT_EQ(text(fec), "8:3 via[0] label=1000 tunnel=5 via[1] fec=8:1 via[2] novia");
  for (int i = 3; i < 16; ++i) fec.viaAdd(Via());
  EXPECT_EQ(fec.vias(), 16u);
  try {
    fec.viaAdd(Via());
    FAIL() << "17th via accepted";
  } catch (Vel::RangeException const& e) {
    EXPECT_STREQ(e.what(), "EcmpIndex::value < EcmpIndex::min or > EcmpIndex::max not allowed");
  }
  EXPECT_EQ(fec.vias(), 16u);
}

TEST(ObjTuple, OrdersByIdThenTypeAndPrintsItsTable) {
  ObjTuple const label(5, L2Rib::tableTypeLabel_);
  ObjTuple const lb(5, L2Rib::tableTypeLoadBalance_);
  EXPECT_LT(lb, label);
  EXPECT_LT(label, ObjTuple(6, L2Rib::tableTypeLoadBalance_));
  EXPECT_NE(label, lb);
  EXPECT_EQ(text(label), "label:5");
  EXPECT_EQ(text(lb), "lb:5");
  EXPECT_EQ(text(ObjTuple(9, L2Rib::tableTypeDest_)), "dest:9");
  EXPECT_EQ(text(ObjTuple()), "none");
}

}  // namespace
