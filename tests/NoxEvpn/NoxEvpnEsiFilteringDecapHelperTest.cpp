#include <gtest/gtest.h>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"

namespace {

using Gantry::IntfId;
using Gantry::MplsLabel;

// The scenarios show the stub's create side; nothing there deletes a port map.
TEST(DecapHelperTest, StubCountsDeletesAndKeepsTheLastArguments) {
  auto const stub = NoxHelper::esiFilteringDecapHelperStubFactory("decap");
  stub->deleteEsiPortMap(MplsLabel(1000), IntfId("Ethernet1"));
  stub->deleteEsiPortMap(MplsLabel(3000), IntfId("Ethernet3"));
  EXPECT_EQ(stub->deleteEsiPortMapCount(), 2u);
  EXPECT_EQ(stub->deleteEsiPortMapLabel(), MplsLabel(3000));
  EXPECT_EQ(stub->deleteEsiPortMapIntfId(), IntfId("Ethernet3"));
  EXPECT_EQ(stub->createEsiPortMapCount(), 0u);
}

}  // namespace
