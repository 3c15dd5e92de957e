#pragma once

// Vel::MemberPtr<T>: what a collection hands out when asked where a member is (find, the slot of
// an insertion, the first key). It is good until the next change of that collection that can
// move or drop members (see OrderedMap.h for which changes those are).
//
// Built with NOX_CHECKED_COLLECTIONS=1 (the sanitizer build) it is a checked pointer that
// remembers its collection's change count when it was taken, and aborts with
//   "Vel: member pointer used after its collection changed"
// when dereferenced after a change. Otherwise it is a plain T*, at no cost.

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Vel {

#if NOX_CHECKED_COLLECTIONS

// How often a collection changed in a way that invalidates what it handed out.
using ChangeCount = uint64_t;

[[noreturn]] void staleMemberPointer();
[[noreturn]] void staleIterator();

template <class T>
class MemberPtr {
 public:
  MemberPtr() = default;
  MemberPtr(std::nullptr_t) {}
  MemberPtr(T* p, ChangeCount const* changes)
      : p_(p), changes_(changes), taken_(changes ? *changes : 0) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> MemberPtr(MemberPtr<U> const& o)
      : p_(o.p_), changes_(o.changes_), taken_(o.taken_) {}

  T& operator*() const { return *checked(); }
  T* operator->() const { return checked(); }
  explicit operator bool() const { return p_ != nullptr; }
  friend bool operator==(MemberPtr const& a, std::nullptr_t) { return a.p_ == nullptr; }
  friend bool operator==(MemberPtr const& a, MemberPtr const& b) { return a.p_ == b.p_; }

 private:
  template <class>
  friend class MemberPtr;
  T* checked() const {
    if (p_ && *changes_ != taken_) staleMemberPointer();
    return p_;
  }
  T* p_ = nullptr;
  ChangeCount const* changes_ = nullptr;
  ChangeCount taken_ = 0;
};

#else

template <class T>
using MemberPtr = T*;

#endif

}  // namespace Vel
