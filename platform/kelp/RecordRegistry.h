#pragma once

// Names and text forms of the record types kept in tables. A segment records the type names of
// its keys and values; a generic reader (kelpcat) looks the names up here to print records, and
// to order keys as their type orders them.
//
// Libraries that define record types register them once, from a static registrar beside the
// type's text form:
//   static Kelp::RecordTypeRegistrar<Nox::TunnelIdToHwTunnelId> const registrar(
//       "Nox::TunnelIdToHwTunnelId", [](auto const& v) { return valueToStrep(v); });
// A type nobody registered is named by the implementation's type name and prints as hex.

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <vector>

namespace Kelp {

struct RecordCodec {
  std::string typeName;
  std::size_t bytes = 0;
  std::function<std::string(void const*)> toText;
  std::function<bool(void const*, void const*)> less;  // empty: byte order
};

void registerRecordCodec(std::type_index type, RecordCodec codec);
// The codec registered under a type name, or null.
RecordCodec const* recordCodec(std::string const& typeName);
// The name registered for a C++ type, or the implementation's name of it.
std::string recordTypeName(std::type_index type);
// Lower-case hex pairs of the bytes in memory order.
std::string hexText(void const* bytes, std::size_t size);

template <class T>
void registerRecordType(std::string name, std::function<std::string(T const&)> toText) {
  static_assert(std::is_trivially_copyable_v<T> && std::is_default_constructible_v<T>);
  RecordCodec codec;
  codec.typeName = std::move(name);
  codec.bytes = sizeof(T);
  codec.toText = [f = std::move(toText)](void const* p) {
    if constexpr (std::is_same_v<T, bool>) {
      // A byte other than 0 or 1 (a damaged segment) is no bool: loading it as one is undefined.
      unsigned char byte = 0;
      std::memcpy(&byte, p, 1);
      if (byte > 1) return hexText(p, 1);
      return f(byte == 1);
    } else {
      T v;
      std::memcpy(static_cast<void*>(&v), p, sizeof v);
      return f(v);
    }
  };
  if constexpr (requires(T const& a, T const& b) { a < b; }) {
    codec.less = [](void const* a, void const* b) {
      T x, y;
      std::memcpy(static_cast<void*>(&x), a, sizeof x);
      std::memcpy(static_cast<void*>(&y), b, sizeof y);
      return x < y;
    };
  }
  registerRecordCodec(typeid(T), std::move(codec));
}

template <class T>
std::string recordTypeName() {
  return recordTypeName(std::type_index(typeid(T)));
}

template <class T>
struct RecordTypeRegistrar {
  RecordTypeRegistrar(std::string name, std::function<std::string(T const&)> toText) {
    registerRecordType<T>(std::move(name), std::move(toText));
  }
};

}  // namespace Kelp
