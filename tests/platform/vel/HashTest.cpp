#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "platform/vel/Hash.h"

namespace {

uint32_t murmur(std::string const& s, uint32_t seed) {
  return Vel::murmurHash3(s.data(), s.size(), seed);
}

TEST(MurmurHash3, MatchesPublishedVectors) {
  EXPECT_EQ(murmur("", 0), 0u);
  EXPECT_EQ(murmur("", 1), 0x514E28B7u);
  EXPECT_EQ(murmur("", 0xffffffff), 0x81F16F39u);
  EXPECT_EQ(murmur(std::string(4, '\0'), 0), 0x2362F9DEu);
  EXPECT_EQ(murmur("a", 0x9747b28c), 0x7FA09EA6u);
  EXPECT_EQ(murmur("aa", 0x9747b28c), 0x5D211726u);
  EXPECT_EQ(murmur("aaa", 0x9747b28c), 0x283E0130u);
  EXPECT_EQ(murmur("aaaa", 0x9747b28c), 0x5A97808Au);
  EXPECT_EQ(murmur("abcd", 0x9747b28c), 0xF0478627u);
  EXPECT_EQ(murmur("Hello, world!", 0x9747b28c), 0x24884CBAu);
  EXPECT_EQ(murmur("The quick brown fox jumps over the lazy dog", 0x9747b28c), 0x2FA826CDu);
}

TEST(MurmurHash3, StreamOfBlocksEqualsHashOfTheirBytes) {
  uint32_t const words[] = {0xdeadbeef, 7, 0, 0xffffffff};
  uint64_t const wide = 0x0123456789abcdefull;
  Vel::MurmurHash3Stream stream;
  for (uint32_t w : words) stream.addBlock(w);
  stream.add64(wide);
  unsigned char bytes[24];
  std::memcpy(bytes, words, 16);
  std::memcpy(bytes + 16, &wide, 8);
  EXPECT_EQ(stream.finish(), Vel::murmurHash3(bytes, sizeof bytes));
}

TEST(OneAtATimeHash, MatchesPublishedVectors) {
  auto oaat = [](std::string const& s) {
    Vel::OneAtATimeHash h;
    for (unsigned char c : s) h.addByte(c);
    return h.finish();
  };
  EXPECT_EQ(oaat("a"), 0xca2e9442u);
  EXPECT_EQ(oaat("The quick brown fox jumps over the lazy dog"), 0x519e91f5u);
  Vel::OneAtATimeHash le;
  le.addLittleEndian64(5);
  EXPECT_EQ(le.finish(), 0xa89e5615u);
}

TEST(WangHash, MatchesIndependentComputation) {
  EXPECT_EQ(Vel::wangHash32(0), 0xcaa3caa3u);
  EXPECT_EQ(Vel::wangHash32(3), 0x3882835cu);
  EXPECT_EQ(Vel::wangHash32(1048576), 0x25708aa0u);
}

// A key's kept hash serves only that key: another key is hashed afresh and replaces it, and
// each thread keeps its own.
TEST(LastHash, ServesOnlyTheKeyHashedOrKeptLastOnItsThread) {
  struct Key {
    uint32_t a;
    uint32_t b;
    bool operator==(Key const&) const = default;
  };
  int computed = 0;
  auto hashOf = [&computed](Key const& k) {
    return Vel::lastHashOr(k, [&] {
      ++computed;
      return k.a * 31 + k.b;
    });
  };
  EXPECT_EQ(hashOf({1, 2}), 33u);
  EXPECT_EQ(hashOf({1, 2}), 33u);
  EXPECT_EQ(computed, 1);
  EXPECT_EQ(hashOf({1, 3}), 34u);
  EXPECT_EQ(hashOf({1, 2}), 33u);
  EXPECT_EQ(computed, 3);
  std::thread([&] { EXPECT_EQ(hashOf({7, 0}), 217u); }).join();
  EXPECT_EQ(hashOf({1, 2}), 33u);
  EXPECT_EQ(computed, 4);
  // A hash kept with a key set aside serves that key without computing it.
  Vel::lastHashIs(Key{5, 5}, 160u);
  EXPECT_EQ(hashOf({5, 5}), 160u);
  EXPECT_EQ(computed, 4);
  EXPECT_EQ(hashOf({1, 2}), 33u);
  EXPECT_EQ(computed, 5);
}

}  // namespace
