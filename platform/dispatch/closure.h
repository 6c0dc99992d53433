#pragma once

#include <concepts>
#include <memory>
#include <utility>

namespace quillbox {

/// A move-only closure that holds a function object of any type, copyable or not. Empty when
/// default-constructed.
template <typename... Arguments> class Closure final {
public:
    Closure() = default;
    template <typename Function>
    requires(!std::same_as<Function, Closure>) explicit Closure(Function function)
        : function_(new Function(std::move(function)),
                    [](void* made) { delete static_cast<Function*>(made); }),
          call_([](void* made, Arguments... arguments) {
              (*static_cast<Function*>(made))(arguments...);
          })
    {
    }

    explicit operator bool() const { return call_ != nullptr; }
    void operator()(Arguments... arguments) { call_(function_.get(), arguments...); }

    /// Returns the closure and leaves this one empty.
    Closure take() { return std::exchange(*this, {}); }

private:
    std::unique_ptr<void, void (*)(void*)> function_{nullptr, [](void*) {}};
    void (*call_)(void*, Arguments...) = nullptr;
};

} // namespace quillbox
