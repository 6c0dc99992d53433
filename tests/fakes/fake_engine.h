#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace quillbox::dnssd {

/// An engine that a test plays by hand: it notes what it is asked, and says what the test says. The
/// object is the test's end of it and may outlive the engine proper. For use by one thread.
class FakeEngine final {
public:
    FakeEngine();

    /// The engine for the one under test. Called once.
    std::unique_ptr<Engine> makeEngine();

    void emit(Event event) const;
    void up(const std::string& hostName = "my-pc.local");
    void down(std::error_code error = {});

    bool isStopped() const { return state->isStopped; }

    /// All that was ever asked, in order.
    const std::vector<Request>& requests() const { return state->requests; }

    /// What was asked since the engine came last and has not been stopped, by kind, in order.
    template <class Kind> std::vector<Kind> standing() const
    {
        std::vector<Kind> result;
        for (const Request& request : state->standing) {
            if (const auto* one = std::get_if<Kind>(&request))
                result.push_back(*one);
        }
        return result;
    }

    /// The only standing request of a kind; a default-made one, whose id is 0, when there is none
    /// or more than one.
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
        bool isStopped = false;
    };

    const std::shared_ptr<State> state;
};

/// A link with several hosts, each with an engine that works: what one registers the others see.
/// Time is the queue's. For use by one thread.
class FakeMedium final {
public:
    struct Host {
        std::string name;               ///< "here.local"
        int linkInterface = 0;          ///< the index of its interface on the link; loopback is 1
        std::vector<Address> addresses; ///< of the computer's own host name
    };

    explicit FakeMedium(std::shared_ptr<DispatchQueue> queue);
    ~FakeMedium();
    FakeMedium(const FakeMedium&) = delete;
    FakeMedium& operator=(const FakeMedium&) = delete;

    std::unique_ptr<Engine> makeEngine(Host host);

    /// The engine of the host of that name goes, or comes back.
    void takeAway(const std::string& hostName);
    void bringBack(const std::string& hostName);

private:
    class Member;
    struct World;

    const std::shared_ptr<World> world;
};

/// Addresses from their printed forms.
Address address(const std::string& text);

} // namespace quillbox::dnssd
