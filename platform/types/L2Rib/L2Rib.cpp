#include "platform/types/L2Rib/L2Rib.h"

#include <array>
#include <charconv>

#include "platform/vel/Assert.h"
#include "platform/vel/Hash.h"

namespace L2Rib {

namespace {

constexpr char const* velSourceFile = "L2Rib/L2Rib";

std::optional<uint64_t> parseNumber(std::string_view s) {
  uint64_t v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return v;
}

std::optional<Gantry::MplsLabel> parseLabel(std::string_view s) {
  if (s == "none") return Gantry::MplsLabel();
  auto v = parseNumber(s);
  if (!v || *v > Gantry::MplsLabel::maxLabel) return std::nullopt;
  return Gantry::MplsLabel(uint32_t(*v));
}

std::optional<Gantry::IntfId> parseTunnelIntf(std::string_view s) {
  auto intf = Gantry::IntfId::fromName(s);
  if (!intf || intf->kind() != Gantry::IntfId::Kind::tunnel) return std::nullopt;
  return intf;
}

// The parts of "a/b/c", at most four; the last keeps any further slashes. Held in place: a
// scenario or table reader parses a destination on every line it reads.
class SlashParts {
 public:
  explicit SlashParts(std::string_view text) {
    while (count_ + 1 < parts_.size()) {
      auto const slash = text.find('/');
      if (slash == std::string_view::npos) break;
      parts_[count_++] = text.substr(0, slash);
      text.remove_prefix(slash + 1);
    }
    parts_[count_++] = text;
  }
  std::size_t size() const { return count_; }
  std::string_view operator[](std::size_t i) const { return parts_[i]; }

 private:
  std::array<std::string_view, 4> parts_{};
  std::size_t count_ = 0;
};

}  // namespace

uint32_t DestId::hash() const {
  Vel::MurmurHash3Stream h;
  h.addBlock(hi_);
  h.addBlock(lo_);
  return h.finish();
}

std::ostream& operator<<(std::ostream& os, DestId const& v) { return os << v.value(); }

std::ostream& operator<<(std::ostream& os, DestType v) {
  static constexpr char const* names[] = {"destTypeIntf", "destTypeVxlan", "destTypeMpls",
                                          "destTypeTunnel", "destTypeNoData"};
  if (v < std::size(names)) return os << names[v];
  return os << "destType(" << uint32_t(v) << ")";
}

std::ostream& operator<<(std::ostream& os, FloodSetType v) { return os << uint32_t(v); }

Dest Dest::mpls(DestId id, Gantry::IntfId tunnelIntf, Gantry::MplsLabel label) {
  Dest d(id);
  d.destType_ = destTypeMpls_;
  d.dataIs(DestDataMpls{tunnelIntf, label});
  return d;
}

Dest Dest::vxlan(DestId id, Gantry::IpGenAddr const& addr) {
  Dest d(id);
  d.destType_ = destTypeVxlan_;
  d.dataIs(DestDataVxlan{addr});
  return d;
}

Dest Dest::intf(DestId id, Gantry::IntfId intf) {
  Dest d(id);
  d.dataIs(DestDataIntf{intf});
  return d;
}

Dest Dest::tunnel(DestId id, Gantry::IntfId tunnelIntf) {
  Dest d(id);
  d.destType_ = destTypeTunnel_;
  d.dataIs(DestDataTunnel{tunnelIntf});
  return d;
}

Dest Dest::noData(DestId id) { return withType(id, destTypeNoData_); }

Dest Dest::withType(DestId id, DestType type) {
  Dest d(id);
  d.destType_ = type;
  return d;
}

std::optional<Dest> Dest::fromString(std::string_view text, std::string* why) {
  auto const refuse = [why](std::string reason) -> std::optional<Dest> {
    if (why) *why = std::move(reason);
    return std::nullopt;
  };
  auto const quoted = [](std::string_view part) {
    std::string q(1, '\'');
    q.append(part);
    q += '\'';
    return q;
  };
  SlashParts const parts(text);
  std::string_view const kind = parts[0];
  std::size_t const want = kind == "none" ? 2 : kind == "mpls" ? 4 : kind == "vxlan" ? 0 : 3;
  if (kind != "none" && kind != "intf" && kind != "vxlan" && kind != "mpls" && kind != "tunnel") {
    return refuse("unknown kind " + quoted(kind) + " (intf, vxlan, mpls, tunnel or none)");
  }
  if (parts.size() < 2 || (want != 0 && parts.size() != want) || (want == 0 && parts.size() < 3)) {
    return refuse(kind == "none"    ? "want none/ID"
                  : kind == "intf"  ? "want intf/ID/INTF"
                  : kind == "vxlan" ? "want vxlan/ID/IPADDR"
                  : kind == "mpls"  ? "want mpls/ID/TunnelN/LABEL"
                                    : "want tunnel/ID/TunnelN");
  }
  auto id = parseNumber(parts[1]);
  if (!id) return refuse("bad id " + quoted(parts[1]) + " (a 64-bit decimal number)");
  DestId const destId(*id);
  if (kind == "none") return noData(destId);
  if (kind == "intf") {
    auto intf = Gantry::IntfId::fromName(parts[2]);
    if (!intf || intf->empty()) return refuse("bad interface " + quoted(parts[2]));
    return Dest::intf(destId, *intf);
  }
  if (kind == "vxlan") {
    // An IPv6 address has no slash, so the rest of the text after the id is the address.
    std::string_view const rest = text.substr(text.find('/', 6) + 1);
    auto addr = Gantry::IpGenAddr::fromString(rest);
    if (!addr) return refuse("bad IP address " + quoted(rest));
    return vxlan(destId, *addr);
  }
  auto t = parseTunnelIntf(parts[2]);
  if (!t) return refuse(quoted(parts[2]) + " is not a tunnel interface (TunnelN)");
  if (kind == "tunnel") return tunnel(destId, *t);
  auto label = parseLabel(parts[3]);
  if (!label) return refuse("bad label " + quoted(parts[3]) + " (0-1048575 or none)");
  return mpls(destId, *t, *label);
}

bool Dest::operator==(Dest const& other) const {
  if (destId_ != other.destId_) return false;
  if (destType_ != other.destType_) return false;
  switch (destType_) {
    case destTypeIntf_:
      return destDataIntf() == other.destDataIntf();
    case destTypeVxlan_:
      return destDataVxlan() == other.destDataVxlan();
    case destTypeMpls_:
      return destDataMpls() == other.destDataMpls();
    case destTypeTunnel_:
      return destDataTunnel() == other.destDataTunnel();
    case destTypeNoData_:
      return true;
  }
  VEL_ASSERT(0);
  return false;
}

U32 Dest::hash() const {
  switch (destType_) {
    case destTypeIntf_:
      return destDataIntf().intfId.hash();
    case destTypeVxlan_:
      return destDataVxlan().ipAddr.asIp6().hash();
    case destTypeMpls_: {
      Vel::OneAtATimeHash h;
      h.addLittleEndian32(destDataMpls().tunnelIntfId.hash());
      h.addLittleEndian32(Vel::wangHash32(destDataMpls().label.value()));
      return h.finish();
    }
    case destTypeTunnel_:
      return destDataTunnel().tunnelIntfId.hash();
    case destTypeNoData_:
      return 0;
  }
  VEL_ASSERT(0);
  return 0;
}

std::string Dest::stringValue() const {
  std::string out;
  traceAppend(out, *this);
  return out;
}

void traceAppend(std::string& out, Dest const& v) {
  static constexpr char const* kinds[] = {"intf/", "vxlan/", "mpls/", "tunnel/", "none/"};
  if (v.destType() < std::size(kinds)) {
    out += kinds[v.destType()];
  } else {
    out += "destType(";
    Gantry::appendDecimal(out, v.destType());
    out += ")/";
  }
  Gantry::appendDecimal(out, v.destId().value());
  switch (v.destType()) {
    case destTypeIntf_:
      out += '/';
      traceAppend(out, v.destDataIntf().intfId);
      break;
    case destTypeVxlan_:
      out += '/';
      out += v.destDataVxlan().ipAddr.stringValue();
      break;
    case destTypeMpls_:
      out += '/';
      traceAppend(out, v.destDataMpls().tunnelIntfId);
      out += '/';
      traceAppend(out, v.destDataMpls().label);
      break;
    case destTypeTunnel_:
      out += '/';
      traceAppend(out, v.destDataTunnel().tunnelIntfId);
      break;
    default:
      break;
  }
}

std::ostream& operator<<(std::ostream& os, Dest const& v) { return os << v.stringValue(); }
std::string valueToStrep(Dest const& v) { return v.stringValue(); }

Vel::Ptr<FloodSetOutput> floodSetOutputFactory() {
  return Vel::Ptr<FloodSetOutput>(new FloodSetOutput);
}
Vel::Ptr<VlanFloodSet> vlanFloodSetFactory(Bridging::VlanId vlanId) {
  return Vel::Ptr<VlanFloodSet>(new VlanFloodSet(vlanId));
}
Vel::Ptr<FloodSet> floodSetFactory(Gantry::EthAddr const& macAddr) {
  return Vel::Ptr<FloodSet>(new FloodSet(macAddr));
}

VEL_REGISTER_TYPE(FloodSetOutput);
VEL_REGISTER_TYPE(VlanFloodSet);
VEL_REGISTER_TYPE(FloodSet);

}  // namespace L2Rib
