#include "platform/vel/Hash.h"

namespace Vel {

uint32_t murmurHash3(void const* data, std::size_t len, uint32_t seed) {
  auto const* bytes = static_cast<uint8_t const*>(data);
  std::size_t const blocks = len / 4;
  uint32_t h = seed;
  uint32_t const c1 = 0xcc9e2d51u;
  uint32_t const c2 = 0x1b873593u;
  auto rotl = [](uint32_t x, int r) { return (x << r) | (x >> (32 - r)); };
  for (std::size_t i = 0; i < blocks; ++i) {
    uint32_t k;
    std::memcpy(&k, bytes + 4 * i, 4);  // little-endian hosts only, as the agent runs on
    k *= c1;
    k = rotl(k, 15);
    k *= c2;
    h ^= k;
    h = rotl(h, 13);
    h = h * 5 + 0xe6546b64u;
  }
  uint8_t const* tail = bytes + 4 * blocks;
  uint32_t k = 0;
  switch (len & 3) {
    case 3:
      k ^= static_cast<uint32_t>(tail[2]) << 16;
      [[fallthrough]];
    case 2:
      k ^= static_cast<uint32_t>(tail[1]) << 8;
      [[fallthrough]];
    case 1:
      k ^= tail[0];
      k *= c1;
      k = rotl(k, 15);
      k *= c2;
      h ^= k;
  }
  return MurmurHash3Stream::fmix(h ^ static_cast<uint32_t>(len));
}

}  // namespace Vel
