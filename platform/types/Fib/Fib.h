#pragma once

// The FIB agent's FEC records as the FEC request machines publish them: a FEC id, and a FEC made
// of up to 16 vias, each of which may push an MPLS label, point at a tunnel and point at the
// FEC of the next level. The records are kept in Kelp tables, so every byte is a field (unused
// vias stay all zero) and equal records are equal byte for byte.

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"

namespace Kelp::Fib {

// A FEC number with the kind of adjacency that made it in the top 8 bits; ordered by
// (adjacency type, number). Prints as ADJ:NUM.
class FecId {
 public:
  static constexpr int adjTypeShift = 56;
  static constexpr uint64_t maxNumber = (uint64_t(1) << adjTypeShift) - 1;

  constexpr FecId() = default;
  constexpr FecId(uint8_t adjType, uint64_t number)
      : value_((uint64_t(adjType) << adjTypeShift) | (number & maxNumber)) {}
  static constexpr FecId fromValue(uint64_t value) {
    FecId id;
    id.value_ = value;
    return id;
  }

  constexpr uint64_t value() const { return value_; }
  constexpr uint8_t adjType() const { return uint8_t(value_ >> adjTypeShift); }
  constexpr uint64_t number() const { return value_ & maxNumber; }
  uint32_t hash() const;
  friend bool operator==(FecId const&, FecId const&) = default;
  friend auto operator<=>(FecId const&, FecId const&) = default;

 private:
  uint64_t value_ = 0;
};
std::ostream& operator<<(std::ostream& os, FecId const& v);
std::string valueToStrep(FecId const& v);
void traceAppend(std::string& out, FecId const& v);

// A via's position in its FEC: 0..15. Raises Vel::RangeException outside.
class EcmpIndex {
 public:
  static constexpr uint32_t min = 0;
  static constexpr uint32_t max = 15;
  explicit EcmpIndex(uint32_t value);
  uint32_t value() const { return value_; }

 private:
  uint32_t value_;
};

class Via {
 public:
  Via() = default;

  bool hasMplsLabel() const { return fieldsSet_ & mplsLabelBit; }
  bool hasTunnelId() const { return fieldsSet_ & tunnelIdBit; }
  bool hasFecId() const { return fieldsSet_ & fecIdBit; }
  Gantry::MplsLabel mplsLabel() const { return mplsLabel_; }
  Tunnel::TunnelTable::TunnelId tunnelId() const { return tunnelId_; }
  FecId fecId() const { return fecId_; }

  // The label is pushed (label action 0).
  void mplsLabelIs(Gantry::MplsLabel label);
  void tunnelIdIs(Tunnel::TunnelTable::TunnelId tunnelId);
  void fecIdIs(FecId fecId);

  friend bool operator==(Via const&, Via const&) = default;

 private:
  static constexpr uint32_t mplsLabelBit = 1;
  static constexpr uint32_t tunnelIdBit = 2;
  static constexpr uint32_t fecIdBit = 4;

  uint32_t fieldsSet_ = 0;
  Gantry::MplsLabel mplsLabel_{0};
  Tunnel::TunnelTable::TunnelId tunnelId_;
  FecId fecId_;
};
// "label=L tunnel=T fec=FECID", only the fields that are set; "novia" for none.
std::string valueToStrep(Via const& v);
std::ostream& operator<<(std::ostream& os, Via const& v);

class Fec {
 public:
  static constexpr uint32_t maxVias = EcmpIndex::max + 1;

  Fec() = default;
  explicit Fec(FecId fecId) : fecId_(fecId) {}

  FecId fecId() const { return fecId_; }
  uint32_t vias() const { return viaCount_; }
  Via const& via(uint32_t index) const { return via_[index]; }
  // Sets via `index`; the FEC's vias are those up to the highest index set.
  void viaIs(EcmpIndex index, Via const& via);
  // Appends a via; the 17th raises the EcmpIndex range error.
  void viaAdd(Via const& via) { viaIs(EcmpIndex(viaCount_), via); }

  friend bool operator==(Fec const&, Fec const&) = default;

 private:
  FecId fecId_;
  uint32_t viaCount_ = 0;
  uint32_t padding_ = 0;
  std::array<Via, maxVias> via_{};
};
// "FECID via[0] ... via[1] ...".
std::string valueToStrep(Fec const& v);
std::ostream& operator<<(std::ostream& os, Fec const& v);

}  // namespace Kelp::Fib
