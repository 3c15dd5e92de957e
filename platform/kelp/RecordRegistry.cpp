// The process-wide registry of record codecs; see RecordRegistry.h.

#include "platform/kelp/RecordRegistry.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <unordered_map>

namespace Kelp {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, RecordCodec> byName;
  std::unordered_map<std::type_index, std::string> nameOf;
};

Registry& registry();

// Plain integers are common keys and values of small tables; kelpcat prints them in decimal.
template <class T>
void registerInteger(Registry& r, char const* name) {
  RecordCodec codec;
  codec.typeName = name;
  codec.bytes = sizeof(T);
  codec.toText = [](void const* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return std::to_string(v);
  };
  codec.less = [](void const* a, void const* b) {
    T x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x < y;
  };
  r.nameOf[typeid(T)] = name;
  r.byName[name] = std::move(codec);
}

Registry& registry() {
  // Built on first use, so that static registrars of other libraries may run in any order.
  static Registry* r = [] {
    auto* fresh = new Registry;
    registerInteger<std::uint32_t>(*fresh, "uint32");
    registerInteger<std::uint64_t>(*fresh, "uint64");
    registerInteger<std::int64_t>(*fresh, "int64");
    return fresh;
  }();
  return *r;
}

}  // namespace

void registerRecordCodec(std::type_index type, RecordCodec codec) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.nameOf[type] = codec.typeName;
  std::string const name = codec.typeName;
  r.byName[name] = std::move(codec);
}

RecordCodec const* recordCodec(std::string const& typeName) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto const it = r.byName.find(typeName);
  return it == r.byName.end() ? nullptr : &it->second;
}

std::string recordTypeName(std::type_index type) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto const it = r.nameOf.find(type);
  return it == r.nameOf.end() ? std::string(type.name()) : it->second;
}

std::string hexText(void const* bytes, std::size_t size) {
  static char const digits[] = "0123456789abcdef";
  auto const* p = static_cast<unsigned char const*>(bytes);
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += digits[p[i] >> 4];
    text += digits[p[i] & 15];
  }
  return text;
}

}  // namespace Kelp
