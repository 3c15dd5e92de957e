#include "platform/vel/Notifier.h"

#include <algorithm>

namespace Vel {

Notifier::~Notifier() {
  for (NotifieeBase* n : notifiees_) {
    if (!n) continue;
    n->notifier_ = nullptr;
    n->onNotifierDeleted();
  }
}

std::size_t Notifier::notifiees() const {
  return static_cast<std::size_t>(
      std::count_if(notifiees_.begin(), notifiees_.end(), [](auto* n) { return n != nullptr; }));
}

void Notifier::detach(NotifieeBase* n) const {
  auto it = std::find(notifiees_.begin(), notifiees_.end(), n);
  if (it == notifiees_.end()) return;
  if (notifyDepth_ > 0) {
    // A notification is walking the list: leave a hole, compact when the walk ends.
    *it = nullptr;
    hasHoles_ = true;
  } else {
    notifiees_.erase(it);
  }
}

void Notifier::compact() const {
  std::erase(notifiees_, nullptr);
  hasHoles_ = false;
}

void NotifieeBase::attach(Notifier const* notifier) {
  if (notifier == notifier_) return;
  detach();
  notifier_ = notifier;
  if (notifier_) notifier_->attach(this);
}

void NotifieeBase::detach() {
  if (!notifier_) return;
  notifier_->detach(this);
  notifier_ = nullptr;
}

}  // namespace Vel
