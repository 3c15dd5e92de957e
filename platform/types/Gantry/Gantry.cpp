#include "platform/types/Gantry/Gantry.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <cstring>

#include "platform/vel/Exception.h"
#include "platform/vel/Hash.h"

namespace Gantry {

namespace {

struct KindName {
  IntfId::Kind kind;
  std::string_view prefix;
};
// Longer prefixes are not prefixes of one another, so the first match is the only one.
constexpr KindName kindNames[] = {
    {IntfId::Kind::ethernet, "Ethernet"},
    {IntfId::Kind::portChannel, "Port-Channel"},
    {IntfId::Kind::tunnel, "Tunnel"},
    {IntfId::Kind::l2Intf, "L2Intf"},
};

std::optional<uint64_t> parseDecimal(std::string_view digits, uint64_t max) {
  if (digits.empty()) return std::nullopt;
  uint64_t v = 0;
  auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v);
  if (ec != std::errc() || end != digits.data() + digits.size() || v > max) return std::nullopt;
  return v;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

IntfId::IntfId(Kind kind, uint64_t number) {
  if (number > maxNumber) throw Vel::RangeException("interface number out of range");
  word0_ = (uint32_t(kind) << 24) | uint32_t(number >> 32);
  word1_ = uint32_t(number);
}

std::optional<IntfId> IntfId::fromName(std::string_view name) {
  if (name.empty()) return IntfId();
  for (auto const& [kind, prefix] : kindNames) {
    if (!name.starts_with(prefix)) continue;
    auto number = parseDecimal(name.substr(prefix.size()), maxNumber);
    if (!number) return std::nullopt;
    return IntfId(kind, *number);
  }
  return std::nullopt;
}

IntfId::IntfId(std::string_view name) {
  auto id = fromName(name);
  if (!id) throw Vel::RangeException("invalid interface name '" + std::string(name) + "'");
  *this = *id;
}

std::string IntfId::name() const {
  std::string out;
  traceAppend(out, *this);
  return out;
}

void appendDecimal(std::string& out, uint64_t v) {
  char buf[20];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, end);
}

void traceAppend(std::string& out, IntfId const& v) {
  for (auto const& [k, prefix] : kindNames) {
    if (k != v.kind()) continue;
    out += prefix;
    appendDecimal(out, v.number());
  }
}

std::ostream& operator<<(std::ostream& os, IntfId const& v) { return os << v.name(); }
std::string valueToStrep(IntfId const& v) { return v.name(); }

EthAddr EthAddr::fromValue(uint64_t v) {
  return EthAddr(uint16_t(v >> 32), uint16_t(v >> 16), uint16_t(v));
}

std::optional<EthAddr> EthAddr::fromString(std::string_view text) {
  if (text.size() != 17) return std::nullopt;
  uint64_t v = 0;
  for (std::size_t i = 0; i < 17; i += 3) {
    int hi = hexDigit(text[i]);
    int lo = hexDigit(text[i + 1]);
    if (hi < 0 || lo < 0 || (i + 2 < 17 && text[i + 2] != ':')) return std::nullopt;
    v = (v << 8) | uint64_t(hi << 4 | lo);
  }
  return fromValue(v);
}

std::string EthAddr::stringValue() const {
  std::string out;
  traceAppend(out, *this);
  return out;
}

void traceAppend(std::string& out, EthAddr const& v) {
  static constexpr char hex[] = "0123456789abcdef";
  char buf[17];
  uint64_t const value = v.value();
  for (std::size_t i = 0; i < 6; ++i) {
    unsigned const byte = unsigned(value >> (40 - 8 * i)) & 0xff;
    buf[3 * i] = hex[byte >> 4];
    buf[3 * i + 1] = hex[byte & 0xf];
    if (i < 5) buf[3 * i + 2] = ':';
  }
  out.append(buf, sizeof buf);
}

uint32_t EthAddr::hash() const {
  Vel::MurmurHash3Stream h;
  h.addBlock(uint32_t(words_[0]) << 16 | words_[1]);
  h.addBlock(words_[2]);
  return h.finish();
}

std::ostream& operator<<(std::ostream& os, EthAddr const& v) { return os << v.stringValue(); }
std::string valueToStrep(EthAddr const& v) { return v.stringValue(); }

std::string MplsLabel::stringValue() const {
  std::string out;
  traceAppend(out, *this);
  return out;
}

void traceAppend(std::string& out, MplsLabel const& v) {
  static constexpr char const* reserved[] = {"exp-null-v4(0)", "router-alert(1)", "exp-null-v6(2)",
                                             "imp-null(3)"};
  uint32_t const value = v.value();
  if (value <= 3) {
    out += reserved[value];
  } else if (value == MplsLabel::noLabel) {
    out += "N/A";
  } else if (value == MplsLabel::anyLabel) {
    out += "(any)";
  } else if (value == MplsLabel::luWithdrawLabel) {
    out += "(lu-withdraw)";
  } else {
    appendDecimal(out, value);
  }
}

uint32_t MplsLabel::hash() const { return Vel::wangHash32(value_); }

std::ostream& operator<<(std::ostream& os, MplsLabel const& v) { return os << v.stringValue(); }
std::string valueToStrep(MplsLabel const& v) { return v.stringValue(); }

uint32_t Ip6Addr::hash() const { return Vel::murmurHash3(bytes_.data(), bytes_.size()); }

std::optional<IpGenAddr> IpGenAddr::fromString(std::string_view text) {
  std::string s(text);
  std::array<uint8_t, 16> bytes{};
  if (inet_pton(AF_INET, s.c_str(), bytes.data()) == 1) return IpGenAddr(Family::ipv4, bytes);
  if (inet_pton(AF_INET6, s.c_str(), bytes.data()) == 1) return IpGenAddr(Family::ipv6, bytes);
  return std::nullopt;
}

std::string IpGenAddr::stringValue() const {
  char buf[INET6_ADDRSTRLEN];
  switch (family_) {
    case Family::ipv4:
      return inet_ntop(AF_INET, bytes_.data(), buf, sizeof buf);
    case Family::ipv6:
      return inet_ntop(AF_INET6, bytes_.data(), buf, sizeof buf);
    case Family::none:
      break;
  }
  return "0.0.0.0";
}

std::ostream& operator<<(std::ostream& os, IpGenAddr const& v) { return os << v.stringValue(); }
std::string valueToStrep(IpGenAddr const& v) { return v.stringValue(); }

}  // namespace Gantry
