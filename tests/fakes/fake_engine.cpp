#include "tests/fakes/fake_engine.h"

#include <utility>

#include <arpa/inet.h>

namespace quillbox::dnssd {

namespace {

RequestId idOf(const Request& request)
{
    return std::visit([](const auto& one) { return one.id; }, request);
}

} // namespace

class FakeEngine::Proper final : public Engine {
public:
    explicit Proper(std::shared_ptr<State> shared) : state(std::move(shared)) {}
    Proper(const Proper&) = delete;
    Proper& operator=(const Proper&) = delete;
    ~Proper() override { state->handler = nullptr; }

    void start(EventHandler handler) override { state->handler = std::move(handler); }

    void send(const Request& request) override
    {
        if (!state->isUp)
            return;
        state->requests.push_back(request);
        if (const auto* end = std::get_if<StopRequest>(&request)) {
            std::erase_if(state->standing,
                          [end](const Request& other) { return idOf(other) == end->id; });
        } else {
            state->standing.push_back(request);
        }
    }

    void stop() override
    {
        state->isStopped = true;
        state->handler = nullptr;
    }

private:
    const std::shared_ptr<State> state;
};

FakeEngine::FakeEngine() : state(std::make_shared<State>()) {}

std::unique_ptr<Engine> FakeEngine::makeEngine()
{
    return std::make_unique<Proper>(state);
}

void FakeEngine::emit(const Event& event) const
{
    // A copy, because it may stop the engine.
    if (const auto handler = state->handler)
        handler(event);
}

void FakeEngine::up(const std::string& hostName)
{
    state->standing.clear();
    state->isUp = true;
    emit(EngineUp{hostName});
}

void FakeEngine::down(std::error_code error)
{
    state->standing.clear();
    state->isUp = false;
    emit(EngineDown{error});
}

Address address(const std::string& text)
{
    Address result;
    if (inet_pton(AF_INET, text.c_str(), result.bytes.data()) == 1)
        return result;
    result.family = Family::IPv6;
    inet_pton(AF_INET6, text.c_str(), result.bytes.data());
    return result;
}

} // namespace quillbox::dnssd
