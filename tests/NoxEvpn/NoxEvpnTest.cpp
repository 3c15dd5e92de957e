#include <gtest/gtest.h>

#include <sstream>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnPending.h"

namespace {

using Bridging::VlanId;
using Gantry::IntfId;
using Nox::TunnelId;

TEST(Keys, OrderFieldByFieldAndCompareLaterFieldsOnlyOnTies) {
  Nox::IntfVlanTunnelKey a(IntfId("Ethernet1"), VlanId(10), TunnelId(9));
  Nox::IntfVlanTunnelKey b(IntfId("Ethernet1"), VlanId(10), TunnelId(10));
  Nox::IntfVlanTunnelKey c(IntfId("Ethernet1"), VlanId(11), TunnelId(1));
  Nox::IntfVlanTunnelKey d(IntfId("Ethernet2"), VlanId(1), TunnelId(1));
  EXPECT_TRUE(a < b && b < c && c < d);
  EXPECT_TRUE(a <= a && a >= a && !(a < a) && b > a);
  EXPECT_NE(a, b);
  EXPECT_EQ(a, Nox::IntfVlanTunnelKey(IntfId("Ethernet01"), VlanId(10), TunnelId(9)));
  EXPECT_EQ(a.hash(), Nox::IntfVlanTunnelKey(IntfId("Ethernet1"), VlanId(10), TunnelId(9)).hash());
}

// Entries leave from the front only, so each one's time is its batch's: found past the batches
// that emptied, and not moved by a batch queued at the same time being merged into the last.
TEST(PendingBatches, EachEntryKeepsTheTimeOfTheBatchThatQueuedIt) {
  Nox::PendingBatches batches;
  batches.queued(2, 1.0);
  batches.queued(0, 2.0);
  batches.queued(1, 3.0);
  batches.queued(1, 3.0);
  EXPECT_EQ(batches.since(0), 1.0);
  EXPECT_EQ(batches.since(1), 1.0);
  EXPECT_EQ(batches.since(2), 3.0);
  EXPECT_EQ(batches.since(3), 3.0);
  batches.dequeued();
  batches.dequeued();
  batches.queued(1, 4.0);
  EXPECT_EQ(batches.since(0), 3.0);
  EXPECT_EQ(batches.since(2), 4.0);
  EXPECT_EQ(batches.since(3), 0.0);  // past the back
}

TEST(Keys, TextFormsNameTypeAndFieldsInOrder) {
  Nox::IntfVlanTunnelKey k(IntfId("Port-Channel3"), VlanId(10), TunnelId(9));
  EXPECT_EQ(valueToStrep(k),
            "Value('Nox::IntfVlanTunnelKey', ** {'intfId': Port-Channel3, 'vlanId': 10, "
            "'tunnelId': 9})");
  std::ostringstream os;
  os << Nox::TunnelIdToHwTunnelId(TunnelId(5), Nox::HwTunnelId(600));
  EXPECT_EQ(os.str(), "Value('Nox::TunnelIdToHwTunnelId', ** {'key': 5, 'hwTunnelId': 600})");
  EXPECT_EQ(Nox::TunnelIdToHwTunnelId(TunnelId(5), Nox::HwTunnelId(600)).kelpString(), os.str());
  EXPECT_NE(Nox::TunnelIdToHwTunnelId(TunnelId(5), Nox::HwTunnelId(600)),
            Nox::TunnelIdToHwTunnelId(TunnelId(5), Nox::HwTunnelId(601)));
}

// Names and numbers are read and printed in the scenarios (helper codes, hardware status).
TEST(HwProgrammingStatus, AnUnknownNameIsARangeErrorAndTheTypeIsRegisteredWithItsNames) {
  EXPECT_THROW(Nox::HwProgrammingStatusInstance(Vel::String("programmd")), Vel::RangeException);
  auto const* t = Vel::TypeRegistry::lookup("Nox::HwProgrammingStatus");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->attributes().size(), 3u);
  EXPECT_NE(Vel::TypeRegistry::lookup("Nox::IntfVlanTunnelKey"), nullptr);
}

TEST(NoxBaseHelperDeathTest, NoxAssertWritesTheMessageThenFailsAssertionZeroInNoxCommon) {
  Vel::Ptr<Nox::NoxBaseHelper> helper(new Nox::NoxBaseHelper("helper"));
  EXPECT_DEATH(helper->noxAssert("hardware helper misused"),
               "hardware helper misused\nNoxCommon:[0-9]+: .*noxAssert.*Assertion `0' failed");
}

}  // namespace
