#pragma once

// The single-writer sequence lock that lets readers in other processes copy a record while the
// writer may be rewriting it, without ever blocking the writer and without keeping a torn copy.
//
// Every shared word is read and written through std::atomic_ref with relaxed order, so the C++
// memory model sees no data race even while a copy overlaps a write; the sequence word and two
// fences give the ordering (docs/kelp.md explains why this is enough). On x86-64 every one of
// these operations compiles to a plain move.

#include <atomic>
#include <cstddef>

#include "platform/kelp/Layout.h"

namespace Kelp::SeqLock {

static_assert(std::atomic_ref<Word>::is_always_lock_free, "shared words must be address-free");

inline Word load(Word const& w, std::memory_order order = std::memory_order_relaxed) {
  // Readers map the segment read-only; a lock-free 64-bit atomic load never writes.
  return std::atomic_ref<Word>(const_cast<Word&>(w)).load(order);
}

inline void store(Word& w, Word v, std::memory_order order = std::memory_order_relaxed) {
  std::atomic_ref<Word>(w).store(v, order);
}

inline void copyOut(Word* dst, Word const* src, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) dst[i] = load(src[i]);
}

inline void copyIn(Word* dst, Word const* src, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) store(dst[i], src[i]);
}

// Writer: make the sequence odd before touching the record. The release fence keeps the odd
// store ahead of every following data store: a reader whose copy saw any new data word then
// sees an odd or later sequence on its second read.
inline void writeBegin(Word& seq) {
  store(seq, load(seq) + 1);
  std::atomic_thread_fence(std::memory_order_release);
}

// Writer: publish the record; the release store orders all data stores before the even value.
inline void writeEnd(Word& seq) { store(seq, load(seq) + 1, std::memory_order_release); }

inline void pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

// Reader: one attempt at a stable copy. Returns true and sets *seqOut when copy() ran entirely
// between two equal even reads of the sequence.
template <class Copy>
inline bool tryRead(Word const& seq, Word* seqOut, Copy&& copy) {
  Word const before = load(seq, std::memory_order_acquire);
  if (before & 1) return false;
  copy();
  std::atomic_thread_fence(std::memory_order_acquire);
  if (load(seq) != before) return false;
  *seqOut = before;
  return true;
}

}  // namespace Kelp::SeqLock
