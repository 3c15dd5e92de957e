#pragma once

// The forwarding agent's common value types as this library consumes them: interface ids, MAC
// addresses, MPLS labels and IP addresses.

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace Gantry {

// An interface, as two 32-bit words built from its name. The top byte of the first word is the
// kind, the remaining 56 bits the number: EthernetN, Port-ChannelN, TunnelN (the dynamic tunnel
// interface of tunnel id N) and L2IntfN. The empty id (both words zero) names no interface.
class IntfId {
 public:
  enum class Kind : uint8_t { none = 0, ethernet = 1, portChannel = 2, tunnel = 3, l2Intf = 4 };
  static constexpr uint64_t maxNumber = (uint64_t(1) << 56) - 1;

  IntfId() = default;
  // Raises Vel::RangeException for a name that is none of the kinds above.
  explicit IntfId(std::string_view name);
  IntfId(Kind kind, uint64_t number);
  static std::optional<IntfId> fromName(std::string_view name);

  Kind kind() const { return static_cast<Kind>(word0_ >> 24); }
  uint64_t number() const { return (uint64_t(word0_ & 0xffffff) << 32) | word1_; }
  uint32_t word0() const { return word0_; }
  uint32_t word1() const { return word1_; }
  bool empty() const { return word0_ == 0 && word1_ == 0; }
  std::string name() const;

  // A 64-bit finaliser over the two words: equal ids hash alike and every bit of both words
  // reaches the low bits that collections index by. Inline and cheap, since every lookup keyed
  // by an interface, or by a key holding one, starts here.
  uint32_t hash() const {
    uint64_t x = (uint64_t(word0_) << 32) | word1_;
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdull;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ull;
    x ^= x >> 33;
    return static_cast<uint32_t>(x);
  }
  friend bool operator==(IntfId const&, IntfId const&) = default;
  friend auto operator<=>(IntfId const&, IntfId const&) = default;

 private:
  uint32_t word0_ = 0;
  uint32_t word1_ = 0;
};
std::ostream& operator<<(std::ostream& os, IntfId const& v);
std::string valueToStrep(IntfId const& v);
// Appends the text form without building a stream (traces use it).
void traceAppend(std::string& out, IntfId const& v);
// Appends a number in decimal.
void appendDecimal(std::string& out, uint64_t v);

// A 48-bit MAC address held as three 16-bit words, most significant first.
class EthAddr {
 public:
  EthAddr() = default;
  EthAddr(uint16_t w0, uint16_t w1, uint16_t w2) : words_{w0, w1, w2} {}
  static EthAddr fromValue(uint64_t v);
  // Six lower-case or upper-case hex pairs joined by ':'.
  static std::optional<EthAddr> fromString(std::string_view text);

  uint64_t value() const {
    return (uint64_t(words_[0]) << 32) | (uint64_t(words_[1]) << 16) | words_[2];
  }
  uint16_t word(int i) const { return words_[i]; }
  std::string stringValue() const;

  uint32_t hash() const;
  friend bool operator==(EthAddr const&, EthAddr const&) = default;
  friend auto operator<=>(EthAddr const& a, EthAddr const& b) { return a.value() <=> b.value(); }

 private:
  std::array<uint16_t, 3> words_{};
};
std::ostream& operator<<(std::ostream& os, EthAddr const& v);
std::string valueToStrep(EthAddr const& v);
void traceAppend(std::string& out, EthAddr const& v);

// A 20-bit MPLS label in a 32-bit value. 1048576, one past the 20-bit range, means no label.
class MplsLabel {
 public:
  static constexpr uint32_t noLabel = 1048576;
  static constexpr uint32_t anyLabel = 1048577;
  static constexpr uint32_t luWithdrawLabel = 8388608;
  static constexpr uint32_t maxLabel = 1048575;

  MplsLabel() = default;
  explicit MplsLabel(uint32_t value) : value_(value) {}

  uint32_t value() const { return value_; }
  bool isValid() const { return value_ <= maxLabel; }
  // Reserved labels 0-3 print as name(value) (imp-null(3)), the no-label value as N/A.
  std::string stringValue() const;

  uint32_t hash() const;
  friend bool operator==(MplsLabel const&, MplsLabel const&) = default;
  friend auto operator<=>(MplsLabel const&, MplsLabel const&) = default;

 private:
  uint32_t value_ = noLabel;
};
std::ostream& operator<<(std::ostream& os, MplsLabel const& v);
std::string valueToStrep(MplsLabel const& v);
void traceAppend(std::string& out, MplsLabel const& v);

// An IPv6 address's 16 bytes in network order.
class Ip6Addr {
 public:
  Ip6Addr() = default;
  explicit Ip6Addr(std::array<uint8_t, 16> const& bytes) : bytes_(bytes) {}
  std::array<uint8_t, 16> const& bytes() const { return bytes_; }
  uint32_t hash() const;
  friend bool operator==(Ip6Addr const&, Ip6Addr const&) = default;
  friend auto operator<=>(Ip6Addr const&, Ip6Addr const&) = default;

 private:
  std::array<uint8_t, 16> bytes_{};
};

// An IP address of either family: a family word and 16 address bytes (an IPv4 address in the
// first four).
class IpGenAddr {
 public:
  enum class Family : uint32_t { none = 0, ipv4 = 4, ipv6 = 6 };

  IpGenAddr() = default;
  IpGenAddr(Family family, std::array<uint8_t, 16> const& bytes) : family_(family), bytes_(bytes) {}
  static std::optional<IpGenAddr> fromString(std::string_view text);

  Family family() const { return family_; }
  std::array<uint8_t, 16> const& bytes() const { return bytes_; }
  // The address bytes read as an IPv6 address, whatever the family.
  Ip6Addr asIp6() const { return Ip6Addr(bytes_); }
  std::string stringValue() const;

  uint32_t hash() const { return asIp6().hash(); }
  friend bool operator==(IpGenAddr const&, IpGenAddr const&) = default;
  friend auto operator<=>(IpGenAddr const&, IpGenAddr const&) = default;

 private:
  Family family_ = Family::none;
  std::array<uint8_t, 16> bytes_{};
};
std::ostream& operator<<(std::ostream& os, IpGenAddr const& v);
std::string valueToStrep(IpGenAddr const& v);

}  // namespace Gantry
