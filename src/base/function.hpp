// SPDX-License-Identifier: BSD-3-Clause
/// Callables of any kind behind one type, like std::function.  Small plain ones take no memory;
/// others that of a Vector: a failed allocation tells its bytes.  Copies share such a callable.
#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "base/memory.hpp"

namespace vlm {

template <class Signature>
class Function;

template <class Result, class... Arguments>
class Function<Result(Arguments...)> {
 public:
  template <class Given, class Callable = std::decay_t<Given>>
  requires(!std::same_as<Callable, Function> &&
           std::is_invocable_r_v<Result, const Callable&, Arguments...>)
      // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): a Function is copied, see requires
      Function(Given&& callable)
      : invoke_([](const void* self, Arguments... arguments) -> Result {
          return (*static_cast<const Callable*>(self))(std::forward<Arguments>(arguments)...);
        }) {
    if constexpr (sizeof(Callable) <= sizeof small_ && std::is_trivially_copyable_v<Callable>)
      new (small_) Callable(std::forward<Given>(callable));
    else
      held_ = std::allocate_shared<Callable>(Allocator<Callable>(), std::forward<Given>(callable));
  }

  Result operator()(Arguments... arguments) const {
    return invoke_(held_ != nullptr ? held_.get() : small_, std::forward<Arguments>(arguments)...);
  }

 private:
  Result (*invoke_)(const void* self, Arguments... arguments);
  alignas(std::max_align_t) std::byte small_[32] = {};
  std::shared_ptr<const void> held_;
};

}  // namespace vlm
