#pragma once

#include <concepts>
#include <memory>
#include <utility>

namespace quillbox {

/// A closure of any type, which need not be copyable. None when made without one.
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

    /// Leaves none behind.
    Closure take() { return std::exchange(*this, {}); }

private:
    std::unique_ptr<void, void (*)(void*)> function_{nullptr, [](void*) {}};
    void (*call_)(void*, Arguments...) = nullptr;
};

using Work = Closure<>;

} // namespace quillbox
