#include <gtest/gtest.h>

#include <cstdlib>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"

namespace {

using Gantry::IntfId;
using Gantry::MplsLabel;

class NoopAgent {
 public:
  NoopAgent() { setenv("NOX_NOOP_AGENT", "", 1); }
  ~NoopAgent() { unsetenv("NOX_NOOP_AGENT"); }
};

Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> baseHelper() {
  return new NoxHelper::EsiFilteringDecapHelper("decap");
}

TEST(DecapHelperTest, BaseHelperRetriesInNoopModeAndStopsOtherwise) {
  auto const helper = baseHelper();
  {
    NoopAgent noop;
    EXPECT_EQ(helper->createEsiPortMap(MplsLabel(1000), IntfId("Ethernet1")), 2u);
    EXPECT_EQ(helper->createEsiPortMap(MplsLabel(1001), IntfId("Ethernet2")), 2u);
    helper->deleteEsiPortMap(MplsLabel(1000), IntfId("Ethernet1"));
  }
  EXPECT_DEATH(helper->createEsiPortMap(MplsLabel(1000), IntfId("Ethernet1")),
               "Unimplemented createEsiPortMap\n.*NoxCommon.*0");
  EXPECT_DEATH(helper->deleteEsiPortMap(MplsLabel(1000), IntfId("Ethernet1")),
               "Unimplemented deleteEsiPortMap");
}

TEST(DecapHelperTest, StubCountsCallsKeepsTheLastArgumentsAndReturnsItsCode) {
  auto const stub = NoxHelper::esiFilteringDecapHelperStubFactory("decap");
  EXPECT_EQ(stub->createEsiPortMapLabel().value(), MplsLabel::noLabel);
  EXPECT_TRUE(stub->deleteEsiPortMapIntfId().empty());
  stub->createEsiPortMapRcIs(Mpls::lfibHwProgrammingNoResource);
  EXPECT_EQ(stub->createEsiPortMap(MplsLabel(1000), IntfId("Ethernet1")), 2u);
  EXPECT_EQ(stub->createEsiPortMap(MplsLabel(2000), IntfId("Port-Channel7")), 2u);
  EXPECT_EQ(stub->createEsiPortMapCount(), 2u);
  EXPECT_EQ(stub->createEsiPortMapLabel(), MplsLabel(2000));
  EXPECT_EQ(stub->createEsiPortMapIntfId(), IntfId("Port-Channel7"));

  stub->deleteEsiPortMapCountIs(10);
  stub->deleteEsiPortMap(MplsLabel(3000), IntfId("Ethernet3"));
  EXPECT_EQ(stub->deleteEsiPortMapCount(), 11u);
  EXPECT_EQ(stub->deleteEsiPortMapLabel(), MplsLabel(3000));
  EXPECT_EQ(stub->deleteEsiPortMapIntfId(), IntfId("Ethernet3"));
  EXPECT_EQ(stub->createEsiPortMapCount(), 2u);
}

}  // namespace
