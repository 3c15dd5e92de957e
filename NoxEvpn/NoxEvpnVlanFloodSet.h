#pragma once

// The values and entities that flood-set hardware programming exchanges: the via that names one
// MPLS flooding path, the configuration and hardware information of one MPLS destination, the
// per-(MAC, VLAN) configuration and status entities with their published collections, and the
// reverse indexes from tunnels and vias to flood-set entries.

#include <cstdint>
#include <tuple>

#include "NoxEvpn/NoxEvpn.h"
#include "platform/types/L2Rib/L2Rib.h"

namespace Nox {

// One MPLS flooding path: a tunnel and the label the remote end advertised.
class MplsFloodSetVia : public Vel::Value<MplsFloodSetVia> {
 public:
  MplsFloodSetVia() = default;
  MplsFloodSetVia(TunnelId tunnelId, Gantry::MplsLabel label)
      : tunnelId_(tunnelId), label_(label) {}
  TunnelId tunnelId() const { return tunnelId_; }
  Gantry::MplsLabel label() const { return label_; }
  // A destination's work looks its via up in several mappings one after the other (its set,
  // its hardware information, its wait): each thread keeps the last via's hash.
  uint32_t hash() const {
    return Vel::lastHashOr(*this, [this] { return Value::hash(); });
  }

  VEL_TYPE_INFO("Nox::MplsFloodSetVia", "tunnelId", "label")
  auto fields() const { return std::tie(tunnelId_, label_); }

 private:
  TunnelId tunnelId_;
  Gantry::MplsLabel label_;
};

// The complete hardware configuration of one MPLS destination of a flood set. The empty
// configuration (all fields default) stands for no configuration: operator! is true for it.
class MplsDestConfig : public Vel::Value<MplsDestConfig> {
 public:
  MplsDestConfig() = default;
  MplsDestConfig(TunnelId tunnelId, Gantry::MplsLabel label, HwTunnelId hwTunnelId,
                 uint64_t hwIdForTunnelProgramming, Gantry::IntfId l2IntfId)
      : tunnelId_(tunnelId),
        label_(label),
        hwTunnelId_(hwTunnelId),
        hwIdForTunnelProgramming_(hwIdForTunnelProgramming),
        l2IntfId_(l2IntfId) {}
  TunnelId tunnelId() const { return tunnelId_; }
  Gantry::MplsLabel label() const { return label_; }
  HwTunnelId hwTunnelId() const { return hwTunnelId_; }
  uint64_t hwIdForTunnelProgramming() const { return hwIdForTunnelProgramming_; }
  Gantry::IntfId l2IntfId() const { return l2IntfId_; }
  MplsFloodSetVia via() const { return MplsFloodSetVia(tunnelId_, label_); }
  bool operator!() const { return *this == MplsDestConfig(); }

  VEL_TYPE_INFO("Nox::MplsDestConfig", "tunnelId", "label", "hwTunnelId",
                "hwIdForTunnelProgramming", "l2IntfId")
  auto fields() const {
    return std::tie(tunnelId_, label_, hwTunnelId_, hwIdForTunnelProgramming_, l2IntfId_);
  }

 private:
  TunnelId tunnelId_;
  Gantry::MplsLabel label_;
  HwTunnelId hwTunnelId_;
  uint64_t hwIdForTunnelProgramming_ = 0;
  Gantry::IntfId l2IntfId_;
};

// The hardware information of one via, as the flood-set FEC requests publish it.
class MplsDestHwInfo : public Vel::Value<MplsDestHwInfo> {
 public:
  MplsDestHwInfo() = default;
  MplsDestHwInfo(uint64_t hwIdForTunnelProgramming, Gantry::IntfId l2IntfId)
      : hwIdForTunnelProgramming_(hwIdForTunnelProgramming), l2IntfId_(l2IntfId) {}
  uint64_t hwIdForTunnelProgramming() const { return hwIdForTunnelProgramming_; }
  Gantry::IntfId l2IntfId() const { return l2IntfId_; }

  VEL_TYPE_INFO("Nox::MplsDestHwInfo", "hwIdForTunnelProgramming", "l2IntfId")
  auto fields() const { return std::tie(hwIdForTunnelProgramming_, l2IntfId_); }

 private:
  uint64_t hwIdForTunnelProgramming_ = 0;
  Gantry::IntfId l2IntfId_;
};

// One destination of one flood set.
class VlanMacDest : public Vel::Value<VlanMacDest> {
 public:
  VlanMacDest() = default;
  VlanMacDest(Bridging::VlanId vlanId, Gantry::EthAddr const& macAddr, L2Rib::Dest const& dest)
      : vlanId_(vlanId), macAddr_(macAddr), dest_(dest) {}
  Bridging::VlanId vlanId() const { return vlanId_; }
  Gantry::EthAddr const& macAddr() const { return macAddr_; }
  L2Rib::Dest const& dest() const { return dest_; }
  Bridging::MacVlanPair pair() const { return Bridging::MacVlanPair(macAddr_, vlanId_); }
  uint32_t hash() const;

  VEL_TYPE_INFO("Nox::VlanMacDest", "vlanId", "macAddr", "dest")
  auto fields() const { return std::tie(vlanId_, macAddr_, dest_); }

 private:
  Bridging::VlanId vlanId_;
  Gantry::EthAddr macAddr_;
  L2Rib::Dest dest_;
};

// A destination is hashed by each mapping it passes through, one after the other (the prefetch
// of its places, both reverse indexes, the configuration record), and its hash (a one-at-a-time
// hash inside a MurmurHash3) is the dearest part of a lookup: each thread keeps the last one.
inline uint32_t VlanMacDest::hash() const {
  return Vel::lastHashOr(*this, [this] { return Value::hash(); });
}

// Ascending (VLAN, MAC, destination id, destination text): destinations have no order of their
// own, and the lists of waiting destinations are shown in this one.
struct VlanMacDestOrder {
  bool operator()(VlanMacDest const& a, VlanMacDest const& b) const;
};

// Via -> hardware information; written by the flood-set FEC requests.
class HwInfoMapping : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<HwInfoMapping> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onMapping(MplsFloodSetVia const&) {}
  };
  VEL_DESCRIBE("Nox::HwInfoMapping", "mapping")
  VEL_VALUE_COLLECTION(mapping, Mapping, MplsFloodSetVia, MplsDestHwInfo)
};

NOX_SET_ENTITY(VlanFloodSetConfig, "Nox::VlanFloodSetConfig", Bridging::MacVlanPair, mplsDestConfig,
               MplsDestConfig, MplsDestConfig);
NOX_KEYED_ENTITY(VlanFloodSetStatus, "Nox::VlanFloodSetStatus", Bridging::MacVlanPair,
                 mplsDestStatus, MplsDestStatus, MplsDestConfig, HwProgrammingStatus);

// Per flood set, the destination configurations to program; read by the hardware agent.
class EvpnVlanFloodSetHwConfig : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EvpnVlanFloodSetHwConfig> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onConfig(Bridging::MacVlanPair const&) {}
  };
  VEL_DESCRIBE("Nox::EvpnVlanFloodSetHwConfig", "config")
  VEL_ENTITY_COLLECTION(config, Config, Bridging::MacVlanPair, VlanFloodSetConfig)
};

// Per flood set, the programming status of each configuration; written by the hardware agent.
class EvpnVlanFloodSetHwStatus : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EvpnVlanFloodSetHwStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onStatus(Bridging::MacVlanPair const&) {}
  };
  VEL_DESCRIBE("Nox::EvpnVlanFloodSetHwStatus", "status")
  VEL_ENTITY_COLLECTION(status, Status, Bridging::MacVlanPair, VlanFloodSetStatus)
};

// Reverse indexes of the machines.
NOX_SET_ENTITY(TunnelIdToMplsFloodSetVia, "Nox::TunnelIdToMplsFloodSetVia", TunnelId,
               mplsFloodSetViaSet, MplsFloodSetViaSet, MplsFloodSetVia);
NOX_SET_ENTITY(MplsFloodSetViaToVlanMacDestSet, "Nox::MplsFloodSetViaToVlanMacDestSet",
               MplsFloodSetVia, vlanMacDestSet, VlanMacDestSet, VlanMacDest);
NOX_SET_ENTITY(MplsFloodSetViaToFloodSetStatus, "Nox::MplsFloodSetViaToFloodSetStatus",
               MplsFloodSetVia, status, Status, Bridging::MacVlanPair);
NOX_SET_ENTITY(TunnelVlanMacDestSet, "Nox::TunnelVlanMacDestSet", TunnelId, vlanMacDestSet,
               VlanMacDestSet, VlanMacDest);

Vel::Ptr<HwInfoMapping> hwInfoMappingFactory();
Vel::Ptr<EvpnVlanFloodSetHwConfig> evpnVlanFloodSetHwConfigFactory();
Vel::Ptr<EvpnVlanFloodSetHwStatus> evpnVlanFloodSetHwStatusFactory();
Vel::Ptr<VlanFloodSetConfig> vlanFloodSetConfigFactory(Bridging::MacVlanPair const& pair);
Vel::Ptr<VlanFloodSetStatus> vlanFloodSetStatusFactory(Bridging::MacVlanPair const& pair);
Vel::Ptr<TunnelIdToMplsFloodSetVia> tunnelIdToMplsFloodSetViaFactory(TunnelId tunnelId);
Vel::Ptr<MplsFloodSetViaToFloodSetStatus> mplsFloodSetViaToFloodSetStatusFactory(
    MplsFloodSetVia const& via);

// Lookups every reader of flood sets and their hardware status makes. Raw lookups: they run for
// every destination of every change, and taking references would write to every entity on the way.
// Whether the output holds dest in the flood set of mac in vlan.
bool isDestInFloodSet(L2Rib::FloodSetOutput const* output, Bridging::VlanId vlan,
                      Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
// Whether the status of the pair holds config with status programmed.
bool isMplsDestConfigProgrammed(EvpnVlanFloodSetHwStatus const* hwStatus,
                                Bridging::MacVlanPair const& pair, MplsDestConfig const& config);

}  // namespace Nox
