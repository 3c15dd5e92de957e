#include "NoxEvpn/NoxEvpn.h"

#include "platform/kelp/Exception.h"
#include "platform/vel/Assert.h"
#include "platform/vel/Exception.h"

namespace Nox {

std::ostream& operator<<(std::ostream& os, HwTunnelId const& v) { return os << v.value(); }
std::string valueToStrep(HwTunnelId const& v) { return std::to_string(v.value()); }

namespace {
constexpr char const* statusNames[] = {"programmed", "notProgrammed", "invalidHwId"};
}  // namespace

HwProgrammingStatus HwProgrammingStatusInstance(unsigned value) {
  return static_cast<HwProgrammingStatus>(value);
}

std::optional<HwProgrammingStatus> hwProgrammingStatusFromName(std::string_view name) {
  for (unsigned i = 0; i < std::size(statusNames); ++i) {
    if (name == statusNames[i]) return static_cast<HwProgrammingStatus>(i);
  }
  return std::nullopt;
}

HwProgrammingStatus HwProgrammingStatusInstance(Vel::String const& name) {
  auto value = hwProgrammingStatusFromName(name);
  if (!value) throw Vel::RangeException("invalid Nox::HwProgrammingStatus name '" + name + "'");
  return *value;
}

Vel::String stringValue(HwProgrammingStatus value) {
  return value < std::size(statusNames) ? statusNames[value] : std::to_string(unsigned(value));
}

std::ostream& operator<<(std::ostream& os, HwProgrammingStatus value) {
  return os << stringValue(value);
}
std::string valueToStrep(HwProgrammingStatus value) { return stringValue(value); }

Vel::TypeInfo const& hwProgrammingStatusTypeInfo() {
  static Vel::TypeInfo const info("Nox::HwProgrammingStatus",
                                  {statusNames[0], statusNames[1], statusNames[2]});
  return info;
}

namespace {
[[maybe_unused]] bool const statusRegistered =
    Vel::TypeRegistry::add(hwProgrammingStatusTypeInfo());
}  // namespace

namespace {

// Where the table service's own checks report from.
constexpr char const* kelpMapHeader = "/usr/include/Kelp/KelpMap";

Kelp::RecordTypeRegistrar<TunnelId> const tunnelIdRecord("Tunnel::TunnelTable::TunnelId",
                                                         [](TunnelId const& t) {
                                                           return valueToStrep(t);
                                                         });
Kelp::RecordTypeRegistrar<TunnelIdToHwTunnelId> const tunnelEntryRecord(
    "Nox::TunnelIdToHwTunnelId", [](TunnelIdToHwTunnelId const& e) { return e.kelpString(); });

}  // namespace

TunnelIdToHwTunnelIdMapping::TunnelIdToHwTunnelIdMapping(Vel::Name name, VelKelp::Side side)
    : name_(std::move(name)),
      isCounter_(Trace::counterIs("tunnelIdToHwTunnelIdIs")),
      delCounter_(Trace::counterIs("tunnelIdToHwTunnelIdDel")),
      notifyCounter_(Trace::counterIs("tunnelIdToHwTunnelIdNotify")),
      tunnelIdToHwTunnelId_(name_, side, tunnelIdToHwTunnelIdHooks(), tunnelIdToHwTunnelIdHooks()) {
}

// The writer's own writes and the changes a reader polls become the same notifications.
VelKelp::Hooks<TunnelId> TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdHooks() {
  return {.onKey = [this](TunnelId const& key) { tunnelIdToHwTunnelIdNotify(key); },
          .onCollection = [this] { tunnelIdToHwTunnelIdNotifyCollection(); },
          .onStatus = [this] { tunnelIdToHwTunnelIdNotifyControl(); }};
}

Kelp::Status TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdControl() const {
  return tunnelIdToHwTunnelId_.table().status();
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdReadyIs(bool ready) {
  VEL_ASSERT(tunnelIdToHwTunnelIdWritable());
  tunnelIdToHwTunnelId_.table().readyIs(ready);
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdIs(TunnelIdToHwTunnelId const& entry) {
  VEL_ASSERT(tunnelIdToHwTunnelIdWritable());
  isCounter_->inc();
  try {
    // The table notifies the key (tunnelIdToHwTunnelIdNotify) once the entry is visible.
    tunnelIdToHwTunnelId_.table().safeWrite(entry.key(), entry);
  } catch (Kelp::CorruptionException const&) {
    tunnelIdToHwTunnelId_.table().corruptionDetected();
    Vel::assertionFailed("KelpMap::safeWrite() in no man's land", kelpMapHeader, __LINE__,
                         "safeWrite");
  }
}

TunnelIdToHwTunnelId* TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdSlot(TunnelId const& key) {
  VEL_ASSERT(tunnelIdToHwTunnelIdWritable());
  return tunnelIdToHwTunnelId_.table().directSlot(key);
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdCommit(TunnelIdToHwTunnelId const* entry) {
  VEL_ASSERT(tunnelIdToHwTunnelIdWritable());
  isCounter_->inc();
  try {
    tunnelIdToHwTunnelId_.table().directCommit(entry);
  } catch (Kelp::CorruptionException const&) {
    tunnelIdToHwTunnelId_.table().corruptionDetected();
    tunnelIdToHwTunnelIdNotify(entry->key());
    Vel::assertionFailed("KelpMap::directCommit() in no man's land", kelpMapHeader, __LINE__,
                         "directCommit");
  }
}

TunnelIdToHwTunnelId TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdDel(TunnelId const& key) {
  VEL_ASSERT(tunnelIdToHwTunnelIdWritable());
  delCounter_->inc();
  TunnelIdToHwTunnelId removed;
  tunnelIdToHwTunnelId_.table().safeRemove(key, &removed);
  return removed;
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdDelAll() {
  while (!tunnelIdToHwTunnelId_.empty()) {
    tunnelIdToHwTunnelIdDel(tunnelIdToHwTunnelId_.begin()->key);
  }
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdNotify(TunnelId const& key) {
  notifyCounter_->inc();
  notify<NotifieeConst>([&key](NotifieeConst& n) { n.onTunnelIdToHwTunnelId(key); });
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdNotifyCollection() {
  notify<NotifieeConst>([](NotifieeConst& n) { n.onTunnelIdToHwTunnelId(); });
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdNotifyControl() {
  notify<NotifieeConst>([](NotifieeConst& n) { n.onTunnelIdToHwTunnelIdControl(); });
}

std::size_t TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdPoll(std::size_t maxChanges) {
  VEL_ASSERT(!tunnelIdToHwTunnelIdWritable());
  return tunnelIdToHwTunnelId_.poll(maxChanges);
}

Vel::Ptr<TunnelIdToHwTunnelIdMapping> tunnelIdToHwTunnelIdMappingFactory(Vel::Name name,
                                                                         VelKelp::Side side) {
  return Vel::validPtr(Vel::Ptr<TunnelIdToHwTunnelIdMapping>(
      new TunnelIdToHwTunnelIdMapping(std::move(name), side)));
}

VEL_REGISTER_TYPE(IntfVlanKey);
VEL_REGISTER_TYPE(IntfTunnelKey);
VEL_REGISTER_TYPE(IntfVlanTunnelKey);
VEL_REGISTER_TYPE(TunnelIdToHwTunnelId);
VEL_REGISTER_TYPE(IntfVlanSet);
VEL_REGISTER_TYPE(VlanIntfSet);
VEL_REGISTER_TYPE(TunnelIntfVlanSet);
VEL_REGISTER_TYPE(IntfTunnelVlanSet);
VEL_REGISTER_TYPE(IntfVlanStatus);
VEL_REGISTER_TYPE(TunnelIdToHwTunnelIdMapping);

}  // namespace Nox
