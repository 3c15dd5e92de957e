#include "platform/types/Evpn/Evpn.h"

namespace Evpn {

std::ostream& operator<<(std::ostream& os, EncapType v) {
  switch (v) {
    case EncapType::none:
      return os << "none";
    case EncapType::mpls:
      return os << "mpls";
    case EncapType::vxlan:
      return os << "vxlan";
  }
  return os << static_cast<uint32_t>(v);
}

Tunnel::TunnelTable::TunnelId tepTunnelId(Gantry::IntfId const& tep) {
  return Tunnel::TunnelTable::TunnelId(tep.number());
}

Vel::Ptr<EvpnStatus> evpnStatusFactory() {
  return Vel::validPtr(Vel::Ptr<EvpnStatus>(new EvpnStatus));
}

VEL_REGISTER_TYPE(EncapTypeLabel);
VEL_REGISTER_TYPE(EthernetSegmentStatus);
VEL_REGISTER_TYPE(EvpnStatus);

}  // namespace Evpn
