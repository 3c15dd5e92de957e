// One dot1q flooding machine over its Vel collections, outside the NoxEvpn tree: a VLAN tagged
// 100 with a plain port and a two-port port-channel as members. Prints the mappings the machine
// published, one line per (interface, VLAN) pair with the ports it programmed.

#include <cstdlib>
#include <iostream>

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "platform/cog/Clock.h"

int main() {
  Vel::Ptr<Vel::VirtualClock> clock(new Vel::VirtualClock);
  Vel::Ptr<Cog::TaskScheduler> scheduler(new Cog::TaskScheduler(clock));
  auto const hardware = NoxHelper::evpnFloodingSmHelperStubFactory("flooding");
  auto const ncsd = Nox::noxCommonSmDataFactory("ncsd");
  auto const config = Bridging::configFactory();
  auto const evpn = Evpn::evpnStatusFactory();
  auto const sm = Nox::evpnFloodingDot1qSmFactory(hardware, scheduler, ncsd, config, evpn);

  Nox::NoxPortList members;
  members.portIs(Gantry::IntfId("Ethernet2"));
  members.portIs(Gantry::IntfId("Ethernet3"));
  ncsd->lagToPortIs(Gantry::IntfId("Port-Channel1"), members);
  Bridging::VlanId const vlan(10);
  evpn->vlanToDot1qIs(vlan, Bridging::VlanIdOrNone(100));
  auto const vlanConfig = config->vlanConfigIs(vlan);
  vlanConfig->intfIs(Gantry::IntfId("Ethernet1"), true);
  vlanConfig->intfIs(Gantry::IntfId("Port-Channel1"), true);

  for (auto [pair, dot1q] : sm->intfVlanDot1qColl()) {
    std::cout << pair.intfId() << " vlan " << pair.vlanId() << " dot1q " << dot1q << ":";
    auto const status = sm->dot1qStatus(pair);
    if (status) {
      for (auto port : status->programmedColl()) std::cout << " " << port.key;
    }
    std::cout << "\n";
  }
  std::cout << hardware->createVlanToDot1qCount() << " mappings programmed\n";
  return hardware->createVlanToDot1qCount() == 3 ? EXIT_SUCCESS : EXIT_FAILURE;
}
