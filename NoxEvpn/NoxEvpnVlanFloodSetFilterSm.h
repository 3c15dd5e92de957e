#pragma once

// Nox::VlanFloodSetFilterSm mirrors the layer-2 RIB's flood-set output into a second flood-set
// output of the same shape that holds only the destinations of one type, so that the machines
// downstream see only what they can program (the MPLS flood path filters on destTypeMpls_).
//
// Reactors follow the input: one VelVlanFloodSet per input VLAN, inside it one VelFloodSet per
// MAC address. Every change is mirrored synchronously in the notification that reports it.

#include <memory>

#include "NoxEvpn/NoxEvpnFloodSetReactors.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "platform/types/L2Rib/L2Rib.h"
#include "platform/vel/Vel.h"

namespace Nox {

class VlanFloodSetFilterSm : public Vel::PtrInterface, public Vel::Described {
 public:
  using Reactors = FloodSetReactors<VlanFloodSetFilterSm>;
  using VelInFloodSetOutput = Reactors::VelFloodSetOutput;
  using VelVlanFloodSet = Reactors::VelVlanFloodSet;
  using VelFloodSet = Reactors::VelFloodSet;
  static constexpr std::string_view floodSetOutputReactorName = "VelInFloodSetOutput";

  static Vel::Ptr<VlanFloodSetFilterSm> VlanFloodSetFilterSmIs(
      L2Rib::DestType destType, Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
      Vel::Ptr<L2Rib::FloodSetOutput> const& out);

  L2Rib::DestType destType() const { return destType_; }
  Vel::Ptr<L2Rib::FloodSetOutput const> const& inFloodSetOutput() const { return in_; }
  Vel::Ptr<L2Rib::FloodSetOutput> const& outFloodSetOutput() const { return out_; }
  bool initialized() const { return initialized_; }
  // Always empty: a pure mirror waits for nothing, every change is copied in the notification
  // that reports it.
  std::vector<PendingItem> pending() const { return {}; }

  VEL_DESCRIBE("Nox::VlanFloodSetFilterSm", "destType", "inFloodSetOutput", "outFloodSetOutput",
               "vlanFloodSet", "initialized")

 private:
  // The reactors call the handlers and keep the reactor collection.
  friend Reactors::VelFloodSetOutput;
  friend Reactors::VelVlanFloodSet;
  friend Reactors::VelFloodSet;
  friend struct Vel::Internals<VlanFloodSetFilterSm>;

  VlanFloodSetFilterSm(L2Rib::DestType destType, Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
                       Vel::Ptr<L2Rib::FloodSetOutput> const& out);

  void handleInitialized();
  void handleSource();
  void handleVlanFloodSet(VelVlanFloodSet& reactor);
  void handleFloodSet(VelFloodSet& reactor);
  void handleDestSet(VelFloodSet& reactor, L2Rib::Dest const& dest);

  void processVlanFloodSet(Bridging::VlanId vlan);
  void processFloodSet(Bridging::VlanId vlan, Gantry::EthAddr const& mac);
  void processDest(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
  bool isDestPresent(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
  void addDest(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
  void deleteDest(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);

  // The input's flood set for (vlan, mac), or null.
  Vel::Ptr<L2Rib::FloodSet const> inputFloodSet(Bridging::VlanId vlan,
                                                Gantry::EthAddr const& mac) const;

  // The one destination type let through.
  L2Rib::DestType const destType_;
  // The unfiltered flood sets, and the notifiee that watches them.
  Vel::Ptr<L2Rib::FloodSetOutput const> in_;
  std::unique_ptr<VelInFloodSetOutput> velInFloodSetOutput_;
  // The filtered flood sets; this machine is their only writer.
  Vel::Ptr<L2Rib::FloodSetOutput> out_;
  // One reactor per VLAN present in the input.
  VEL_REACTOR_COLLECTION(vlanFloodSet, Bridging::VlanId, VelVlanFloodSet, L2Rib::VlanFloodSet)
  bool initialized_ = false;
};

Vel::Ptr<VlanFloodSetFilterSm> vlanFloodSetFilterSmFactory(
    L2Rib::DestType destType, Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
    Vel::Ptr<L2Rib::FloodSetOutput> const& out);

}  // namespace Nox
