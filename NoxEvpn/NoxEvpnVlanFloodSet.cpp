#include "NoxEvpn/NoxEvpnVlanFloodSet.h"

namespace Nox {

Vel::Ptr<HwInfoMapping> hwInfoMappingFactory() {
  return Vel::Ptr<HwInfoMapping>(new HwInfoMapping);
}

Vel::Ptr<EvpnVlanFloodSetHwConfig> evpnVlanFloodSetHwConfigFactory() {
  return Vel::Ptr<EvpnVlanFloodSetHwConfig>(new EvpnVlanFloodSetHwConfig);
}

Vel::Ptr<EvpnVlanFloodSetHwStatus> evpnVlanFloodSetHwStatusFactory() {
  return Vel::Ptr<EvpnVlanFloodSetHwStatus>(new EvpnVlanFloodSetHwStatus);
}

Vel::Ptr<VlanFloodSetConfig> vlanFloodSetConfigFactory(Bridging::MacVlanPair const& pair) {
  return Vel::Ptr<VlanFloodSetConfig>(new VlanFloodSetConfig(pair));
}

Vel::Ptr<VlanFloodSetStatus> vlanFloodSetStatusFactory(Bridging::MacVlanPair const& pair) {
  return Vel::Ptr<VlanFloodSetStatus>(new VlanFloodSetStatus(pair));
}

Vel::Ptr<TunnelIdToMplsFloodSetVia> tunnelIdToMplsFloodSetViaFactory(TunnelId tunnelId) {
  return Vel::Ptr<TunnelIdToMplsFloodSetVia>(new TunnelIdToMplsFloodSetVia(tunnelId));
}

Vel::Ptr<MplsFloodSetViaToFloodSetStatus> mplsFloodSetViaToFloodSetStatusFactory(
    MplsFloodSetVia const& via) {
  return Vel::Ptr<MplsFloodSetViaToFloodSetStatus>(new MplsFloodSetViaToFloodSetStatus(via));
}

VEL_REGISTER_TYPE(MplsFloodSetVia);
VEL_REGISTER_TYPE(MplsDestConfig);
VEL_REGISTER_TYPE(MplsDestHwInfo);
VEL_REGISTER_TYPE(VlanMacDest);
VEL_REGISTER_TYPE(HwInfoMapping);
VEL_REGISTER_TYPE(VlanFloodSetConfig);
VEL_REGISTER_TYPE(VlanFloodSetStatus);
VEL_REGISTER_TYPE(EvpnVlanFloodSetHwConfig);
VEL_REGISTER_TYPE(EvpnVlanFloodSetHwStatus);
VEL_REGISTER_TYPE(TunnelIdToMplsFloodSetVia);
VEL_REGISTER_TYPE(MplsFloodSetViaToVlanMacDestSet);
VEL_REGISTER_TYPE(MplsFloodSetViaToFloodSetStatus);
VEL_REGISTER_TYPE(TunnelVlanMacDestSet);

bool isDestInFloodSet(L2Rib::FloodSetOutput const* output, Bridging::VlanId vlan,
                      Gantry::EthAddr const& mac, L2Rib::Dest const& dest) {
  auto const vlanFloodSet = output ? output->vlanFloodSetColl().find(vlan) : nullptr;
  auto const floodSet = vlanFloodSet ? vlanFloodSet->floodSetColl().find(mac) : nullptr;
  return floodSet && floodSet->destSetIsMemberOf(dest);
}

bool isMplsDestConfigProgrammed(EvpnVlanFloodSetHwStatus const* hwStatus,
                                Bridging::MacVlanPair const& pair, MplsDestConfig const& config) {
  auto const status = hwStatus ? hwStatus->statusColl().find(pair) : nullptr;
  auto const value = status ? status->mplsDestStatusColl().find(config) : nullptr;
  return value && *value == programmed;
}

bool VlanMacDestOrder::operator()(VlanMacDest const& a, VlanMacDest const& b) const {
  if (auto c = a.vlanId() <=> b.vlanId(); c != 0) return c < 0;
  if (auto c = a.macAddr() <=> b.macAddr(); c != 0) return c < 0;
  if (auto c = a.dest().destId() <=> b.dest().destId(); c != 0) return c < 0;
  return a.dest().stringValue() < b.dest().stringValue();
}

}  // namespace Nox
