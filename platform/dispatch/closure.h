#pragma once

#include <concepts>
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace quillbox {

/// A move-only closure that holds a function object of any type, copyable or not. Empty when
/// default-constructed. Function objects of up to `room` bytes, like the captures of most lambdas,
/// are stored inside it, which saves the allocations that would be a large part of a short
/// session's work; larger ones are on the heap.
template <std::size_t room, typename... Arguments> class Closure final {
public:
    Closure() = default;
    template <typename Function>
    requires(!std::same_as<Function, Closure>) Closure(Function function)
    {
        if constexpr (sizeof(Function) <= room && alignof(Function) <= alignof(void*)
                      && std::is_nothrow_move_constructible_v<Function>)
            hold(std::move(function));
        else
            hold(OnHeap<Function>(new Function(std::move(function))));
    }
    ~Closure() { reset(); }

    Closure(Closure&& other) noexcept { takeFrom(other); }
    Closure& operator=(Closure&& other) noexcept
    {
        if (this != &other) {
            reset();
            takeFrom(other);
        }
        return *this;
    }
    Closure(const Closure&) = delete;
    Closure& operator=(const Closure&) = delete;

    explicit operator bool() const { return type_ != nullptr; }
    void operator()(Arguments... arguments) { type_->call(room_, std::move(arguments)...); }

    /// Destroys the function object.
    void reset()
    {
        if (const auto* type = std::exchange(type_, nullptr))
            type->destroy(room_);
    }

    /// Returns the closure and leaves this one empty.
    Closure take() { return std::move(*this); }

private:
    struct Type {
        void (*call)(void*, Arguments...);
        void (*move)(void* from, void* to);
        void (*destroy)(void*);
    };

    template <typename Function> class OnHeap {
    public:
        explicit OnHeap(Function* function) : function_(function) {}
        ~OnHeap() { delete function_; }
        OnHeap(OnHeap&& other) noexcept : function_(std::exchange(other.function_, nullptr)) {}
        OnHeap(const OnHeap&) = delete;
        OnHeap& operator=(const OnHeap&) = delete;
        OnHeap& operator=(OnHeap&&) = delete;
        void operator()(Arguments... arguments) { (*function_)(std::move(arguments)...); }

    private:
        Function* function_;
    };

    template <typename Function>
    static constexpr Type kType{
        .call =
            [](void* held, Arguments... arguments) {
                (*static_cast<Function*>(held))(std::move(arguments)...);
            },
        .move =
            [](void* from, void* to) {
                auto* const moved = static_cast<Function*>(from);
                ::new (to) Function(std::move(*moved));
                moved->~Function();
            },
        .destroy = [](void* held) { static_cast<Function*>(held)->~Function(); },
    };

    template <typename Function> void hold(Function function)
    {
        ::new (static_cast<void*>(room_)) Function(std::move(function));
        type_ = &kType<Function>;
    }

    void takeFrom(Closure& other)
    {
        if (other.type_ != nullptr)
            other.type_->move(other.room_, room_);
        type_ = std::exchange(other.type_, nullptr);
    }

    const Type* type_ = nullptr;
    alignas(void*) std::byte room_[room];
};

} // namespace quillbox
