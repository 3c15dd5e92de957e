#pragma once

// What a command does when it runs: a callable taking the simulation, empty when the parser
// rejected the command. Every line of a scenario makes one twice, once when the scenario is
// checked and once when it runs, and the commonest (a flood-set destination's) captures 48
// bytes: past std::function's in-place room, which made each of them an allocation and a free.
// An Action keeps a capture of up to `inlineBytes` in place and only a larger one on the heap.

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace Noxsim {

class Sim;

class Action {
 public:
  static constexpr std::size_t inlineBytes = 64;

  Action() = default;
  template <class F>
  requires(!std::is_same_v<std::decay_t<F>, Action> && std::is_invocable_v<F const&, Sim&>)
      Action(F&& f) {  // NOLINT(google-explicit-constructor): parsers return their lambdas as is
    using Callable = std::decay_t<F>;
    if constexpr (fitsInPlace<Callable>()) {
      emplace<Callable>(std::forward<F>(f));
    } else {
      emplace<OnHeap<Callable>>(OnHeap<Callable>{std::make_unique<Callable>(std::forward<F>(f))});
    }
  }
  Action(Action&& other) noexcept { takeFrom(other); }
  Action& operator=(Action&& other) noexcept {
    if (this != &other) {
      reset();
      takeFrom(other);
    }
    return *this;
  }
  Action(Action const&) = delete;
  Action& operator=(Action const&) = delete;
  ~Action() { reset(); }

  explicit operator bool() const { return ops_ != nullptr; }
  void operator()(Sim& sim) const { ops_->call(storage_, sim); }

 private:
  struct Ops {
    void (*call)(void const* storage, Sim& sim);
    void (*move)(void* from, void* to);  // leaves `from` destroyed
    void (*destroy)(void* storage);
  };

  template <class Callable>
  static constexpr bool fitsInPlace() {
    return sizeof(Callable) <= inlineBytes && alignof(Callable) <= alignof(std::max_align_t) &&
           std::is_nothrow_move_constructible_v<Callable>;
  }

  // A capture too large to keep in place, kept in place as its address.
  template <class Callable>
  struct OnHeap {
    std::unique_ptr<Callable> callable;
    void operator()(Sim& sim) const { (*callable)(sim); }
  };

  template <class Callable, class Arg>
  void emplace(Arg&& arg) {
    ::new (static_cast<void*>(storage_)) Callable(std::forward<Arg>(arg));
    ops_ = &ops<Callable>;
  }

  template <class Callable>
  static constexpr Ops ops = {
      [](void const* storage, Sim& sim) {
        (*std::launder(static_cast<Callable const*>(storage)))(sim);
      },
      [](void* from, void* to) {
        auto* const source = std::launder(static_cast<Callable*>(from));
        ::new (to) Callable(std::move(*source));
        source->~Callable();
      },
      [](void* storage) { std::launder(static_cast<Callable*>(storage))->~Callable(); },
  };

  void takeFrom(Action& other) noexcept {
    if (!other.ops_) return;
    other.ops_->move(other.storage_, storage_);
    ops_ = std::exchange(other.ops_, nullptr);
  }
  void reset() noexcept {
    if (ops_) std::exchange(ops_, nullptr)->destroy(storage_);
  }

  alignas(std::max_align_t) unsigned char storage_[inlineBytes]{};
  Ops const* ops_ = nullptr;
};

}  // namespace Noxsim
