#pragma once

// The hash functions whose exact results the library's collections rely on: MurmurHash3 (x86,
// 32-bit) for compound values, Bob Jenkins' one-at-a-time hash for tunnel ids and MPLS
// destinations, and Thomas Wang's 32-bit integer hash for labels.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

namespace Vel {

uint32_t murmurHash3(void const* data, std::size_t len, uint32_t seed = 0);

// Incremental MurmurHash3 over whole 4-byte blocks: how compound values hash their fields (each
// field contributes its 32-bit hash as one block, a 64-bit integer field its 8 raw bytes).
class MurmurHash3Stream {
 public:
  explicit MurmurHash3Stream(uint32_t seed = 0) : h_(seed) {}

  void addBlock(uint32_t k) {
    k *= 0xcc9e2d51u;
    k = rotl(k, 15);
    k *= 0x1b873593u;
    h_ ^= k;
    h_ = rotl(h_, 13);
    h_ = h_ * 5 + 0xe6546b64u;
    len_ += 4;
  }
  void add64(uint64_t v) {
    addBlock(static_cast<uint32_t>(v));
    addBlock(static_cast<uint32_t>(v >> 32));
  }
  uint32_t finish() const { return fmix(h_ ^ len_); }

  static uint32_t fmix(uint32_t h) {
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
  }

 private:
  static uint32_t rotl(uint32_t x, int r) { return (x << r) | (x >> (32 - r)); }
  uint32_t h_;
  uint32_t len_ = 0;
};

// One-at-a-time over bytes, with the final avalanche.
class OneAtATimeHash {
 public:
  void addByte(uint8_t b) {
    h_ += b;
    h_ += h_ << 10;
    h_ ^= h_ >> 6;
  }
  void addLittleEndian32(uint32_t v) {
    for (int i = 0; i < 4; ++i) addByte(static_cast<uint8_t>(v >> (8 * i)));
  }
  void addLittleEndian64(uint64_t v) {
    for (int i = 0; i < 8; ++i) addByte(static_cast<uint8_t>(v >> (8 * i)));
  }
  uint32_t finish() const {
    uint32_t h = h_;
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    return h;
  }

 private:
  uint32_t h_ = 0;
};

inline uint32_t wangHash32(uint32_t k) {
  k = (k << 15) - k - 1;
  k ^= k >> 12;
  k += k << 2;
  k ^= k >> 4;
  k *= 2057;
  k ^= k >> 16;
  return k;
}

namespace Detail {
// One per key type and thread: the key hashed last and its hash.
template <class T>
struct LastHash {
  static_assert(std::is_trivially_copyable_v<T>);
  alignas(T) unsigned char key[sizeof(T)];
  uint32_t hash;
  bool valid;

  bool holds(T const& k) const {
    return valid && *std::launder(reinterpret_cast<T const*>(key)) == k;
  }
  void keep(T const& k, uint32_t h) {
    std::memcpy(key, &k, sizeof(T));
    hash = h;
    valid = true;
  }
};
template <class T>
LastHash<T>& lastHashOf() {
  thread_local LastHash<T> last;
  return last;
}
}  // namespace Detail

// The hash of the key this thread hashed last, kept with a copy of the key; otherwise compute()
// is called and its result kept. For a key that one piece of work hashes again in each mapping
// it passes through, one after the other, and whose hash costs more than comparing it. A type
// has one hash: every call for it must compute the same one.
template <class T, class Compute>
uint32_t lastHashOr(T const& key, Compute&& compute) {
  auto& last = Detail::lastHashOf<T>();
  if (last.holds(key)) return last.hash;
  uint32_t const h = compute();
  last.keep(key, h);
  return h;
}

// Keeps a hash computed earlier as the last one, so that the next lastHashOr(key) does not
// compute it again: for work that set a key aside with its hash and inserts it later.
template <class T>
void lastHashIs(T const& key, uint32_t hash) {
  Detail::lastHashOf<T>().keep(key, hash);
}

}  // namespace Vel
