#include "platform/dnssd/operations/engine_link.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

void EngineLink::start()
{
    engine->start([this](const Event& event) { handle(event); });
}

void EngineLink::stop()
{
    routes.clear();
    engine->stop();
}

void EngineLink::handle(const Event& event)
{
    if (const auto* up = std::get_if<EngineUp>(&event)) {
        currentState = State::Up;
        currentError.clear();
        if (!up->hostName.empty())
            computerName = up->hostName;
        routes.clear();
        tellAll([](Client& client) { client.engineUp(); });
    } else if (const auto* down = std::get_if<EngineDown>(&event)) {
        currentState = State::Down;
        currentError = down->error ? down->error : DnsSdError::EngineUnavailable;
        routes.clear();
        tellAll([this](Client& client) { client.engineDown(currentError); });
    } else {
        std::visit(
            [this, &event](const auto& answer) {
                if constexpr (requires { answer.id; })
                    route(answer.id, event);
            },
            event);
    }
}

void EngineLink::route(RequestId id, const Event& event)
{
    if (const auto found = routes.find(id); found != routes.end())
        found->second->engineEvent(event);
}

void EngineLink::tellAll(const std::function<void(Client&)>& tell)
{
    // Clients may attach and detach during the calls. New ones have read the new state already.
    const auto before = clients;
    for (Client* client : before) {
        if (std::ranges::find(clients, client) != clients.end())
            tell(*client);
    }
}

RequestId EngineLink::send(Client& client, Request request)
{
    if (++lastId == 0) // 0 means none; no request lives until ids are reused
        ++lastId;
    const RequestId id = lastId;
    std::visit([id](auto& query) { query.id = id; }, request);
    routes[id] = &client;
    engine->send(request);
    return id;
}

bool EngineLink::end(RequestId id)
{
    if (routes.erase(id) == 0)
        return false;
    engine->send(StopRequest{id});
    return true;
}

} // namespace quillbox::dnssd
