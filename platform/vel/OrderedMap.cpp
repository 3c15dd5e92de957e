#include "platform/vel/OrderedMap.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/vel/Assert.h"

namespace Vel {

std::size_t pageBytes() {
  static std::size_t const bytes = [] {
    long const page = ::sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<std::size_t>(page) : std::size_t(4096);
  }();
  return bytes;
}

std::size_t pagesFor(std::size_t bytes) { return (bytes + pageBytes() - 1) / pageBytes(); }

namespace {

std::atomic<std::size_t> mapped{0};

std::size_t roundToPages(std::size_t bytes) { return pagesFor(bytes) * pageBytes(); }

}  // namespace

// One call where the kernel offers it; elsewhere the pages are touched one by one.
void populatePages(void* at, std::size_t bytes) {
#ifdef MADV_POPULATE_WRITE
  if (::madvise(at, bytes, MADV_POPULATE_WRITE) == 0) return;
#endif
  auto* const touch = static_cast<unsigned char volatile*>(at);
  for (std::size_t i = 0; i < bytes; i += pageBytes()) touch[i] = 0;
}

void* mapPages(std::size_t bytes) {
  std::size_t const length = roundToPages(bytes);
  // Fresh anonymous pages read as zero and are faulted in on first touch.
  void* const at =
      ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (at == MAP_FAILED) throw std::bad_alloc();
  mapped.fetch_add(length, std::memory_order_relaxed);
  return at;
}

void unmapPages(void* at, std::size_t bytes) {
  std::size_t const length = roundToPages(bytes);
  ::munmap(at, length);
  mapped.fetch_sub(length, std::memory_order_relaxed);
}

std::size_t mappedBytes() { return mapped.load(std::memory_order_relaxed); }

IndexTable::IndexTable(std::size_t size) : size_(size) {
  if (!mappedAt(size)) {
    slots_ = static_cast<uint64_t*>(std::calloc(size, sizeof(uint64_t)));
    if (!slots_) throw std::bad_alloc();
    return;
  }
  std::size_t const bytes = size * sizeof(uint64_t);
  slots_ = static_cast<uint64_t*>(mapPages(bytes));
  mapped_ = static_cast<uint32_t>(roundToPages(bytes) / pageBytes());
}

void IndexTable::clear() {
  if (size_ > 0) std::memset(slots_, 0, size_ * sizeof(uint64_t));
}

void IndexTable::prepareSome(std::size_t pages) {
  auto const count = static_cast<uint32_t>(std::min<std::size_t>(mapped_ - touched_, pages));
  if (count == 0) return;
  populatePages(reinterpret_cast<unsigned char*>(slots_) + touched_ * pageBytes(),
                count * pageBytes());
  touched_ += count;
}

void IndexTable::releaseSome(std::size_t pages) {
  auto const drop = static_cast<uint32_t>(std::min<std::size_t>(mapped_, pages));
  if (drop == 0) return;
  mapped_ -= drop;
  unmapPages(reinterpret_cast<unsigned char*>(slots_) + mapped_ * pageBytes(), drop * pageBytes());
  touched_ = std::min(touched_, mapped_);
  if (mapped_ == 0) slots_ = nullptr;
}

void* IndexTable::takePages(std::size_t pages) {
  VEL_ASSERT(pages <= sparePages());
  auto* const front = reinterpret_cast<unsigned char*>(slots_);
  auto const count = static_cast<uint32_t>(pages);
  slots_ = reinterpret_cast<uint64_t*>(front + count * pageBytes());
  mapped_ -= count;
  touched_ -= count;
  if (mapped_ == 0) slots_ = nullptr;
  return front;
}

void IndexTable::take(IndexTable& other) noexcept {
  slots_ = std::exchange(other.slots_, nullptr);
  size_ = std::exchange(other.size_, 0);
  mapped_ = std::exchange(other.mapped_, 0);
  touched_ = std::exchange(other.touched_, 0);
}

void IndexTable::reset() noexcept {
  if (mapped_ > 0) {
    unmapPages(slots_, mapped_ * pageBytes());
  } else {
    std::free(slots_);
  }
  slots_ = nullptr;
  size_ = mapped_ = touched_ = 0;
}

}  // namespace Vel
