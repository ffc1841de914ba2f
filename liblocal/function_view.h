// A borrowed callable: two words, no allocation. It must not outlive what it refers to.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace qvr {

template <class Signature>
class function_view;

template <class Result, class... Args>
class function_view<Result(Args...)> {
 public:
  function_view() = default;
  function_view(std::nullptr_t) {}
  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, function_view> &&
           std::is_invocable_r_v<Result, F &, Args...>) function_view(F &&callable) {
    using callable_t = std::remove_reference_t<F>;
    if constexpr (std::is_function_v<callable_t>) {
      object_ = reinterpret_cast<void *>(&callable);
      call_ = [](void *object, Args... args) -> Result {
        return reinterpret_cast<callable_t *>(object)(std::forward<Args>(args)...);
      };
    } else {
      object_ = const_cast<void *>(static_cast<const void *>(std::addressof(callable)));
      call_ = [](void *object, Args... args) -> Result {
        return (*static_cast<callable_t *>(object))(std::forward<Args>(args)...);
      };
    }
  }

  explicit operator bool() const { return call_ != nullptr; }
  Result operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }

 private:
  void *object_ = nullptr;
  Result (*call_)(void *, Args...) = nullptr;
};

}  // namespace qvr
