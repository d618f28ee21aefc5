// SPDX-License-Identifier: BSD-3-Clause
/// Callables of any kind behind one type, like std::function, but with the memory of a Vector: a
/// failed allocation tells its bytes.  Copies share the callable.
#pragma once

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include "base/memory.hpp"

namespace vlm {

template <class Signature>
class Function;

template <class Result, class... Arguments>
class Function<Result(Arguments...)> {
 public:
  template <class Callable>
  requires(!std::same_as<std::decay_t<Callable>, Function> &&
           std::is_invocable_r_v<Result, const std::decay_t<Callable>&, Arguments...>)
      Function(Callable&& callable)
      : held_(std::allocate_shared<Holder<std::decay_t<Callable>>>(
            Allocator<Holder<std::decay_t<Callable>>>(), std::forward<Callable>(callable))) {}

  Result operator()(Arguments... arguments) const {
    return held_->call(std::forward<Arguments>(arguments)...);
  }

 private:
  struct Base {
    Base() = default;
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() = default;
    virtual Result call(Arguments... arguments) const = 0;
  };
  template <class Callable>
  struct Holder final : Base {
    explicit Holder(Callable given) : callable(std::move(given)) {}
    Result call(Arguments... arguments) const override {
      return callable(std::forward<Arguments>(arguments)...);
    }
    Callable callable;
  };

  std::shared_ptr<const Base> held_;
};

}  // namespace vlm
