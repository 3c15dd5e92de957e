#pragma once

// Everything a machine can be wired to: every input collection that another agent would
// publish, every output collection a machine writes, the event thread's task scheduler with its
// virtual clock, and the log of hardware-helper calls. noxsim builds all of it at start-up, so a
// scenario can write an input before the machine that reads it starts, and an output keeps what
// it holds when its writer stops.

#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "platform/cog/Clock.h"
#include "platform/cog/TaskScheduler.h"
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
