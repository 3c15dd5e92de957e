#pragma once

// Intrusive reference counting for every entity, machine and collection of the framework.
// The count lives in the object (Vel::PtrInterface), so a Ptr is one machine word and a raw
// pointer received from a callback can be turned back into an owning Ptr at any time.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#if NOX_THREADSAFE_PTR
#include <atomic>
#endif

namespace Vel {

class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(PtrInterface const&) : refs_(0) {}
  PtrInterface& operator=(PtrInterface const&) { return *this; }

  std::size_t references() const { return refs_; }
  void newRef() const { ++refs_; }
  void deleteRef() const {
    if (--refs_ == 0) onZeroReferences();
  }

 protected:
  virtual ~PtrInterface() = default;
  // Called when the last reference goes; deletes the object unless a subclass recycles it.
  virtual void onZeroReferences() const { delete this; }

 private:
#if NOX_THREADSAFE_PTR
  mutable std::atomic<std::size_t> refs_{0};
#else
  mutable std::size_t refs_ = 0;
#endif
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) { acquire(); }
  Ptr(Ptr const& o) : p_(o.p_) { acquire(); }
  Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& o) : p_(o.ptr()) { acquire(); }
  ~Ptr() { release(); }

  Ptr& operator=(Ptr const& o) {
    if (this != &o) Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(T* p) {
    Ptr(p).swap(*this);
    return *this;
  }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  friend bool operator==(Ptr const& a, Ptr const& b) { return a.p_ == b.p_; }
  friend bool operator==(Ptr const& a, std::nullptr_t) { return a.p_ == nullptr; }

 private:
  void acquire() const {
    if (p_) p_->newRef();
  }
  void release() {
    T* p = p_;
    p_ = nullptr;
    if (p) p->deleteRef();
  }
  T* p_ = nullptr;
};

template <class T>
Ptr<T> ptrConstCast(Ptr<T const> const& p) {
  return Ptr<T>(const_cast<T*>(p.ptr()));
}

template <class T, class U>
Ptr<T> ptrStaticCast(Ptr<U> const& p) {
  return Ptr<T>(static_cast<T*>(p.ptr()));
}

}  // namespace Vel

template <class T>
struct std::hash<Vel::Ptr<T>> {
  std::size_t operator()(Vel::Ptr<T> const& p) const { return std::hash<T*>()(p.ptr()); }
};
