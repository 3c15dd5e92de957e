#pragma once

// Change notification between an entity (the notifier) and the objects that watch it
// (notifiees). Notifiees are called in the order they registered, one at a time, after the
// change is visible.
//
// What a notifiee may do inside a callback:
// - change the notifier that is calling it, or any other entity. The change notifies at once,
//   nested inside the current notification, so the notifiees after this one hear the nested
//   change before the one that is being delivered. A member pointer or iterator into a
//   collection taken before the callback may be stale afterwards (see OrderedMap.h).
// - register new notifiees, with this notifier or another. One registered during a
//   notification hears only later changes, not the one being delivered.
// - detach or destroy any notifiee, itself included: one that goes is skipped from then on.
// - let go of its own reference to the notifier (notifierIs(other)), but not destroy it: the
//   notifier is still walking its list, so whoever made the change must hold a reference.
// Outside notifications, a notifier destroyed first leaves its notifiees detached
// (notifier() null).

#include <cstdint>
#include <vector>

#include "platform/vel/Ptr.h"
#include "platform/vel/Type.h"

namespace Vel {

class NotifieeBase;

class Notifier {
 public:
  Notifier() = default;
  Notifier(Notifier const&) = delete;
  Notifier& operator=(Notifier const&) = delete;
  ~Notifier();

  std::size_t notifiees() const;

 protected:
  // Calls f(N&) for every registered, active notifiee; N is the notifier's NotifieeConst.
  template <class N, class F>
  void notify(F&& f) const;

 private:
  friend class NotifieeBase;
  void attach(NotifieeBase* n) const { notifiees_.push_back(n); }
  void detach(NotifieeBase* n) const;
  void compact() const;

  mutable std::vector<NotifieeBase*> notifiees_;
  mutable uint32_t notifyDepth_ = 0;
  mutable bool hasHoles_ = false;
};

class NotifieeBase : public Described {
 public:
  NotifieeBase() = default;
  NotifieeBase(NotifieeBase const&) = delete;
  NotifieeBase& operator=(NotifieeBase const&) = delete;
  ~NotifieeBase() override { detach(); }

  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) { active_ = active; }
  bool isAttached() const { return notifier_ != nullptr; }

  VEL_DESCRIBE("Vel::Notifiee", "notifier")

 protected:
  void attach(Notifier const* notifier);
  void detach();
  Notifier const* notifierBase() const { return notifier_; }

  // Called when the notifier is destroyed while this notifiee still watches it.
  virtual void onNotifierDeleted() {}

 private:
  friend class Notifier;
  Notifier const* notifier_ = nullptr;
  bool active_ = true;
};

// Typed base of every NotifieeConst: holds the watched entity. By default the notifiee keeps
// its notifier alive (a reactor must still reach a member that has just left its collection);
// notifierIsWeak watches without owning.
template <class T>
class NotifieeConstOf : public NotifieeBase {
 public:
  NotifieeConstOf() = default;
  // Leave the notifier's list before letting go of it, which may destroy it.
  ~NotifieeConstOf() override { detach(); }

  T const* notifier() const { return static_cast<T const*>(notifierBase()); }
  void notifierIs(Ptr<T const> const& n) {
    if (n.ptr() == notifier() && held_ == n) return;
    attach(n.ptr());
    held_ = n;
  }
  void notifierIsWeak(T const* n) {
    attach(n);
    held_ = nullptr;
  }

 protected:
  // Attaching at construction is for notifiees that do something: a bare NotifieeConstOf would
  // only keep its notifier alive.
  explicit NotifieeConstOf(Ptr<T const> const& n) { notifierIs(n); }
  void onNotifierDeleted() override { held_ = nullptr; }

 private:
  Ptr<T const> held_;
};

template <class N, class F>
void Notifier::notify(F&& f) const {
  if (notifiees_.empty()) return;
  ++notifyDepth_;
  // Notifiees that register during this notification are not called for it.
  std::size_t const n = notifiees_.size();
  for (std::size_t i = 0; i < n; ++i) {
    NotifieeBase* target = notifiees_[i];
    if (target && target->active_) f(static_cast<N&>(*target));
  }
  if (--notifyDepth_ == 0 && hasHoles_) compact();
}

}  // namespace Vel
