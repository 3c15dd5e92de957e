#pragma once

// Values: immutable records compared, ordered, hashed and printed field by field. A value type
// derives from Vel::Value<Self> and declares, once,
//   VEL_TYPE_INFO("Nox::IntfVlanKey", "intfId", "vlanId")
//   auto fields() const { return std::tie(intfId_, vlanId_); }
// and gets ==, <=>, hash() and the text form "Value('Nox::IntfVlanKey', ** {'intfId': ...})".

#include <compare>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>

#include "platform/vel/Hash.h"

namespace Vel {

// How one field enters a compound hash: 64-bit integers as their 8 raw bytes, other integers
// as one block, everything else as its own 32-bit hash().
template <class T>
void hashField(MurmurHash3Stream& h, T const& field) {
  if constexpr (std::is_integral_v<T> && sizeof(T) == 8) {
    h.add64(static_cast<uint64_t>(field));
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    h.addBlock(static_cast<uint32_t>(field));
  } else {
    h.addBlock(field.hash());
  }
}

// The text form of any value: its valueToStrep when it has one, else what operator<< writes.
template <class T>
std::string toStrep(T const& v) {
  if constexpr (std::is_same_v<T, std::string>) {
    return v;
  } else if constexpr (std::is_same_v<T, bool>) {
    return v ? "true" : "false";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(v);
  } else {
    std::ostringstream os;
    os << v;
    return os.str();
  }
}

template <class Self>
class Value {
 public:
  friend bool operator==(Self const& a, Self const& b) { return a.fields() == b.fields(); }
  friend auto operator<=>(Self const& a, Self const& b) { return a.fields() <=> b.fields(); }

  uint32_t hash() const {
    MurmurHash3Stream h;
    std::apply([&h](auto const&... f) { (hashField(h, f), ...); }, self().fields());
    return h.finish();
  }

  friend std::ostream& operator<<(std::ostream& os, Self const& v) {
    auto const& names = Self::staticTypeInfo().attributes();
    os << "Value('" << Self::staticTypeInfo().name() << "', ** {";
    std::size_t i = 0;
    std::apply(
        [&](auto const&... f) {
          ((os << (i ? ", '" : "'") << names[i] << "': " << toStrep(f), ++i), ...);
        },
        v.fields());
    return os << "})";
  }
  friend std::string valueToStrep(Self const& v) { return toStrep(v); }

 private:
  Self const& self() const { return static_cast<Self const&>(*this); }
};

}  // namespace Vel
