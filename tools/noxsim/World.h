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
#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "platform/cog/Clock.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Evpn/Evpn.h"
#include "platform/types/L2Rib/L2Rib.h"
#include "platform/types/Mpls/Mpls.h"
#include "tools/noxsim/DecapHelper.h"

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
  // Ready from the start.
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels;
  // EVPN status and the agent's common data (port-channel members), inputs of esi and dot1q.
  Vel::Ptr<Evpn::EvpnStatus> evpnStatus;
  Vel::Ptr<Nox::NoxCommonSmData> ncsd;
  // VLAN membership (input of dot1q).
  Vel::Ptr<Bridging::Config> bridgingConfig;
  // The flooding helper stub esi and dot1q share; it logs its calls to `calls`.
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> floodingHelper;
  // The LFIB and its backlog of changed routes (written by the emulated LFIB owner), the routes'
  // hardware status (written by decap) and decap's helper; Kelp tables, shared with --shm.
  Vel::Ptr<Mpls::LfibStatus> lfib;
  Vel::Ptr<Mpls::LfibTrackingStatus> lfibTracking;
  Vel::Ptr<Mpls::LfibHwStatus> lfibHwStatus;
  Vel::Ptr<DecapHelper> decapHelper;
  // Layer-2 RIB resolution tables (inputs of macfec), its FEC requests and the FEC programmer's
  // responses, and the object-tuple hardware ids it writes.
  Vel::Ptr<L2Rib::LabelOutput> l2ribLabels;
  Vel::Ptr<L2Rib::LoadBalanceOutput> l2ribLbs;
  Vel::Ptr<L2Rib::DestOutput> l2ribDests;
  Vel::Ptr<L2Rib::HostOutput> l2ribHosts;
  Vel::Ptr<Nox::FecIdToHwFecIdRequest> macFecRequest;
  Vel::Ptr<Nox::FecIdToHwFecIdResponse> macFecResponse;
  Vel::Ptr<Nox::ObjTupleToHwId> objTupleHwIds;
  // Flood-set FEC requests (written by floodset-fec) and the FEC programmer's responses.
  Vel::Ptr<Nox::FecIdToHwFecIdRequest> floodSetFecRequest;
  Vel::Ptr<Nox::FecIdToHwFecIdResponse> floodSetFecResponse;

  // Hardware-helper calls since the log was last shown, one line each in call order.
  std::vector<std::string> calls;
};

}  // namespace Noxsim
