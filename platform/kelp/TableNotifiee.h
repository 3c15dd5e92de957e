#pragma once

// The callbacks a table delivers. On the writer's side they run synchronously at the end of
// each safeWrite / directCommit / safeRemove / notifyCollection / readyIs; on a reader's side
// they run from poll(), in log order. Every write notifies its key, equal value or not; a remove
// notifies only when the key was present.
//
// onKey: one key was inserted, replaced or removed (look it up to tell which).
// onCollection: the whole table may have changed (the writer said so, or this reader fell
//   behind the change log and rebuilt its view); walk it again.
// onStatus: readiness, the writer's presence, or the segment itself (a new writer) changed. A
//   reader hears of readiness turning true once its view holds what was written before it.

#include <cstddef>
#include <vector>

#include "platform/vel/Assert.h"

namespace Kelp {

template <class K>
class TableNotifiee {
 public:
  virtual ~TableNotifiee() = default;
  virtual void onKey(K const&) {}
  virtual void onCollection() {}
  virtual void onStatus() {}
};

// Notifiees in registration order; one may leave (or another join) while being visited. One
// that joins during a visit hears only later changes, not the one being delivered.
template <class N>
class NotifieeList {
 public:
  void add(N* n) {
    VEL_ASSERT(n != nullptr);
    list_.push_back(n);
  }
  void remove(N* n) {
    for (auto& entry : list_) {
      if (entry != n) continue;
      entry = nullptr;
      break;
    }
    if (depth_ == 0) compact();
  }
  bool empty() const { return list_.empty(); }

  template <class F>
  void visit(F&& f) {
    if (list_.empty()) return;
    struct Depth {
      NotifieeList& l;
      ~Depth() {
        if (--l.depth_ == 0) l.compact();
      }
    } depth{*this};
    ++depth_;
    std::size_t const registered = list_.size();
    for (std::size_t i = 0; i < registered; ++i) {
      if (N* n = list_[i]) f(*n);
    }
  }

 private:
  void compact() { std::erase(list_, nullptr); }

  std::vector<N*> list_;
  unsigned depth_ = 0;
};

}  // namespace Kelp
