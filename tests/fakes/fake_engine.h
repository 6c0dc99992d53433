#pragma once

#include "platform/dnssd/engine/engine.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace quillbox::dnssd {

/// An engine controlled by a test: it records requests and emits the test's events. This object is
/// the test's handle and may outlive the engine that it made. For use by one thread.
class FakeEngine final {
public:
    FakeEngine();

    /// Makes the engine for the object under test. Call it only once.
    std::unique_ptr<Engine> makeEngine();

    void emit(const Event& event) const;
    void up(const std::string& hostName = "my-pc.local");
    void down(std::error_code error = {});

    bool isStarted() const { return state->handler != nullptr; }
    bool isStopped() const { return state->isStopped; }

    /// All requests so far, in order.
    const std::vector<Request>& requests() const { return state->requests; }

    /// The active requests of a kind, in order: those sent since the engine last came up and not
    /// stopped.
    template <class Kind> std::vector<Kind> standing() const
    {
        std::vector<Kind> result;
        for (const Request& request : state->standing) {
            if (const auto* one = std::get_if<Kind>(&request))
                result.push_back(*one);
        }
        return result;
    }

    /// The only active request of a kind; a default-constructed one, with id 0, if there is none or
    /// more than one.
    template <class Kind> Kind only() const
    {
        const auto all = standing<Kind>();
        return all.size() == 1 ? all.front() : Kind{};
    }

    template <class Kind> std::size_t count() const
    {
        std::size_t number = 0;
        for (const Request& request : state->requests)
            number += std::holds_alternative<Kind>(request) ? 1 : 0;
        return number;
    }

private:
    class Proper;

    struct State {
        Engine::EventHandler handler;
        std::vector<Request> requests;
        std::vector<Request> standing;
        bool isUp = false;
        bool isStopped = false;
    };

    const std::shared_ptr<State> state;
};

/// An address from its text form.
Address address(const std::string& text);

} // namespace quillbox::dnssd
