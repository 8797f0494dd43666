#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace corvane {

/// A callback that may be replaced, cleared or outlived from inside itself: a call keeps the running closure
/// alive, without an allocation. Assign any callable, or `nullptr` for none; calling none does nothing.
template <class... Args>
class Callback {
public:
    Callback() = default;
    Callback(std::nullptr_t) {}

    template <class Function>
    requires(!std::is_same_v<std::remove_cvref_t<Function>, Callback> &&
             std::is_invocable_v<std::remove_cvref_t<Function>&, Args...>) Callback(Function&& function) {
        std::function<void(Args...)> closure(std::forward<Function>(function));
        // An empty std::function is a callback that is absent.
        if (closure) closure_ = std::make_shared<std::function<void(Args...)>>(std::move(closure));
    }

    explicit operator bool() const { return closure_ != nullptr; }

    void operator()(Args... args) const {
        if (const auto running = closure_) (*running)(std::forward<Args>(args)...);
    }

private:
    std::shared_ptr<std::function<void(Args...)>> closure_;
};

}  // namespace corvane
