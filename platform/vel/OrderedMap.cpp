#include "platform/vel/OrderedMap.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace Vel {

namespace {

std::size_t pageBytes() {
  static std::size_t const bytes = [] {
    long const page = ::sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<std::size_t>(page) : std::size_t(4096);
  }();
  return bytes;
}

// Tables of at least this many bytes get a mapping of their own.
constexpr std::size_t mappedFrom = std::size_t(32) * 1024;

}  // namespace

IndexTable::IndexTable(std::size_t size) : size_(size) {
  std::size_t const bytes = size * sizeof(uint64_t);
  if (bytes < mappedFrom) {
    slots_ = static_cast<uint64_t*>(std::calloc(size, sizeof(uint64_t)));
    if (!slots_) throw std::bad_alloc();
    return;
  }
  std::size_t const page = pageBytes();
  std::size_t const length = (bytes + page - 1) / page * page;
  // Fresh anonymous pages read as zero and are faulted in on first touch.
  void* const at =
      ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (at == MAP_FAILED) throw std::bad_alloc();
  slots_ = static_cast<uint64_t*>(at);
  mapped_ = length;
}

void IndexTable::clear() {
  if (size_ > 0) std::memset(slots_, 0, size_ * sizeof(uint64_t));
}

void IndexTable::prepareSome(std::size_t pages) {
  std::size_t const page = pageBytes();
  auto* const bytes = reinterpret_cast<unsigned char volatile*>(slots_);
  for (; pages > 0 && touched_ < mapped_; --pages, touched_ += page) bytes[touched_] = 0;
}

void IndexTable::releaseSome(std::size_t pages) {
  std::size_t const drop = std::min(mapped_, pages * pageBytes());
  if (drop == 0) return;
  mapped_ -= drop;
  ::munmap(reinterpret_cast<unsigned char*>(slots_) + mapped_, drop);
  touched_ = std::min(touched_, mapped_);
  if (mapped_ == 0) slots_ = nullptr;
}

void IndexTable::take(IndexTable& other) noexcept {
  slots_ = std::exchange(other.slots_, nullptr);
  size_ = std::exchange(other.size_, 0);
  mapped_ = std::exchange(other.mapped_, 0);
  touched_ = std::exchange(other.touched_, 0);
}

void IndexTable::reset() noexcept {
  if (mapped_ > 0) {
    ::munmap(slots_, mapped_);
  } else {
    std::free(slots_);
  }
  slots_ = nullptr;
  size_ = mapped_ = touched_ = 0;
}

}  // namespace Vel
