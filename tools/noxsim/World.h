#pragma once

// Everything a machine can be wired to: every input collection that another agent would
// publish, every output collection a machine writes, the event thread's task scheduler with its
// virtual clock, and the log of hardware-helper calls. noxsim builds all of it at start-up, so a
// scenario can write an input before the machine that reads it starts, and an output keeps what
// it holds when its writer stops.

#include <string>
#include <vector>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"
#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "platform/cog/Clock.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Evpn/Evpn.h"
#include "platform/types/L2Rib/L2Rib.h"

namespace Noxsim {

struct World {
  World();

  // The event thread.
  Vel::Ptr<Vel::VirtualClock> clock;
  Vel::Ptr<Cog::TaskScheduler> scheduler;

  // Layer-2 RIB flood sets (input of filter) and their MPLS-only copy (written by filter).
  Vel::Ptr<L2Rib::FloodSetOutput> l2ribFloodSets;
  Vel::Ptr<L2Rib::FloodSetOutput> filteredFloodSets;
  // Via -> hardware information (written by floodset-fec).
  Vel::Ptr<Nox::HwInfoMapping> hwInfo;
  // Flood-set hardware configuration (written by floodset) and its status (written by the
  // hardware agent).
  Vel::Ptr<Nox::EvpnVlanFloodSetHwConfig> hwConfig;
  Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus> hwStatus;
  // Tunnel id -> hardware tunnel id (written by esi); published in shared memory with --shm.
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels;
  // The flooding helper stub shared by esi and dot1q (it logs into `calls`), the EVPN status and
  // the common data's port-channel membership.
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> floodingHelper;
  Vel::Ptr<Evpn::EvpnStatus> evpnStatus;
  Vel::Ptr<Nox::NoxCommonSmData> ncsd;
  // VLAN membership (input of dot1q).
  Vel::Ptr<Bridging::Config> bridgingConfig;

  // Hardware-helper calls since the log was last shown, one line each in call order.
  std::vector<std::string> calls;
};

}  // namespace Noxsim
