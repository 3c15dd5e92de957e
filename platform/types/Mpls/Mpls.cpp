#include "platform/types/Mpls/Mpls.h"

#include <sstream>
#include <type_traits>

#include "platform/kelp/RecordRegistry.h"
#include "platform/vel/Exception.h"
#include "platform/vel/Hash.h"

namespace Mpls {

std::ostream& operator<<(std::ostream& os, LfibHwProgrammingReturnCode v) {
  return os << uint32_t(v);
}
std::ostream& operator<<(std::ostream& os, LfibViaType v) { return os << uint32_t(v); }

std::ostream& operator<<(std::ostream& os, RouteKey const& v) { return os << v.label(); }
std::string valueToStrep(RouteKey const& v) { return v.label().stringValue(); }
void traceAppend(std::string& out, RouteKey const& v) { Gantry::traceAppend(out, v.label()); }

uint32_t LfibViaSetKey::hash() const {
  Vel::MurmurHash3Stream h;
  h.add64(id_);
  return h.finish();
}
std::ostream& operator<<(std::ostream& os, LfibViaSetKey const& v) { return os << v.value(); }

uint32_t LfibViaKey::hash() const {
  Vel::MurmurHash3Stream h;
  h.addBlock(viaType_);
  h.add64(viaId_);
  return h.finish();
}
std::ostream& operator<<(std::ostream& os, LfibViaKey const& v) {
  return os << uint32_t(v.viaType()) << '/' << v.viaId();
}
std::string valueToStrep(LfibViaKey const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

std::ostream& operator<<(std::ostream& os, LfibRoute const& v) {
  return os << "viaset=" << v.viaSetKey();
}

void LfibViaSet::viaKeyIs(LfibViaKey const& key) {
  if (count_ == maxVias) throw Vel::RangeException("LfibViaSet holds at most 16 vias");
  vias_[count_++] = key;
}

std::ostream& operator<<(std::ostream& os, LfibViaSet const& v) {
  for (std::size_t i = 0; i < v.viaKeys(); ++i) os << (i ? " " : "") << v.viaKey(i);
  return os;
}

std::ostream& operator<<(std::ostream& os, LfibEvpnEthernetSegmentFilterVia const& v) {
  return os << v.intfId();
}
void traceAppend(std::string& out, LfibEvpnEthernetSegmentFilterVia const& v) {
  Gantry::traceAppend(out, v.intfId());
}

Vel::Ptr<LfibStatus> lfibStatusFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<LfibStatus>(new LfibStatus(std::move(name))));
}
Vel::Ptr<LfibTrackingStatus> lfibTrackingStatusFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<LfibTrackingStatus>(new LfibTrackingStatus(std::move(name))));
}
Vel::Ptr<LfibHwStatus> lfibHwStatusFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<LfibHwStatus>(new LfibHwStatus(std::move(name))));
}

namespace {

// Records cross process boundaries byte for byte: no byte may be left undefined.
static_assert(std::has_unique_object_representations_v<RouteKey>);
static_assert(std::has_unique_object_representations_v<LfibViaSetKey>);
static_assert(std::has_unique_object_representations_v<LfibViaKey>);
static_assert(std::has_unique_object_representations_v<LfibRoute>);
static_assert(std::has_unique_object_representations_v<LfibViaSet>);
static_assert(std::has_unique_object_representations_v<LfibEvpnEthernetSegmentFilterVia>);
static_assert(std::has_unique_object_representations_v<LfibHwProgrammingReturnCode>);

template <class T>
std::string streamed(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

template <class T>
Kelp::RecordTypeRegistrar<T> recordType(char const* name) {
  return Kelp::RecordTypeRegistrar<T>(name, [](T const& v) { return streamed(v); });
}

auto const routeKeyRecord = recordType<RouteKey>("Mpls::RouteKey");
auto const routeRecord = recordType<LfibRoute>("Mpls::LfibRoute");
auto const viaSetKeyRecord = recordType<LfibViaSetKey>("Mpls::LfibViaSetKey");
auto const viaSetRecord = recordType<LfibViaSet>("Mpls::LfibViaSet");
auto const viaKeyRecord = recordType<LfibViaKey>("Mpls::LfibViaKey");
auto const filterViaRecord =
    recordType<LfibEvpnEthernetSegmentFilterVia>("Mpls::LfibEvpnEthernetSegmentFilterVia");
auto const returnCodeRecord =
    recordType<LfibHwProgrammingReturnCode>("Mpls::LfibHwProgrammingReturnCode");
auto const presentRecord =
    Kelp::RecordTypeRegistrar<bool>("bool", [](bool v) { return v ? "true" : "false"; });

}  // namespace

VEL_REGISTER_TYPE(LfibStatus);
VEL_REGISTER_TYPE(LfibTrackingStatus);
VEL_REGISTER_TYPE(LfibHwStatus);

}  // namespace Mpls
